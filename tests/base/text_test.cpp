#include "base/text.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace vimbo {
namespace {

TEST(Windows1252, KnownCharactersBothWays)
{
    const std::string bytes = "\x80\x81\x83\x85\x8A\x91\x94\x96\x99\x9F\xA0\xE9\xFF";
    const std::u16string wide =
        u"\u20AC\u0081\u0192\u2026\u0160\u2018\u201D\u2013\u2122\u0178\u00A0\u00E9\u00FF";
    EXPECT_EQ(NarrowToWide(bytes), wide);
    EXPECT_EQ(WideToNarrow(wide), "E\x81\x83.S'\"\x96\x99Y\xA0\xE9\xFF");
}

TEST(Windows1252, EveryByteReturnsExceptTheSimplifiedOnes)
{
    const std::map<int, char> simplified = {
        {0x80, 'E'}, {0x82, '\''}, {0x84, '"'},  {0x85, '.'},  {0x88, '^'}, {0x8A, 'S'}, {0x8B, '<'},
        {0x8C, 'O'}, {0x8E, 'Z'},  {0x91, '\''}, {0x92, '\''}, {0x93, '"'}, {0x94, '"'}, {0x95, '*'},
        {0x9A, 's'}, {0x9B, '>'},  {0x9C, 'o'},  {0x9E, 'z'},  {0x9F, 'Y'}};
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const auto found = simplified.find(byte);
        const char expected = found == simplified.end() ? c : found->second;
        EXPECT_EQ(WideToNarrow(NarrowToWide({&c, 1})), std::string(1, expected)) << byte;
    }
}

TEST(WideToNarrow, LookAlikes)
{
    EXPECT_EQ(WideToNarrow(u"Dvo\u0159\u00E1k \u0141\u00F3d\u017A \u0130\u0131"), "Dvor\xE1k L\xF3"
                                                                                  "dz Ii");
    EXPECT_EQ(WideToNarrow(u"\u0395\u03BB\u03BB\u03AC\u03B4\u03B1"), "Ellada");
    EXPECT_EQ(WideToNarrow(u"\u041C\u043E\u0441\u043A\u0432\u0430 \u0451"), "Mockba e");
    EXPECT_EQ(WideToNarrow(u"\u201B\u036F\u0180\u0467\u0468\uFFFD"), "???a??");
    EXPECT_EQ(WideToNarrow(u"a\U0001F3B9b\xD83C\xDFB9\xDFB9\xD83C"), "a?b???") << "a pair is one character";
}

// A shifted row in the tables would break the pairing of capitals and small letters.
TEST(WideToNarrow, CapitalAndSmallLetterLookAlike)
{
    const auto check = [](char16_t first, char16_t last) {
        int pairs = 0;
        for (char16_t c = first; c <= last; ++c) {
            const char16_t folded = FoldCase(c);
            const char capital = WideToNarrow({&c, 1})[0];
            const char small = WideToNarrow({&folded, 1})[0];
            EXPECT_LT(static_cast<unsigned char>(capital), 0x80) << int{c};
            if (folded == c || folded < 0x100)
                continue;
            EXPECT_EQ(capital | 0x20, small) << int{c};
            ++pairs;
        }
        return pairs;
    };
    EXPECT_EQ(check(0x100, 0x17F), 61);
    EXPECT_EQ(check(0x400, 0x45F), 48);
}

TEST(NarrowAndWide, StopAtNulAndAtTheLimit)
{
    EXPECT_EQ(NarrowToWide(std::string_view("ab\0cd", 5)), u"ab");
    EXPECT_EQ(WideToNarrow(std::u16string_view(u"ab\0cd", 5)), "ab");
    EXPECT_EQ(NarrowToWide(std::string(0x100000 + 5, 'x')).size(), 0x100000u);
}

// Every place of the first odd character around the block size of the fast path.
TEST(NarrowAndWide, MixedTextOfEveryLength)
{
    for (std::size_t length = 0; length < 40; ++length)
        for (std::size_t at = 0; at < length; ++at) {
            std::string bytes(length, 'n');
            std::u16string wide(length, u'n');
            bytes[at] = '\xF6';
            wide[at] = u'\u00F6';
            ASSERT_EQ(NarrowToWide(bytes), wide);
            ASSERT_EQ(WideToNarrow(wide), bytes);
            std::string utf8 = bytes;
            utf8.replace(at, 1, "\xC3\xB6");
            ASSERT_EQ(Utf8ToWide(utf8), wide);
            ASSERT_EQ(WideToUtf8(wide), utf8);
        }
}

TEST(NarrowAndWide, FixedFields)
{
    for (std::size_t room = 0; room < 8; ++room) {
        std::vector<char16_t> wide(room, u'#');
        EXPECT_EQ(NarrowToWide(wide, "abc\x80"), room >= 5) << room;
        std::vector<char> narrow(room, '#');
        EXPECT_EQ(WideToNarrow(narrow, u"abc\U0001F3B9"), room >= 5) << room;
        if (room == 0)
            continue;
        const std::size_t kept = std::min<std::size_t>(room - 1, 4);
        EXPECT_EQ(std::u16string(wide.data()), std::u16string(u"abc\u20AC").substr(0, kept));
        EXPECT_EQ(std::string(narrow.data()), std::string("abc?").substr(0, kept));
    }
}

TEST(Utf8, MalformedSequencesBecomeReplacements)
{
    struct Case {
        std::string_view bytes;
        std::u16string_view wide;
    };
    const Case cases[] = {
        {"\xF0\x9F\x8E\xB9\xE2\x82\xAC\xC3\xA9z", u"\U0001F3B9\u20AC\u00E9z"},
        {"a\x80z", u"a\uFFFDz"},
        {"\xE2\x82", u"\uFFFD"},
        {"\xE2\x82z", u"\uFFFDz"},
        {"\xE2(\xA1", u"\uFFFD(\uFFFD"},
        {"\xC0\xAFz", u"\uFFFDz"},
        {"\xED\xA0\x80z", u"\uFFFDz"},
        {"\xF4\x90\x80\x80z", u"\uFFFDz"},
        {"\xF8\x80z", u"\uFFFD\uFFFDz"},
        {"\xFF\xFE", u"\uFFFD\uFFFD"},
        {"\xF0\xC3\xA9", u"\uFFFD\u00E9"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Utf8ToWide(c.bytes), c.wide) << testing::PrintToString(c.bytes);
    EXPECT_EQ(WideToUtf8(u"\xD83Cx\xDFB9\xD83C"), "\xEF\xBF\xBDx\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(WideToUtf8(std::u16string_view(u"\xD83C\xDFB9", 1)), "\xEF\xBF\xBD") << "cut within a pair";
    EXPECT_EQ(WideToUtf8(u"\U0001F3B9\uFFFF"), "\xF0\x9F\x8E\xB9\xEF\xBF\xBF");
}

TEST(Paths, AnyBytesSurvive)
{
    EXPECT_EQ(PathToWide("\xC3\xA9\xE9/\xF0\x9F\x8E\xB9"), u"\u00E9\xDCE9/\U0001F3B9");
    EXPECT_EQ(WideToPath(u"\u00E9\xDCE9\xDC7F\xD800"), "\xC3\xA9\xE9\xEF\xBF\xBD\xEF\xBF\xBD");

    const std::string_view pieces[] = {"a",        "\xC3\xA9", "\xE9",         "\xED\xB2\x80", "\xED\xA0\xBC",
                                       "\xF0\x9F", "\x8E\xB9", "\xEF\xBF\xBD", "\x80",         "\xFF/"};
    for (std::string_view a : pieces)
        for (std::string_view b : pieces)
            for (std::string_view c : pieces) {
                const std::string path = std::string(a).append(b).append(c);
                ASSERT_EQ(WideToPath(PathToWide(path)), path) << testing::PrintToString(path);
            }
}

TEST(FoldCase, KnownPairs)
{
    const std::u16string_view capitals =
        u"AZ\u00C0\u00DE\u0100\u0130\u0139\u0147\u014A\u0178\u017D\u0386\u038E\u03A9\u03C2\u0401\u042F\u04C0";
    const std::u16string_view small =
        u"az\u00E0\u00FE\u0101i\u013A\u0148\u014B\u00FF\u017E\u03AC\u03CD\u03C9\u03C3\u0451\u044F\u04CF";
    for (std::size_t i = 0; i < capitals.size(); ++i)
        EXPECT_EQ(FoldCase(capitals[i]), small[i]) << i;
    for (const char16_t same : u"@[`{09\u00D7\u00DF\u00F7\u0131\u0138\u0149\u017F\u03A2\u0482\u4E00\xDC41")
        EXPECT_EQ(FoldCase(same), same);
    for (unsigned c = 0; c <= 0xFFFF; ++c) {
        const auto once = FoldCase(static_cast<char16_t>(c));
        ASSERT_EQ(FoldCase(once), once) << c;
    }
}

TEST(CompareNoCase, OrdersLikeStrings)
{
    EXPECT_EQ(CompareNoCase(u"KLAVI\u00C4R \u0416", u"klavi\u00E4r \u0436"), 0);
    EXPECT_LT(CompareNoCase(u"abc", u"ABCD"), 0);
    EXPECT_GT(CompareNoCase(u"abd", u"ABCD"), 0);
    EXPECT_LT(CompareNoCase(u"", u"a"), 0);
    EXPECT_LT(CompareNoCase(u"_", u"A"), 0) << "letters compare in their small form";
}

} // namespace
} // namespace vimbo
