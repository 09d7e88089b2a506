// FitName on any name, field size and choice: the result lies inside the field, ends as asked, and is the
// same for both character types.
#include "base/fit_name.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace vimbo;

struct Choice {
    std::size_t room;
    KeepTags keepTags;
    PadName pad;
    EndName end;
};

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

template <class Char>
std::basic_string<Char> Fitted(const Choice& choice, const std::basic_string<Char>& name)
{
    const std::vector<Char> input(name.begin(), name.end()); // exact size, so that an over-read is seen
    std::vector<Char> field(choice.room, Char{'#'});
    const std::size_t length =
        FitName(std::span<Char>(field), std::basic_string_view<Char>(input.data(), input.size()),
                choice.keepTags, choice.pad, choice.end);
    const std::size_t reserved = choice.end == EndName::Yes && choice.room > 0 ? 1 : 0;
    Require(length + reserved <= choice.room);
    Require(choice.pad == PadName::No || length + reserved == choice.room);
    Require(std::all_of(field.begin() + static_cast<std::ptrdiff_t>(length), field.end(),
                        [](Char c) { return c == Char{}; }));
    return {field.data(), length};
}

/// Nothing is invented: apart from blanks and one "-", every character comes from the name, in its order.
void CheckOrder(const std::string& name, const std::string& fitted)
{
    std::size_t at = 0;
    int added = 0;
    for (const char c : fitted) {
        const std::size_t found = name.find(c, at);
        if (found != std::string::npos && c != ' ')
            at = found + 1;
        else if (c != ' ')
            Require(c == '-' && ++added == 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const Choice choice{data[0] % 40u, data[1] & 1 ? KeepTags::Yes : KeepTags::No,
                        data[1] & 2 ? PadName::Yes : PadName::No, data[1] & 4 ? EndName::Yes : EndName::No};
    const std::string name(data + 2, data + size);
    const std::string fitted = Fitted(choice, name);
    CheckOrder(name, fitted);

    std::u16string wide;
    for (const char c : name)
        wide += static_cast<unsigned char>(c);
    const std::u16string wideFitted = Fitted(choice, wide);
    Require(std::equal(fitted.begin(), fitted.end(), wideFitted.begin(), wideFitted.end(),
                       [](char a, char16_t b) { return static_cast<unsigned char>(a) == b; }));

    Choice ample = choice;
    ample.room = name.size() + 8;
    const std::string whole = Fitted(ample, name);
    for (const char c : {'0', 'x', 'L', '#'}) // with room for everything nothing is lost
        Require(std::count(name.begin(), name.end(), c) == std::count(whole.begin(), whole.end(), c));
    return 0;
}
