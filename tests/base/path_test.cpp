#include "base/path.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

TEST(PathText, Parts)
{
    struct Case {
        std::u16string_view path;
        std::size_t name, extension;
        std::u16string_view base, directory;
    };
    const Case cases[] = {
        {u"a/b.wav", 2, 3, u"b", u"a"},
        {u"a.b/c", 4, 5, u"c", u"a.b"},
        {u"C:\\x.y\\kick.wav", 7, 11, u"kick", u""},
        {u"disk:vol.1", 5, 8, u"vol", u""},
        {u"/kick.tar.gz", 1, 9, u"kick.tar", u"/"},
        {u"a..", 0, 2, u"a.", u""},
        {u"//", 2, 2, u"", u"/"},
        {u"a//b", 3, 4, u"b", u"a"},
        {u"a/b/", 4, 4, u"", u"a/b"},
        {u"", 0, 0, u"", u""},
        {u"plain", 0, 5, u"plain", u""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.path));
        EXPECT_EQ(GetFileName(c.path), c.name);
        EXPECT_EQ(GetExtension(c.path), c.extension);
        EXPECT_EQ(BaseName(c.path), c.base);
        EXPECT_EQ(DirectoryOf(c.path), c.directory);
    }
}

TEST(PathText, Join)
{
    EXPECT_EQ(JoinPath(u"a", u"b"), u"a/b");
    EXPECT_EQ(JoinPath(u"a/", u"b"), u"a/b");
    EXPECT_EQ(JoinPath(u"/", u"b"), u"/b");
    EXPECT_EQ(JoinPath(u"", u"b"), u"b");
    EXPECT_EQ(JoinPath(u"a", u"/b"), u"/b");
}

TEST(ComposeAccents, LettersAndMarks)
{
    struct Case {
        std::u16string_view in, out;
        bool changed;
    };
    const Case cases[] = {
        {u"Cafe\u0301.wav", u"Caf\u00E9.wav", true},
        {u"A\u0300E\u0301I\u0308O\u0303U\u0302Y\u0301N\u0303A\u030A",
         u"\u00C0\u00C9\u00CF\u00D5\u00DB\u00DD\u00D1\u00C5", true},
        {u"y\u0308a\u030An\u0303o\u0302i\u0300", u"\u00FF\u00E5\u00F1\u00F4\u00EC", true},
        {u"e\u0302Y\u0308n\u0301c\u0327\u0301", u"eYnc", false}, // no such form here
        {u"\u0301a\u036Fb\u1AB0c\u1DFFd\u20D0e\u2DFFf\uFE2Fg", u"abcdefg", false},
        {u"a\u0301\u0300", u"\u00E1", true}, // the second mark finds no plain letter
        {u"\U0001F3B9\u0301\u00E9\u0301\u02FF\u0370\u2E00", u"\U0001F3B9\u00E9\u02FF\u0370\u2E00", false},
        {u"plain", u"plain", false},
        {u"", u"", false},
    };
    for (const Case& c : cases) {
        std::u16string path(c.in);
        EXPECT_EQ(ComposeAccents(path), c.changed) << testing::PrintToString(c.in);
        EXPECT_EQ(path, c.out);
    }
}

} // namespace
} // namespace vimbo
