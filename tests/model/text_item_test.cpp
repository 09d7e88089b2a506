#include "model/text_item.h"

#include "base/text.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/waveform.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

using namespace std::string_view_literals;

TEST(TextItem, SetTextCutsBlanksAndControls)
{
    struct Case {
        std::uint16_t id;
        std::u16string_view text;
        std::u16string_view expected;
    };
    const Case cases[] = {
        {kTextName, u"  \t Piano \r\n", u"Piano"},
        {kTextName, u"Pi\tano\nForte", u"Pi ano Forte"},
        {kTextName, u"A\x7F\x85z\x9F", u"A  z"}, // delete and the controls above it; none is left at the end
        {kTextName, u"Piano\0Forte"sv, u"Piano"},
        {kTextName, u"Piano  \0Forte"sv, u"Piano"},
        {kTextName, u"\0Piano"sv, u"Piano"}, // a leading NUL counts as a blank
        {kTextComments, u" one\n\ttwo \n", u"one\n\ttwo"},
        {kTextComments, u" \x1F ", u""},
        {kTextSourcePath, u"C:\\a b\\c.wav", u"C:\\a b\\c.wav"},
        {kTextArtist, u"J\u00FCrgen\u00A0", u"J\u00FCrgen\u00A0"},
    };
    Collection items;
    Song& song = items.Create<Song>(u"x");
    for (const Case& c : cases) {
        song.SetText(c.id, c.text);
        EXPECT_EQ(song.GetText(c.id), c.expected) << WideToUtf8(c.expected);
        EXPECT_EQ(song.HasText(c.id), !c.expected.empty());
    }
    song.SetText(kTextImage, u"not a text");
    song.SetText(208, u"neither");
    EXPECT_FALSE(song.HasText(kTextImage));
    EXPECT_EQ(song.GetText(208), u"");
    EXPECT_EQ(song.GetTextNarrow(217), "");
}

TEST(TextItem, CopiesFollowTheText)
{
    Collection items;
    Song& song = items.Create<Song>(u"x");
    song.SetText(kTextArtist, u"M\u00FCller \u20AC \U0001F3B5");
    EXPECT_EQ(song.GetTextNarrow(kTextArtist), "M\xFCller E ?");
    EXPECT_EQ(song.GetTextUtf8(kTextArtist), "M\xC3\xBCller \xE2\x82\xAC \xF0\x9F\x8E\xB5");
    song.SetTextUtf8(kTextArtist, " \xC3\xA9t\xC3\xA9 ");
    EXPECT_EQ(song.GetTextNarrow(kTextArtist), "\xE9t\xE9");
    EXPECT_EQ(song.GetTextUtf8(kTextArtist), "\xC3\xA9t\xC3\xA9");
    song.SetTextNarrow(kTextArtist, "\x80uro");
    EXPECT_EQ(song.GetText(kTextArtist), u"\u20ACuro");
    song.SetNameNarrow("na\xEFve");
    EXPECT_EQ(song.GetName(), u"na\u00EFve");
    song.SetText(kTextName, song.GetName().substr(2)); // a part of its own text
    EXPECT_EQ(song.GetName(), u"\u00EFve");
}

TEST(TextItem, DefaultNamesNumberWaveformsAndInstruments)
{
    Collection items;
    items.SetName(u"Bank");
    Waveform& first = items.Create<Waveform>(u"");
    EXPECT_EQ(first.GetName(), u"Bank");
    EXPECT_EQ(items.Create<Waveform>(u"").GetName(), u"Bank 0");
    EXPECT_EQ(items.Create<Waveform>(u" \t ").GetName(), u"Bank 1");
    first.SetText(kTextName, u"   ");
    EXPECT_EQ(first.GetName(), u"Bank 2");

    EXPECT_EQ(items.Create<Instrument>(u"").GetName(), u"Bank");
    const std::pair<unsigned, std::u16string_view> ordinals[] = {
        {0, u"Bank: 0th instrument"},     {1, u"Bank: 1st instrument"},    {2, u"Bank: 2nd instrument"},
        {3, u"Bank: 3rd instrument"},     {4, u"Bank: 4th instrument"},    {11, u"Bank: 11th instrument"},
        {12, u"Bank: 12th instrument"},   {13, u"Bank: 13th instrument"},  {21, u"Bank: 21st instrument"},
        {22, u"Bank: 22nd instrument"},   {23, u"Bank: 23rd instrument"},  {111, u"Bank: 111th instrument"},
        {113, u"Bank: 113th instrument"}, {121, u"Bank: 121st instrument"}};
    std::vector<std::u16string> names;
    for (int i = 0; i < 122; ++i)
        names.emplace_back(items.Create<Instrument>(u"").GetName());
    for (const auto& [number, name] : ordinals)
        EXPECT_EQ(names[number], name);

    EXPECT_EQ(items.Create<Song>(u"").GetName(), u"song");
    EXPECT_EQ(items.Create<Layer>(u"").GetName(), u"unnamed");
    items.SetName(u"");
    EXPECT_EQ(items.GetName(), u"collection");
}

TEST(TextItem, DefaultNameCountersBelongToTheCollection)
{
    Collection busy, quiet;
    busy.SetName(u"b");
    quiet.SetName(u"q");
    for (int i = 0; i < 5; ++i)
        busy.Create<Waveform>(u"");
    quiet.Create<Waveform>(u"w");
    EXPECT_EQ(quiet.Create<Waveform>(u"").GetName(), u"q 0");
    // A lone item takes no number and starts the count anew; so does an emptied collection.
    for (const Waveform* wave : busy.List<Waveform>())
        busy.Destroy(wave->Handle());
    EXPECT_EQ(busy.Create<Waveform>(u"").GetName(), u"b");
    EXPECT_EQ(busy.Create<Waveform>(u"").GetName(), u"b 0");
    busy.Clear();
    busy.SetName(u"c");
    busy.Create<Waveform>(u"named");
    EXPECT_EQ(busy.Create<Waveform>(u"").GetName(), u"c 0");
}

TEST(Image, TypeIsToldByContent)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\xFF\xD8\xFF\xE0\0\x10JF"sv, "image/jpeg"},
        {"\x89PNG\r\n\x1A\n", "image/png"},
        {"\x89PNG\r\n\x1A\r", ""},
        {"GIF89a\x01\0"sv, "image/gif"},
        {"GIF87a\x01\0"sv, "image/gif"},
        {"\nGIF89a\x01", "image/gif"},
        {"\xFF\xD8\xFF\xE0\0\x10J"sv, ""}, // seven bytes
        {"BM......", ""},
        {"", ""},
    };
    for (const auto& [bytes, type] : cases)
        EXPECT_EQ(ImageMimeType(std::as_bytes(std::span(bytes))), type);
    EXPECT_TRUE(IsImageExtension(u"JPG") && IsImageExtension(u".jpeg") && IsImageExtension(u"png") &&
                IsImageExtension(u".Gif"));
    EXPECT_FALSE(IsImageExtension(u"") || IsImageExtension(u".") || IsImageExtension(u"bmp") ||
                 IsImageExtension(u"jpgx"));
}

TEST(LabelItem, ReplacesItsName)
{
    Collection items;
    Layer& layer = items.Create<Layer>(u" Soft\n");
    EXPECT_EQ(layer.GetName(), u" Soft\n");
    layer.SetName(u"Loud\0er"sv);
    EXPECT_EQ(layer.GetName(), u"Loud");
    layer.SetNameNarrow("\xE9");
    EXPECT_EQ(layer.GetName(), u"\u00E9");
    layer.SetName(u"");
    EXPECT_EQ(layer.GetName(), u"unnamed");
}

} // namespace
} // namespace vimbo
