#include "base/last_error.h"
#include "model/record_text.h"
#include "model/text_item.h"

namespace vimbo {

LabelItem::LabelItem(ItemKey key, Collection& owner) noexcept : Item(key, owner) {}

LabelItem::LabelItem(ItemKey key, Collection& owner, const LabelItem& source)
    : Item(key, owner, source), name_(source.name_)
{
}

void LabelItem::SetName(std::u16string_view name)
{
    name_ = name.substr(0, name.find(u'\0'));
}

std::u16string_view LabelItem::GetName() const
{
    return name_.empty() ? Item::GetName() : name_;
}

void LabelItem::Serialize(ByteWriter& out) const
{
    Item::Serialize(out);
    WriteUnits(out, name_);
    out.Write(U16le(0));
}

bool LabelItem::Deserialize(ByteReader& in)
{
    if (!Item::Deserialize(in))
        return false;
    std::u16string name;
    for (;;) {
        U16le unit;
        if (!in.Read(unit))
            return Fail(kDamagedRecord);
        if (unit.Get() == 0)
            break;
        name.push_back(static_cast<char16_t>(unit.Get()));
    }
    name_ = std::move(name);
    return true;
}

} // namespace vimbo
