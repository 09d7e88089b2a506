// Instruments and pools, refusals.
#include "base/last_error.h"
#include "dls_bank.h"
#include "model/consistency.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vimbo::dls {
namespace {

using testing::ScriptedHost;

TEST(DlsRead, RegionsTakeWhatTheirChunksSay)
{
    BankSpec spec;
    spec.bank = 0x80000000;
    spec.program = 3;
    spec.common = {Fixed(4, 16384000), Fixed(521, 0)};
    spec.regions.resize(3);
    spec.regions[0].ranges = {36, 40, 1, 100};
    spec.regions[0].options = kOptionSelfNonExclusive;
    spec.regions[0].keyGroup = 7;
    spec.regions[0].connections = {Fixed(4, 0)};
    spec.regions[1].ranges = {40, 50, 0, 127}; // overlaps the first
    spec.regions[2].ranges = {60, 55, 0, 200};
    spec.regions[2].layer = 1;
    WsmpHead head{20u, std::uint16_t{62}, std::int16_t{-30}, -655360, 0u, 1u};
    spec.regions[0].sample = {head, {16u, 1u, 2u, 6u}};
    head.unityNote = std::uint16_t{64};
    head.cents = std::int16_t{20};
    head.gain = 0;
    spec.regions[1].sample = {head, {16u, 0u, 3u, 4u}};
    const Opened opened(spec);
    ASSERT_TRUE(opened.isRead);
    const Instrument& drums = *opened.items.List<Instrument>().at(0);
    EXPECT_EQ(drums.GetName(), u"Drums 0-0: 3");
    EXPECT_TRUE(drums.location.IsDrum());
    EXPECT_EQ(drums.location.BankMsb(), 0u);
    EXPECT_EQ(drums.articulation[kArtPan], 0.5f);
    ASSERT_EQ(drums.Layers().size(), 3u);
    const Waveform& wave = *opened.items.List<Waveform>().at(0);
    EXPECT_EQ(wave.GetName(), u"Wave 0");
    EXPECT_EQ(wave.frames, 10u);
    EXPECT_EQ(wave.rootKey, 62) << "from the first region, as it has no record of its own";
    EXPECT_EQ(wave.fineTune, -30);
    const Region &first = opened.At(0), &second = opened.At(1), &third = opened.At(2);
    EXPECT_EQ(first.trigger.keys, (MidiRange{36, 40}));
    EXPECT_EQ(first.trigger.velocities, (MidiRange{1, 100}));
    EXPECT_EQ(first.trigger.exclusionGroup, 7);
    EXPECT_EQ(first.trigger.noteExclusionMode, 1);
    EXPECT_EQ(first.articulation[kArtPan], 0);
    EXPECT_EQ(first.articulation[Env(EnvelopeIndex::Volume, kEnvRelease1Rate)], 1) << "the instrument's";
    EXPECT_EQ(first.articulation[kArtVolume], -1);
    EXPECT_EQ(first.overrideFlags, 0);
    EXPECT_EQ(GetEffectiveLoop(first), (LoopInfo{LoopType::Forward, true, false, 2, 8, 0}));
    EXPECT_EQ(second.EffectiveRootKey(), 64);
    EXPECT_EQ(second.articulation[kArtTuning], 0.5f);
    EXPECT_EQ(second.articulation[kArtPan], 0.5f);
    EXPECT_EQ(GetEffectiveLoop(second), (LoopInfo{LoopType::Forward, false, false, 3, 7, 0}));
    EXPECT_EQ(third.trigger.keys, (MidiRange{55, 60}));
    EXPECT_EQ(GetEffectiveLoop(third).type, LoopType::Forward);
}

TEST(DlsRead, PhaseGroupsMakePairsAndGroups)
{
    BankSpec spec;
    spec.regions.resize(4);
    const auto link = [&](std::size_t index, std::uint16_t options, std::uint32_t channel) {
        spec.regions[index].link = {options, std::uint16_t{1}, channel, 0u};
    };
    link(0, 1, 1);
    link(1, 0, 2);
    link(2, 1, 1);
    spec.regions[2].ranges = {0, 10, 0, 127};
    const Opened opened(spec);
    EXPECT_EQ(opened.At(0).articulation[kArtPan], -1);
    EXPECT_EQ(opened.At(1).articulation[kArtPan], 1);
    EXPECT_EQ(opened.At(0).phaseGroup, 0);
    EXPECT_EQ(opened.At(2).phaseGroup, 1) << "no partner";
    EXPECT_EQ(opened.At(2).phaseMaster, 1);
    EXPECT_EQ(opened.At(3).phaseGroup, 0);
}

TEST(DlsRead, FaultsOfThePoolDropRegionsOrRefuse)
{
    BankSpec good;
    good.regions.resize(2);
    good.regions[1].link.tableIndex = 1u;
    {
        ScriptedHost host;
        const Opened opened(good, &host);
        EXPECT_TRUE(opened.isRead);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
        ASSERT_EQ(host.shown.size(), 1u);
        EXPECT_EQ(host.shown[0], u"Missing cue");
    }
    {
        BankSpec spec = good;
        spec.cues = {0, 4};
        ScriptedHost host;
        const Opened opened(spec, &host);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
        ASSERT_EQ(host.shown.size(), 1u);
        EXPECT_EQ(host.shown[0], u"Missing wave");
    }
    {
        BankSpec spec = good;
        spec.hasTable = false;
        spec.regions.resize(1);
        ScriptedHost host;
        const Opened opened(spec, &host);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
        ASSERT_EQ(host.shown.size(), 1u);
        EXPECT_TRUE(host.shown[0].starts_with(u"DLS parser warning: Mandatory 'ptbl' chunk is missing"));
    }
    std::vector<std::byte> bytes = Build(good);
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    bytes[text.find("ptbl") + 12] = std::byte{2}; // one cue more than the chunk has
    EXPECT_FALSE(Opened(bytes).isRead);
    EXPECT_EQ(LastError(), u"Could not read pool cue table");
    bytes[8] = std::byte{'d'};
    EXPECT_FALSE(Opened(bytes).isRead);
    EXPECT_EQ(LastError(), u"Not a RIFF DLS file");
    EXPECT_EQ(DetectDls(bytes, 0, bytes.size()), 0);
    EXPECT_EQ(DetectDls(Build(good), 0, 0), 6);
}

TEST(DlsRead, BanksOfEarlierVersionsGetTheirLayersJoined)
{
    for (const auto& [software, layers] : {std::pair{"Vimbo Studio v12.2", 1u},
                                           {"Vimbo Studio v12.7", 2u},
                                           {"Vimbo 11", 1u},
                                           {"Other 1.0", 2u},
                                           {"Vimbo Studio", 2u}}) {
        BankSpec spec;
        spec.regions.resize(2);
        spec.regions[0].ranges[1] = 50;
        spec.regions[1].ranges[0] = 51;
        spec.regions[1].layer = 1;
        spec.software = software;
        EXPECT_EQ(Opened(spec).items.List<Instrument>().at(0)->Layers().size(), layers) << software;
    }
}

TEST(DlsRead, WhatHasNoPlaceIsTold)
{
    BankSpec spec;
    spec.regions.resize(2);
    // Those that players have by themselves, and one of each sort that is read.
    spec.regions[0].connections = {By(135, 1, 1),  By(139, 1, 1),  By(6, 3, 1, 256), By(1, 3, 1, 129),
                                   By(9, 3, 1, 8), By(5, 4, 1),    By(3, 524, 1),    By(2, 1, 1),
                                   Fixed(784, 1),  By(219, 129, 1)};
    WsmpHead head{20u, std::uint16_t{60}, std::int16_t{0}, 0, 0u, 2u};
    NotingHost host;
    const Opened kept(spec, &host);
    EXPECT_TRUE(kept.isRead);
    EXPECT_TRUE(host.lost.empty()) << std::string(host.lost[0].begin(), host.lost[0].end());
    spec.regions[1].connections = {By(4, 1, 1), By(8, 4, 1), By(1, 3, 1, 130), Fixed(785, 1)};
    spec.regions[1].sample = {head, {16u, 0u, 1u, 4u}};
    spec.common = {Fixed(1300, 1)};
    const Opened told(spec, &host);
    EXPECT_EQ(std::ranges::count(host.lost, u"Connections"), 5);
    EXPECT_EQ(std::ranges::count(host.lost, u"Further loops"), 1);
    EXPECT_EQ(host.lost.size(), 6u);
}

} // namespace
} // namespace vimbo::dls
