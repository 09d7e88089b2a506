// The names that items get when they are named "".
#include "model/collection.h"
#include "model/instrument.h"
#include "model/waveform.h"

#include <string>

namespace vimbo {

namespace {

std::u16string_view OrdinalSuffix(std::u16string_view number) noexcept
{
    const bool isTeen = number.size() >= 2 && number[number.size() - 2] == u'1';
    switch (isTeen ? u'0' : number.back()) {
    case u'1':
        return u"st";
    case u'2':
        return u"nd";
    case u'3':
        return u"rd";
    default:
        return u"th";
    }
}

} // namespace

std::u16string Collection::TakeNameNumber(ItemKind kind)
{
    if (kind != ItemKind::Waveform && kind != ItemKind::Instrument)
        return {};
    std::uint32_t& counter = nameCounters_[kind == ItemKind::Waveform ? 0 : 1];
    if (CountOf(kind) == 1) {
        counter = 0;
        return {};
    }
    const std::string digits = std::to_string(counter++);
    return {digits.begin(), digits.end()};
}

std::u16string TextItem::DefaultName()
{
    return std::u16string(KindWord(Handle().KindIndex()));
}

std::u16string Waveform::DefaultName()
{
    const std::u16string number = Owner().TakeNameNumber(kKind);
    std::u16string name(Owner().GetName());
    return number.empty() ? name : name + u" " + number;
}

std::u16string Instrument::DefaultName()
{
    const std::u16string number = Owner().TakeNameNumber(kKind);
    std::u16string name(Owner().GetName());
    if (number.empty())
        return name;
    return name.append(u": ").append(number).append(OrdinalSuffix(number)).append(u" instrument");
}

} // namespace vimbo
