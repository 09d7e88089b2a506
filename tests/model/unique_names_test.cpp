#include "model_builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace vimbo {
namespace {

struct NameCase {
    std::vector<std::u16string> before, after;
};

const std::vector<NameCase>& NameCases()
{
    static const std::vector<NameCase> kCases{
        {{u"Piano", u"Bass"}, {u"Piano", u"Bass"}},
        {{u"Piano", u"PIANO", u"piano"}, {u"Piano 1", u"PIANO 2", u"piano"}},
        {{u"C#3", u"C#3"}, {u"C#3 1", u"C#3"}},
        {{u"Pad C3", u"Pad C3", u"Pad C3"}, {u"Pad C3 1", u"Pad C3 2", u"Pad C3"}},
        {{u"Pad c3", u"Pad c3"}, {u"Pad c4", u"Pad c3"}},
        {{u"Pad H3", u"Pad H3"}, {u"Pad H4", u"Pad H3"}},
        {{u"Kick 09", u"Kick 09"}, {u"Kick 10", u"Kick 09"}},
        {{u"Kick 9", u"Kick 9", u"Kick 10"}, {u"Kick 11", u"Kick 9", u"Kick 10"}},
        {{u"7", u"7"}, {u"8", u"7"}},
        {{u"F09", u"F09", u"F10"}, {u"F11", u"F09", u"F10"}},
        {{u"B08", u"B08", u"B9"}, {u"B9 1", u"B08", u"B9"}}, // "B9" reads as a note name
        {{u"x999999999999999999", u"x999999999999999999"}, {u"x1000000000000000000", u"x999999999999999999"}},
        {{u"x9999999999999999999", u"x9999999999999999999"},
         {u"x9999999999999999999 1", u"x9999999999999999999"}},
        // Letters outside the 8-bit set all read as question marks, accents count, their case does not.
        {{u"\u6728", u"\u706B"}, {u"\u6728 1", u"\u706B"}},
        {{u"\u00C9t\u00E9", u"\u00E9T\u00C9", u"ete"}, {u"\u00C9t\u00E9 1", u"\u00E9T\u00C9", u"ete"}},
        {{u"a 1", u"a", u"a", u"a 1", u"a 2"}, {u"a 3", u"a 4", u"a", u"a 1", u"a 2"}},
    };
    return kCases;
}

TEST(UniqueNames, FollowTheRule)
{
    for (const NameCase& c : NameCases()) {
        Collection items;
        for (const std::u16string& name : c.before)
            items.Create<Waveform>(name);
        items.Create<Song>(c.before[0]); // other kinds do not count
        bool changed = false;
        for (Waveform& wave : items.All<Waveform>())
            changed |= wave.EnsureUniqueName();
        EXPECT_EQ(Names<Waveform>(items), c.after) << WideToUtf8(c.before[0]);
        EXPECT_EQ(changed, c.before != c.after);
    }
}

/// Names that clash in many ways: few stems, numbers, note names, cases and letters outside the 8-bit set.
std::vector<std::u16string> ClashingNames(std::uint32_t seed, std::size_t count)
{
    static const std::u16string kStems[] = {u"a",      u"A", u"a ",     u"C#", u"C", u"c",
                                            u"\u03A9", u"O", u"\u6728", u"?",  u""};
    std::mt19937 random(seed);
    std::vector<std::u16string> names;
    while (names.size() < count) {
        std::u16string name = kStems[random() % std::size(kStems)];
        if (random() % 4 != 0) {
            const std::string digits = std::to_string(random() % 13);
            name.append(random() % 5 == 0 ? u"0" : u"").append(digits.begin(), digits.end());
        }
        names.push_back(name.empty() ? u"x" : name);
    }
    return names;
}

/// The rule, word by word: number after number until a name is free.
std::vector<std::u16string> PlainlyUnique(std::vector<std::u16string> names)
{
    const auto key = [](std::u16string_view name) {
        std::u16string folded = NarrowToWide(WideToNarrow(name));
        std::ranges::transform(folded, folded.begin(), FoldCase);
        return folded;
    };
    const auto next = [](std::u16string name) {
        std::string digits;
        while (!name.empty() && name.back() >= u'0' && name.back() <= u'9') {
            digits.insert(digits.begin(), static_cast<char>(name.back()));
            name.pop_back();
        }
        const bool isNote = digits.size() == 1 && !name.empty() &&
                            std::u16string_view(u"#ABCDEFG").find(name.back()) != std::u16string_view::npos;
        if (isNote || digits.size() > 18) {
            name.append(digits.begin(), digits.end());
            digits.clear();
        }
        if (digits.empty())
            name += u' ';
        const std::string number = std::to_string(digits.empty() ? 1 : std::stoull(digits) + 1);
        return name.append(number.begin(), number.end());
    };
    for (std::u16string& name : names) {
        const auto isTaken = [&](const std::u16string& wanted) {
            return std::ranges::any_of(names, [&](const std::u16string& other) {
                return &other != &name && key(other) == key(wanted);
            });
        };
        std::u16string wanted = name;
        while (isTaken(wanted))
            wanted = next(wanted);
        name = wanted;
    }
    return names;
}

TEST(UniqueNames, AllAtOnceGivesTheSameAsOneByOne)
{
    std::vector<std::vector<std::u16string>> lists;
    for (const NameCase& c : NameCases())
        lists.push_back(c.before);
    for (std::uint32_t seed = 0; seed < 200; ++seed)
        lists.push_back(ClashingNames(seed, 60));
    for (const std::vector<std::u16string>& names : lists) {
        Collection oneByOne, allAtOnce;
        bool changed = false;
        for (const std::u16string& name : names) {
            oneByOne.Create<Layer>(name);
            allAtOnce.Create<Layer>(name);
        }
        for (Layer& layer : oneByOne.All<Layer>())
            changed |= layer.EnsureUniqueName();
        EXPECT_EQ(allAtOnce.MakeNamesUnique(ItemKind::Layer), changed);
        ASSERT_EQ(Names<Layer>(allAtOnce), Names<Layer>(oneByOne));
        ASSERT_EQ(Names<Layer>(allAtOnce), PlainlyUnique(names));
        EXPECT_FALSE(allAtOnce.MakeNamesUnique(ItemKind::Layer));
    }
}

TEST(UniqueNames, ManyTwinsAreQuick)
{
    // Pairs of numbered names make every search start at another place of one long run.
    Collection items;
    for (int i = 0; i < 20000; ++i)
        items.Create<Waveform>(u"wave");
    for (int i = 0; i < 20000; ++i) {
        const std::string digits = std::to_string(i / 2);
        items.Create<Waveform>(u"run " + std::u16string(digits.begin(), digits.end()));
    }
    EXPECT_TRUE(items.MakeNamesUnique(ItemKind::Waveform));
    const std::vector<std::u16string> names = Names<Waveform>(items);
    EXPECT_EQ(names[0], u"wave 1");
    EXPECT_EQ(names[19998], u"wave 19999");
    EXPECT_EQ(names[19999], u"wave");
    EXPECT_EQ(names[20000], u"run 10000");
    EXPECT_EQ(std::set(names.begin(), names.end()).size(), names.size());
}

} // namespace
} // namespace vimbo
