#include "cli/report_json.h"

#include "model/envelope.h"
#include "model/instrument.h"
#include "model/song.h"

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

TEST(ReportJson, DescribesInstrumentsWithWhatIsSetAtEachLevel)
{
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"w");
    wave.frames = 100;
    wave.rootKey = 48;
    auto& kit = collection.Create<Instrument>(u"Kit");
    kit.location.SetDrum(true);
    kit.location.SetBankLsb(3);
    kit.location.SetProgram(5);
    kit.channelFx[1].type = ChannelFxType::Reverb;
    kit.articulation.Set(kArtBendToPitch, 12);
    Layer& layer = kit.AddLayer();
    Region& region = layer.AddRegion(wave.Handle(), {36, 40}, {1, 100}, 50);
    region.articulation.Set(kArtFilterType, 2);
    region.articulation.Set(kArtPan, -0.5f);
    region.articulation.Set(kArtSend + 2 * kSendParams, 0.25f);
    region.articulation.Set(kArtSend + 3 * kSendParams, 0.5f);
    region.articulation.Set(EnvelopeBase(EnvelopeIndex::Volume) + kEnvSustain, 0.75f);
    region.trigger.Set(kParamTriggerType, 1);
    region.overrideFlags |= Region::kLoopEnd;
    region.loop.end = 90;
    region.startOffset = 7;

    const Json file = Json::parse(ToText(DescribeFileJson("k", collection, 0)));
    const Json expected = {{"lowKey", 36},
                           {"highKey", 40},
                           {"lowVelocity", 1},
                           {"highVelocity", 100},
                           {"rootKey", 50},
                           {"waveform", "w"},
                           {"loop", {{"end", 90}}},
                           {"startOffset", 7},
                           {"endOffset", 0},
                           {"trigger", {{"Trigger type", {{"value", 1}, {"text", "Key Release"}}}}},
                           {"parameters",
                            {{"Filter type", {{"value", 2}, {"text", "Low-Pass 12 dB/oct"}}},
                             {"Pan position", {{"value", -50}, {"unit", "%"}}},
                             {"Send channel 3 level", {{"value", 25}, {"unit", "%"}}},
                             {"Send channel 3 level #63", {{"value", 50}, {"unit", "%"}}},
                             {"V-ENV Sustain", {{"value", -24}, {"unit", "dB"}}}}}};
    const Json& instrument = file["instruments"][0];
    EXPECT_EQ(instrument["layers"][0]["regions"], Json::array({expected}))
        << instrument["layers"][0]["regions"].dump(1);
    EXPECT_EQ(instrument["parameters"], (Json{{"Pitch bender to Pitch", {{"value", 12}, {"unit", "st"}}}}));
    EXPECT_TRUE(instrument["layers"][0]["parameters"].empty());
    EXPECT_EQ(instrument["bankLsb"], 3);
    EXPECT_EQ(instrument["program"], 5);
    EXPECT_EQ(instrument["drum"], true);
    EXPECT_EQ(instrument["effects"][0]["slot"], 2);
    EXPECT_EQ(instrument["effects"][0]["type"], "reverb");
}

TEST(ReportJson, DescribesSongs)
{
    Collection collection;
    auto& song = collection.Create<Song>(u"s");
    song.division = 480;
    for (const std::uint8_t channel : {std::uint8_t{3}, Track::kNoChannelYet}) {
        auto& track = collection.Create<Track>(u"t");
        song.AddChild(track.Handle());
        track.SetParent(song.Handle());
        track.channel = channel;
        constexpr unsigned char kBlock[] = {0x00, 0xFF, 0x51, 3,  0x0F, 0x42, 0x40, // 60 beats per minute
                                            0x83, 0x60, 0x90, 60, 1,    0,    0xFF,
                                            0x2F, 0}; // 480 ticks later
        track.SetData(std::as_bytes(std::span(kBlock)));
    }
    const Json file = Json::parse(ToText(DescribeFileJson("s", collection, 0)));
    const Json expected = {{"name", "s"},
                           {"format", 1},
                           {"division", 480},
                           {"seconds", 1},
                           {"tempo", 60},
                           {"texts", Json::object()},
                           {"tracks",
                            {{{"name", "t"}, {"channel", 3}, {"port", 0}, {"events", 3}},
                             {{"name", "t"}, {"channel", nullptr}, {"port", 0}, {"events", 3}}}}};
    EXPECT_EQ(file["songs"], Json::array({expected})) << file["songs"].dump(1);
}

} // namespace
} // namespace vimbo::cli
