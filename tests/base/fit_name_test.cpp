#include "base/fit_name.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vimbo {
namespace {

constexpr auto kKeep = KeepTags::Yes;
constexpr auto kDrop = KeepTags::No;
constexpr auto kBlanks = PadName::Yes;
constexpr auto kZeros = PadName::No;
constexpr auto kNul = EndName::Yes;
constexpr auto kNoNul = EndName::No;

struct Case {
    std::string_view name;
    std::size_t room;
    KeepTags keepTags;
    PadName pad;
    EndName end;
    std::string_view expected;
};

const Case kCases[] = {
    // all three tags, from ample room to none
    {"Grand Piano C#3-L", 12, kKeep, kZeros, kNoNul, "Grand PC#3-L"},
    {"Grand Piano C#3-L", 12, kKeep, kZeros, kNul, "Grand C#3-L"},
    {"Grand Piano C#3-L", 12, kKeep, kBlanks, kNoNul, "Grand PC#3-L"},
    {"Grand Piano C#3-L", 20, kKeep, kZeros, kNoNul, "Grand Piano C#3 -L"},
    {"Grand Piano C#3-L", 20, kKeep, kBlanks, kNoNul, "Grand Piano C#3   -L"},
    {"Grand Piano C#3-L", 20, kKeep, kBlanks, kNul, "Grand Piano C#3  -L"},
    {"Grand Piano C#3-L", 17, kKeep, kZeros, kNoNul, "Grand Piano C#3-L"},
    {"Grand Piano C#3-L", 12, kDrop, kZeros, kNoNul, "Grand Piano "},
    {"Strings 101 C#3-L", 6, kKeep, kZeros, kNoNul, "101C#3"},
    {"Strings 101 C#3-L", 6, kKeep, kBlanks, kNoNul, "101C-L"},
    {"Pad C3-L", 2, kKeep, kBlanks, kNoNul, "-L"},
    {"Pad C3-L", 2, kKeep, kBlanks, kNul, "C"},
    // number before the note: blanks come back one by one as room allows
    {"Violin Ensemble 12 C4", 24, kKeep, kZeros, kNoNul, "Violin Ensemble 12 C4"},
    {"Violin Ensemble 12 C4", 20, kKeep, kZeros, kNoNul, "Violin Ensemble 12C4"},
    {"Violin Ensemble 12 C4", 19, kKeep, kZeros, kNoNul, "Violin Ensemble12C4"},
    {"Violin Ensemble 12 C4", 12, kKeep, kZeros, kNoNul, "Violin E12C4"},
    {"Violin12 C4", 20, kKeep, kZeros, kNoNul, "Violin12 C4"},
    // number behind the note
    {"Piano C3 007", 8, kKeep, kZeros, kNoNul, "PiaC3007"},
    {"Piano C3 007 R", 20, kKeep, kZeros, kNoNul, "Piano C3 007 -R"},
    // what counts as a number
    {"Kick  7", 8, kKeep, kZeros, kNoNul, "Kick 7"},
    {"Kick 101", 6, kKeep, kZeros, kNoNul, "Kic101"},
    {"Kick1234", 6, kKeep, kZeros, kNoNul, "Kick12"},
    {"Kick 101", 6, kDrop, kZeros, kNoNul, "Kic101"},
    {"Kick 1 2", 5, kKeep, kZeros, kNoNul, "Kick2"},
    {"K 1", 2, kKeep, kZeros, kNoNul, "K "},
    // what counts as a note
    {"Tuba C-1", 6, kKeep, kZeros, kNoNul, "TubC-1"},
    {"Tuba H3", 4, kKeep, kZeros, kNoNul, "TuH3"},
    {"Pad A3", 5, kKeep, kZeros, kNoNul, "Pad 3"},
    {"Tuba C-1", 6, kDrop, kZeros, kNoNul, "Tuba 1"},
    {"Pad C100", 6, kKeep, kZeros, kNoNul, "Pad100"},
    {"Horn Bb3", 20, kKeep, kZeros, kNoNul, "Horn B b3"},
    {"Tuba f#2 3", 6, kKeep, kZeros, kNoNul, "Tuf#23"},
    {"Pad C+3 12", 7, kKeep, kZeros, kNoNul, "PaC+312"},
    {"C#-1 12", 12, kKeep, kZeros, kNoNul, "C#-1 12"},
    // what counts as a channel
    {"Pad   r", 5, kKeep, kZeros, kNoNul, "Pad-r"},
    {"PadL", 3, kKeep, kZeros, kNoNul, "Pad"},
    {"-L", 8, kKeep, kBlanks, kNoNul, "-L      "},
    {"x-R", 8, kKeep, kBlanks, kNoNul, "x     -R"},
    // plain
    {"Piano   ", 8, kKeep, kZeros, kNul, "Piano"},
    {"Piano", 5, kDrop, kZeros, kNul, "Pian"},
    {"Kick", 8, kDrop, kBlanks, kNul, "Kick   "},
    {"", 4, kKeep, kBlanks, kNul, "   "},
    {"    ", 4, kKeep, kZeros, kNoNul, ""},
    {"Piano", 1, kKeep, kBlanks, kNul, ""},
    {"Piano", 0, kKeep, kBlanks, kNul, ""},
};

/// Fits into a field of its own allocation; the part behind the result must be zero.
template <class Char>
std::basic_string<Char> Fitted(const Case& c, std::basic_string_view<Char> name)
{
    std::vector<Char> field(c.room, Char{'#'});
    const std::size_t length = FitName(std::span<Char>(field), name, c.keepTags, c.pad, c.end);
    EXPECT_LE(length, c.room);
    EXPECT_TRUE(c.end == EndName::No || c.room == 0 || length < c.room);
    for (std::size_t i = length; i < c.room; ++i)
        EXPECT_EQ(field[i], Char{});
    return {field.data(), std::min(length, c.room)};
}

TEST(FitName, ShortensTheStemAndKeepsTheTags)
{
    for (const Case& c : kCases) {
        SCOPED_TRACE(testing::Message() << '"' << c.name << "\" into " << c.room);
        EXPECT_EQ(Fitted(c, c.name), c.expected);
        const std::u16string wide(c.name.begin(), c.name.end());
        EXPECT_EQ(Fitted(c, std::u16string_view(wide)), std::u16string(c.expected.begin(), c.expected.end()));
    }
}

TEST(FitName, WideCharactersAreNotTakenForTags)
{
    // The low bytes of these units are "L", "1" and "C".
    const std::u16string name = u"Pad -\u014C \u0131 \u01433";
    const Case c{"", 20, kKeep, kZeros, kNoNul, ""};
    EXPECT_EQ(Fitted(c, std::u16string_view(name)), name);
}

} // namespace
} // namespace vimbo
