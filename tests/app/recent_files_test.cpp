#include "app/recent_files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vimbo::app {
namespace {

std::u16string Name(int number)
{
    return u"/music/" + std::u16string(1, static_cast<char16_t>(u'A' + number));
}

TEST(RecentFiles, TheLatestStandsFirstOnce)
{
    Settings settings;
    EXPECT_EQ(GetRecentFile(settings, 0), u"");
    for (int i = 0; i < 40; ++i)
        AddRecentFile(settings, Name(i));
    EXPECT_EQ(GetRecentFile(settings, 0), Name(39));
    EXPECT_EQ(GetRecentFile(settings, 31), Name(8));
    EXPECT_EQ(GetRecentFile(settings, 32), u"") << "32 at most";
    AddRecentFile(settings, Name(20));
    EXPECT_EQ(GetRecentFile(settings, 0), Name(20));
    EXPECT_EQ(GetRecentFile(settings, 1), Name(39));
    EXPECT_EQ(GetRecentFile(settings, 31), Name(8)) << "moved, not added";
    RemoveRecentFile(settings, Name(39));
    EXPECT_EQ(GetRecentFile(settings, 1), Name(38));
    EXPECT_EQ(GetRecentFile(settings, 31), u"");
    settings.ForgetChanges();
    RemoveRecentFile(settings, u"/not/there");
    AddRecentFile(settings, u"");
    AddRecentFile(settings, u"/" + std::u16string(5000, u'x')); // longer than any path
    EXPECT_FALSE(settings.IsChanged(FindSetting("app.LastFilesW")));
}

TEST(RecentFiles, RememberedFilesSetTheFolderOfTheirSide)
{
    Settings settings;
    RememberFile(settings, u"/in/kick.wav", FileRole::Input, AddToRecent::Yes);
    RememberFile(settings, u"/out/kick.sf2", FileRole::Output, AddToRecent::No);
    EXPECT_EQ(settings.Get<std::u16string>("app.LastPathInW"), u"/in");
    EXPECT_EQ(settings.Get<std::u16string>("app.LastPathOutW"), u"/out");
    EXPECT_EQ(GetRecentFile(settings, 0), u"/in/kick.wav");
    EXPECT_EQ(GetRecentFile(settings, 1), u"");
    RememberFile(settings, u"near.wav", FileRole::Input, AddToRecent::Yes);
    const std::u16string here = std::filesystem::current_path().u16string();
    EXPECT_EQ(settings.Get<std::u16string>("app.LastPathInW"), here) << "a later session starts elsewhere";
    EXPECT_EQ(GetRecentFile(settings, 0), here + u"/near.wav");
    EXPECT_EQ(WindowTitle(u"/in/kick.wav"), u"kick.wav - Vimbo Studio");
}

} // namespace
} // namespace vimbo::app
