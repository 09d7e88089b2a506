#include "model/fix_up.h"

#include "model_builders.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

TEST(FixUp, PrunesOnlyWhatTheMaskNames)
{
    const auto build = [](Collection& items) {
        Waveform& good = items.Create<Waveform>(u"good");
        good.frames = 10;
        Waveform& bad = items.Create<Waveform>(u"three channels");
        bad.frames = 10;
        bad.channels = 3;
        items.Create<Waveform>(u"no frames");
        AddInstrument(items, 1, 1, good);
        AddInstrument(items, 1, 1, bad);
        AddInstrument(items, 1, 1, good).Child(0)->Child(0)->SetChild(0, NO_ITEM);
        Song& song = items.Create<Song>(u"s");
        AddTrack(song, {0, 0xFF, 0x2F, 0});
        AddTrack(song, {});
        AddTrack(items.Create<Song>(u"empty"), {});
    };
    struct Case {
        std::uint8_t mask;
        std::size_t waveforms, regions, layers, instruments, tracks, songs;
    };
    const Case cases[] = {
        {0, 3, 3, 3, 3, 3, 2},     {1, 1, 3, 3, 3, 3, 2},      {4, 3, 2, 3, 3, 3, 2},
        {1 | 4, 1, 1, 3, 3, 3, 2}, {8 | 16, 3, 3, 3, 3, 3, 2}, {1 | 4 | 8, 1, 1, 1, 3, 3, 2},
        {32, 3, 3, 3, 3, 1, 2},    {64, 3, 3, 3, 3, 3, 2},     {kPruneAll, 1, 1, 1, 1, 1, 1},
    };
    for (const Case& c : cases) {
        Collection items;
        build(items);
        for (int pass = 0; pass < 2; ++pass) { // a second pass finds nothing to do
            FixUpItems(items, c.mask, AfterLoad::No);
            SCOPED_TRACE(static_cast<int>(c.mask));
            EXPECT_EQ(items.CountOf(ItemKind::Waveform), c.waveforms);
            EXPECT_EQ(items.CountOf(ItemKind::Region), c.regions);
            EXPECT_EQ(items.CountOf(ItemKind::Layer), c.layers);
            EXPECT_EQ(items.CountOf(ItemKind::Instrument), c.instruments);
            EXPECT_EQ(items.CountOf(ItemKind::Track), c.tracks);
            EXPECT_EQ(items.CountOf(ItemKind::Song), c.songs);
            if ((c.mask & 1) == 0)
                ExpectConsistent(items);
        }
    }
}

TEST(FixUp, SynthesisModelsGoWithTheirLastWaveform)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Region& plain = items.Create<Region>(u"");
    plain.SetSound(items.Create<SynthModel>(u"needs none").Handle());
    Region& sampled = items.Create<Region>(u"");
    SynthModel& model = items.Create<SynthModel>(u"needs one");
    sampled.SetSound(model.Handle());
    model.AddChild(wave.Handle());
    FixUpItems(items, PruneBit(ItemKind::SynthModel), AfterLoad::No);
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 2u);
    FixUpItems(items, PruneBit(ItemKind::Waveform) | PruneBit(ItemKind::SynthModel), AfterLoad::No);
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 1u);
    EXPECT_NE(plain.Synth(), nullptr);
    EXPECT_TRUE(sampled.Children().empty());
    ExpectConsistent(items);
}

TEST(FixUp, SaveFormatsFollowTheSourceAfterALoad)
{
    const std::pair<DataFormat, SaveFormat> cases[] = {
        {DataFormat::Pcm8, SaveFormat::Pcm8},       {DataFormat::Pcm12, SaveFormat::Pcm16},
        {DataFormat::Pcm16, SaveFormat::Pcm16},     {DataFormat::Pcm20, SaveFormat::Pcm24},
        {DataFormat::Pcm24, SaveFormat::Pcm24},     {DataFormat::Pcm32, SaveFormat::Pcm32},
        {DataFormat::Float32, SaveFormat::Float32}, {DataFormat::Float64, SaveFormat::Float32},
        {DataFormat::MuLaw, SaveFormat::MuLaw},     {DataFormat::ALaw, SaveFormat::ALaw},
        {DataFormat::Delta8, SaveFormat::Pcm8},     {DataFormat::Delta16, SaveFormat::Pcm16},
    };
    for (const auto& [source, expected] : cases) {
        Collection items;
        Waveform& wave = items.Create<Waveform>(u"w");
        wave.frames = 1;
        wave.SetSourceFormat(source, 0);
        wave.saveFormat = SaveFormat::Default;
        FixUpItems(items, kPruneAll, AfterLoad::Yes);
        EXPECT_EQ(wave.saveFormat, expected) << static_cast<int>(source);
    }
}

TEST(FixUp, TellsWhatItDoes)
{
    RecordingHost host;
    Collection items;
    items.SetHost(host);
    items.Create<Instrument>(u"a");
    items.Create<Instrument>(u"b");
    FixUpItems(items, 0, AfterLoad::No);
    EXPECT_EQ(host.statuses, (std::vector<std::u16string>{u"Fixing up items...", u""}));
    EXPECT_EQ(host.progress, std::vector<std::u16string>{u""});
    EXPECT_NE(items.List<Instrument>()[0]->location, items.List<Instrument>()[1]->location);
}

} // namespace
} // namespace vimbo
