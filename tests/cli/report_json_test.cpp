#include "cli/report_json.h"

#include <gtest/gtest.h>

#include <limits>

namespace vimbo::cli {
namespace {

Marker MakeMarker(std::u16string name, std::uint32_t position, std::uint32_t end)
{
    Marker marker;
    marker.isRange = end != 0;
    marker.name = std::move(name);
    marker.position = position;
    marker.end = end;
    return marker;
}

TEST(ReportJson, DescribesEveryPropertyOfAWaveform)
{
    Collection collection;
    collection.formatRow = 480;
    collection.SetText(kTextCopyright, u"\u00A9 1999");
    auto& wave = collection.Create<Waveform>(u"Caf\u00E9");
    wave.frames = 1000;
    wave.rootKey = 61;
    wave.fineTune = -7;
    wave.volume = -3.1f;
    wave.loop = {LoopType::Reverse, true, false, 10.254, 999.999, 0.1f};
    wave.markers = {MakeMarker(u"point", 5, 0), MakeMarker(u"\xD800", 6, 9)}; // half a surrogate pair
    wave.SetSourceFormat(DataFormat::MuLaw, 0);
    wave.SetText(kTextArtist, u"A. Player");
    constexpr std::byte kGif[] = {std::byte{'G'}, std::byte{'I'}, std::byte{'F'}, std::byte{'8'},
                                  std::byte{'9'}, std::byte{'a'}, std::byte{1},   std::byte{0}};
    wave.SetImage(kGif);

    const Json file = Json::parse(ToText(DescribeFileJson("x\xFF.wav", collection, 66)));
    EXPECT_EQ(file["file"], "x\uFFFD.wav");
    EXPECT_EQ(file["format"]["confidence"], 66);
    EXPECT_EQ(file["texts"], (Json{{"copyright", "\u00A9 1999"}}));
    const Json expected = {
        {"name", "Caf\u00E9"},
        {"frames", 1000},
        {"rate", 22050},
        {"channels", 1},
        {"bits", 8},
        {"dataFormat", "Mu-law 8-bit"},
        {"rootKey", 61},
        {"fineTune", -7},
        {"volume", -3.1},
        {"loop",
         {{"type", "reverse"}, {"start", 10.25}, {"end", 1000}, {"release", "break"}, {"pitch", 0.1}}},
        {"markers",
         {{{"name", "point"}, {"position", 5}, {"end", nullptr}},
          {{"name", "\uFFFD"}, {"position", 6}, {"end", 9}}}},
        {"texts", {{"artist", "A. Player"}, {"image", {{"type", "image/gif"}, {"bytes", 8}}}}}};
    EXPECT_EQ(file["waveforms"], Json::array({expected})) << file["waveforms"].dump(1);
}

TEST(ReportJson, StaysValidForNumbersThatJsonLacks)
{
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"w");
    wave.volume = std::numeric_limits<float>::infinity();
    wave.loop.start = std::numeric_limits<double>::quiet_NaN();
    wave.loop.end = 1e300;
    const Json file = Json::parse(ToText(DescribeFileJson("w", collection, 0)));
    EXPECT_TRUE(file["waveforms"][0]["volume"].is_null());
    EXPECT_TRUE(file["waveforms"][0]["loop"]["start"].is_null());
    EXPECT_EQ(file["waveforms"][0]["loop"]["end"], 1e300);
}

} // namespace
} // namespace vimbo::cli
