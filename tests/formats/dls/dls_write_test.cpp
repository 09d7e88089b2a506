// Writing at each level, losses, damage.
#include "base/last_error.h"
#include "dls_bank.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/song.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace vimbo::dls {
namespace {

using testing::ScriptedHost;

Waveform& AddWave(Collection& items, std::u16string_view name, std::uint32_t frames, unsigned channels = 1)
{
    auto& wave = items.Create<Waveform>(name);
    wave.frames = frames;
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.rateHz = 44100;
    wave.saveFormat = SaveFormat::Pcm16;
    const std::span<float> samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(std::round(20000 * std::sin(0.05 * static_cast<double>(i))) / 32768);
    wave.loop.end = frames;
    wave.Validate();
    return wave;
}

struct Written {
    bool good = false;
    std::vector<std::byte> bytes;
};
Written Write(Item& root, std::uint32_t level = kDlsLevel2, std::uint32_t caps = kAuto)
{
    MemoryFile file;
    FormatChoice choice{caps, level, 0};
    Written written;
    written.good = WriteDls(root, file, choice);
    written.bytes = file.Release();
    return written;
}

/// What a file holds, as a user gets it.
void Load(Collection& out, const Written& written)
{
    MemoryFile file(written.bytes);
    out.SetName(u"loaded");
    out.loading = true;
    ASSERT_TRUE(ReadDls(out, file, 0));
    out.loading = false;
    for (Waveform& wave : out.All<Waveform>()) {
        ASSERT_TRUE(file.Seek(wave.sourceOffset));
        ASSERT_TRUE(wave.importProc->load(wave, file));
        static_cast<void>(wave.LockSamplesForWrite()); // there is no file to read again
    }
    FixUpItems(out, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    EXPECT_TRUE(IsConsistent(out));
}

/// Regions of all kinds, a stereo sound among them.
void FillBank(Collection& items)
{
    items.SetName(u"Bank");
    items.SetText(kTextEngineer, u"Ann");
    items.SetText(kTextProduct, u"Set");
    Waveform& mono = AddWave(items, u"Mono", 301);
    mono.rootKey = 62;
    mono.fineTune = -7;
    mono.volume = -3.52f;
    mono.loop = {LoopType::Forward, true, false, 10, 290, 0};
    Waveform& stereo = AddWave(items, u"Wide", 200, 2);
    auto& instrument = items.Create<Instrument>(u"Inst");
    instrument.location.word = 5;
    instrument.location.SetBankMsb(9);
    instrument.location.SetBankLsb(3);
    instrument.SetText(kTextComments, u"Odd");
    Layer& lower = instrument.AddLayer();
    Region& low = lower.AddRegion(mono.Handle(), {0, 59}, {1, 100});
    low.articulation.Set(kArtTuning, 2);
    low.articulation.Set(kArtVolume, -1.25f);
    low.articulation.Set(kArtFilterType, 2);
    low.articulation.Set(kArtCutoff, 1234);
    low.articulation.Set(kArtResonance, 3.33f);
    low.trigger.Set(kParamExclusionGroup, 3);
    low.trigger.Set(kParamNoteExclusionMode, 1);
    Region& high = lower.AddRegion(mono.Handle(), {60, 127});
    high.SetParam(kParamRegionRootKey, 65);
    high.SetParam(kParamLoopType, 0);
    high.phaseGroup = 1;
    high.phaseMaster = 1;
    Region& wide = instrument.AddLayer().AddRegion(stereo.Handle(), {20, 90});
    wide.SetParam(kParamLoopType, 1);
    wide.SetParam(kParamLoopStart, 50);
    auto& drums = items.Create<Instrument>(u"Drums");
    drums.location.SetDrum(true);
    drums.AddLayer().AddRegion(mono.Handle(), {36, 36});
    FixUpItems(items, kPruneAll, AfterLoad::No);
}

TEST(DlsWrite, BanksComeBackAndSecondWritingGivesTheSameBytes)
{
    for (const std::uint32_t level : {kDlsLevel1, kDlsLevel2, kDlsLevel2Plus, kDlsLevel2PlusPlus}) {
        Collection items, again;
        FillBank(items);
        const Written one = Write(items, level);
        ASSERT_TRUE(one.good);
        Load(again, one);
        EXPECT_EQ(again.GetName(), u"Bank");
        EXPECT_EQ(again.GetText(kTextProduct), u"Set");
        const auto before = items.List<Region>(), after = again.List<Region>();
        ASSERT_EQ(after.size(), before.size());
        for (std::size_t i = 0; i < after.size(); ++i) {
            const Region &was = *before[i], &is = *after[i];
            SCOPED_TRACE(i);
            EXPECT_TRUE(is.trigger.SameValues(was.trigger));
            EXPECT_EQ(GetEffectiveLoop(is), GetEffectiveLoop(was));
            EXPECT_EQ(is.EffectiveRootKey(), was.EffectiveRootKey());
            EXPECT_EQ(is.phaseGroup, was.phaseGroup);
            EXPECT_EQ(is.phaseMaster, was.phaseMaster);
            EXPECT_TRUE(std::ranges::equal(is.Wave()->LockSamples(), was.Wave()->LockSamples()));
            for (ParamId id = 0; id < kArticulationParams; ++id) {
                const bool isFilter = id == kArtFilterType || id == kArtCutoff || id == kArtResonance;
                EXPECT_TRUE(is.articulation[id] == was.articulation[id] || (isFilter && level == kDlsLevel1))
                    << id << ": " << is.articulation[id];
            }
        }
        const Waveform &was = *items.List<Waveform>()[0], &is = *after[0]->Wave();
        EXPECT_EQ(is.volume, was.volume);
        EXPECT_EQ(is.fineTune, was.fineTune);
        EXPECT_EQ(is.loop, was.loop);
        EXPECT_EQ(again.List<Instrument>()[0]->location, items.List<Instrument>()[0]->location);
        EXPECT_EQ(again.List<Instrument>()[0]->GetText(kTextComments), u"Odd");
        EXPECT_TRUE(again.List<Instrument>()[1]->location.IsDrum());
        EXPECT_TRUE(Write(again, level).bytes == one.bytes);
    }
}

std::size_t Count(const Written& written, std::string_view what)
{
    const std::string_view text(reinterpret_cast<const char*>(written.bytes.data()), written.bytes.size());
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; ++at)
        ++count;
    return count;
}

TEST(DlsWrite, ChunksFitTheLevel)
{
    Collection items;
    FillBank(items);
    using namespace std::string_view_literals;
    const Written one = Write(items, kDlsLevel1), two = Write(items, kDlsLevel2);
    EXPECT_EQ(Count(one, "rgn "), 5u);
    EXPECT_EQ(Count(one, "rgnh\14\0\0\0"sv), 5u);
    EXPECT_EQ(Count(one, "lart"), 2u) << "only the halves of the pair differ from the defaults";
    EXPECT_EQ(Count(two, "rgn2"), 5u);
    EXPECT_EQ(Count(two, "rgnh\16\0\0\0"sv), 5u);
    EXPECT_EQ(Count(two, "lar2"), 3u);
    EXPECT_EQ(Count(two, "wlnk\14\0\0\0\1\0\2\0\1\0\0\0\1\0\0\0"sv), 1u) << "left, group 1 is taken";
    EXPECT_EQ(Count(two, "wlnk\14\0\0\0\0\0\2\0\2\0\0\0\2\0\0\0"sv), 1u) << "right";
    EXPECT_EQ(Count(two, "wave"), 3u);
    EXPECT_EQ(Count(two, "ptbl\24\0\0\0\10\0\0\0\3\0\0\0\0\0\0\0"sv), 1u);
    EXPECT_EQ(Count(two, "insh\14\0\0\0\1\0\0\0\0\0\0\x80\0\0\0\0"sv), 1u);
    const Written stereo = Write(items, kDlsLevel2Plus, kAutoPlus | kCapsStereo);
    EXPECT_EQ(Count(stereo, "LIST"), Count(two, "LIST") - 5) << "a region, two articulations, a waveform";
    EXPECT_EQ(Count(Write(items, kDlsLevel2PlusPlus, kAutoPlus | kCapsStereo), "wlnk"), 5u);
}

TEST(DlsWrite, Level1AsksOnceAboutTooManyRegions)
{
    for (const std::size_t answer : {std::size_t{0}, std::size_t{1}}) {
        ScriptedHost host;
        host.answers["dls-level1-regions"] = answer;
        Collection items;
        items.SetHost(host);
        Waveform& wave = AddWave(items, u"Wave", 20);
        for (int i = 0; i < 2; ++i) {
            Layer& layer = items.Create<Instrument>(u"I").AddLayer();
            for (std::uint8_t key = 0; key < 17; ++key)
                layer.AddRegion(wave.Handle(), {key, key});
        }
        const Written written = Write(items, kDlsLevel1);
        EXPECT_EQ(Count(written, "rgn "), answer == 0 ? 34u : 32u);
        ASSERT_EQ(host.asked.size(), 1u);
        EXPECT_TRUE(host.asked[0].ends_with(u"Do you want to write all regions anyway?\n(if you answer No, "
                                            u"then some regions will be skipped)"));
        EXPECT_EQ(Count(Write(items, kDlsLevel2), "rgn2"), 34u);
        EXPECT_EQ(host.asked.size(), 1u);
    }
}

TEST(DlsWrite, ExtendedLevelsHoldOtherEncodings)
{
    struct Row {
        DataFormat format;
        double error;
    };
    for (const Row& row :
         {Row{DataFormat::Pcm8, 1 / 128.0}, Row{DataFormat::Pcm24, 0}, Row{DataFormat::Float32, 0},
          Row{DataFormat::MuLaw, 0.02}, Row{DataFormat::ALaw, 0.02}, Row{DataFormat::Adpcm4, 0.05}}) {
        Collection items, again;
        Waveform& wave = AddWave(items, u"Wave", 2501);
        Written written = Write(items, kDlsLevel2Plus, FormatBit(row.format) | kCapsMono | kCapsDualMono);
        ASSERT_TRUE(written.good);
        Load(again, written);
        Waveform& read = *again.List<Waveform>().at(0);
        ASSERT_EQ(read.frames, wave.frames);
        for (std::size_t i = 0; i < wave.frames; ++i)
            ASSERT_NEAR(read.LockSamples()[i], wave.LockSamples()[i], row.error) << i;
    }
}

TEST(DlsWrite, CompressedWavesKeepFramesLoopsAndGain)
{
    for (const unsigned channels : {1u, 2u}) {
        for (const std::uint32_t level : {kDlsLevel2Plus, kDlsLevel2PlusPlus}) {
            Collection items, again;
            Waveform& wave = AddWave(items, u"Wave", 20001, channels);
            wave.loop = {LoopType::Forward, false, false, 4000, 19000, 0};
            wave.volume = -3.5f;
            AddWave(items, u"Next", 3000);
            auto& odd = AddWave(items, u"Odd rate", 3000);
            odd.rateHz = 96000;
            FormatChoice choice{FormatBit(DataFormat::Compressed) | FormatBit(DataFormat::Pcm16) | kCapsMono |
                                    (level == kDlsLevel2Plus ? kCapsStereo : kCapsDualMono),
                                level, 0};
            for (Waveform* each : {&wave, &odd})
                each->saveFormat = BitrateToSaveFormat(160);
            MemoryFile file;
            ASSERT_TRUE(WriteDls(items, file, choice));
            Written written{true, file.Release()};
            EXPECT_LT(written.bytes.size(), 35000u);
            Load(again, written);
            const auto list = again.List<Waveform>();
            const bool isSplit = channels == 2 && level == kDlsLevel2PlusPlus;
            ASSERT_EQ(list.size(), isSplit ? 4u : 3u);
            const auto named = [&list](std::u16string_view name) -> Waveform& {
                return **std::ranges::find_if(list, [&](Waveform* each) { return each->GetName() == name; });
            };
            Waveform& read = named(isSplit ? u"Wave -L" : u"Wave");
            ASSERT_EQ(read.frames, 20001u);
            EXPECT_EQ(read.channels, isSplit ? 1u : channels);
            EXPECT_EQ(read.loop.start, 4000);
            EXPECT_EQ(read.loop.end, 19000);
            EXPECT_NEAR(read.volume, -3.5f, 0.01f);
            EXPECT_EQ(read.saveFormat, BitrateToSaveFormat(160));
            float worst = 0;
            for (std::size_t frame = 1000; frame < 19000; ++frame) // its ends are steps
                worst = std::max(worst, std::abs(read.LockSamples()[frame * read.channels] -
                                                 wave.LockSamples()[frame * channels]));
            EXPECT_LT(worst, 0.005f) << "one frame late or early would be 0.03 and more, 0.5 dB too";
            EXPECT_EQ(named(u"Next").frames, 3000u);
            EXPECT_EQ(named(u"Odd rate").rateHz, 96000u) << "kept as PCM";
            EXPECT_EQ(named(u"Odd rate").bits, 16);
        }
    }
    Collection items;
    AddWave(items, u"Wave", 20).rateHz = 96000;
    EXPECT_FALSE(Write(items, kDlsLevel2Plus, FormatBit(DataFormat::Compressed) | kCapsMono).good);
    EXPECT_EQ(LastError(), u"Format not supported by MP3 encoder");
}

TEST(DlsWrite, LossesAreTold)
{
    NotingHost host;
    Collection items;
    items.SetHost(host);
    Waveform& wave = AddWave(items, u"Wave", 100);
    wave.markers.emplace_back();
    auto& instrument = items.Create<Instrument>(u"I");
    instrument.channelFx[0].type = ChannelFxType::Delay;
    Region& region = instrument.AddLayer(u"Named").AddRegion(wave.Handle());
    region.startOffset = 5;
    region.articulation.Set(kArtFilterType, static_cast<float>(FilterType::HighPass12));
    region.articulation.Set(kArtVelPEnvToPitch, 2);
    region.trigger.Set(kParamDelay, 2);
    region.SetParam(kParamLoopType, static_cast<float>(LoopType::Alternating));
    instrument.AddLayer().AddRegion(NO_ITEM);
    items.Create<Instrument>(u"Empty");
    instrument.channelFx[1] = {ChannelFxType::Reverb, {1, 0, 0}, {}};
    instrument.channelFx[2] = kDefaultChorus;
    instrument.channelFx[3] = kDefaultReverb;
    region.articulation.Set(kArtSend + kSendParams, 0.5f);
    items.SetImage(std::as_bytes(std::span("\x89PNG\r\n\x1a\n", 8)));
    ASSERT_TRUE(Write(items).good);
    for (const std::u16string_view what :
         {u"Filter type", u"Markers", u"Channel effect 1", u"Channel effect 2", u"Channel effect 3",
          u"Channel effect 4", u"Region", u"Instrument", u"Name", u"Image"})
        EXPECT_EQ(std::ranges::count(host.lost, what), 1) << std::string(what.begin(), what.end());
    for (const ParamId id : {kParamDelay, kParamLoopType, kParamStartOffset, kArtVelPEnvToPitch})
        EXPECT_EQ(std::ranges::count(host.lost, AnyParamRow(id).name), 1) << id;
}

TEST(DlsWrite, MixedAndNarrowedSamplesAreTold)
{
    NotingHost host;
    Collection items;
    items.SetHost(host);
    Waveform& wave = AddWave(items, u"Wave", 100, 2);
    wave.bits = 24;
    auto& instrument = items.Create<Instrument>(u"I");
    instrument.channelFx[0] = kDefaultReverb;
    instrument.AddLayer().AddRegion(wave.Handle()).articulation.Set(kArtSend, 0.5f);
    ASSERT_TRUE(Write(items, kDlsLevel1, FormatBit(DataFormat::Pcm16) | kCapsMono).good);
    for (const std::u16string_view what : {u"Samples", u"Channels", u"Channel effect 1"})
        EXPECT_EQ(std::ranges::count(host.lost, what), 1) << std::string(what.begin(), what.end());
    host.lost.clear();
    wave.saveFormat = SaveFormat::Pcm24;
    ASSERT_TRUE(Write(items, kDlsLevel2Plus, kAutoPlus).good);
    EXPECT_TRUE(host.lost.empty()) << std::string(host.lost[0].begin(), host.lost[0].end());
}

TEST(DlsWrite, ExtendedLevelsHoldASong)
{
    Collection items;
    FillBank(items);
    const auto addSong = [&](std::u16string_view name) {
        auto& song = items.Create<Song>(name);
        auto& track = items.Create<Track>(u"");
        track.SetParent(song.Handle());
        song.AddChild(track.Handle());
        constexpr unsigned char kEvents[] = {0, 0x90, 60, 100, 96, 0x80, 60, 0, 0, 0xFF, 0x2F, 0};
        track.SetData(std::as_bytes(std::span(kEvents)));
    };
    addSong(u"First");
    addSong(u"Second");
    NotingHost host;
    items.SetHost(host);
    for (const std::uint32_t level : {kDlsLevel2, kDlsLevel2Plus, kDlsLevel2PlusPlus}) {
        host.lost.clear();
        const Written written = Write(items, level, kAutoPlus);
        ASSERT_TRUE(written.good);
        const bool isHeld = level != kDlsLevel2;
        EXPECT_EQ(Count(written, "lRMI"), isHeld ? 1u : 0u);
        EXPECT_EQ(std::ranges::count(host.lost, u"Song"), isHeld ? 1 : 2);
        Collection read;
        Load(read, written);
        ASSERT_EQ(read.CountOf(ItemKind::Song), isHeld ? 1u : 0u);
        EXPECT_EQ(read.CountOf(ItemKind::Instrument), items.CountOf(ItemKind::Instrument));
        for (const Song& song : read.All<Song>())
            EXPECT_EQ(song.GetName(), u"First");
    }
    items.SetHost(SilentHost());
}

TEST(DlsImage, LiesInsideAnotherFile)
{
    Collection items;
    FillBank(items);
    struct Case {
        DlsImage image;
        std::string_view region;
        std::uint32_t caps;
        bool isStereo;
    };
    constexpr std::uint32_t kCaps = FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsStereo;
    for (const Case& each :
         {Case{DlsImage::Level1, "rgn ", kCaps, true}, Case{DlsImage::Level2, "rgn2", kCaps, true},
          Case{DlsImage::Level1Mono, "rgn ", kCaps, false}}) {
        MemoryFile file;
        ASSERT_TRUE(file.WriteAll(std::as_bytes(std::span("front of it"))));
        const std::uint64_t start = file.Position();
        std::uint64_t bytes = 0;
        ASSERT_TRUE(WriteDlsImage(items, file, each.image, each.caps, bytes));
        EXPECT_EQ(file.Position(), start + bytes);
        EXPECT_EQ(bytes % 2, 0u);
        ASSERT_TRUE(file.WriteAll(std::as_bytes(std::span("what follows"))));
        Collection read;
        read.Create<Instrument>(u"there before");
        ASSERT_TRUE(ReadDlsRange(read, file, start, bytes));
        EXPECT_EQ(read.CountOf(ItemKind::Instrument), items.CountOf(ItemKind::Instrument) + 1);
        EXPECT_TRUE(IsConsistent(read));
        const auto written = file.Bytes();
        const auto bytesOf = std::as_bytes(std::span(each.region));
        EXPECT_NE(std::search(written.begin(), written.end(), bytesOf.begin(), bytesOf.end()), written.end());
        const auto waves = read.List<Waveform>();
        EXPECT_EQ(std::ranges::any_of(waves, [](const Waveform* wave) { return wave->channels == 2; }),
                  each.isStereo);
        EXPECT_FALSE(ReadDlsRange(read, file, start + 1, bytes));
    }
    MemoryFile none;
    std::uint64_t bytes = 1;
    Collection empty;
    EXPECT_TRUE(WriteDlsImage(empty, none, DlsImage::Level2, kCaps, bytes));
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(none.Size(), 0u);
}

TEST(DlsRead, DamagedBanksFailCleanly)
{
    Collection items;
    FillBank(items);
    BankSpec spec;
    spec.regions.resize(1);
    spec.regions[0].connections = {Fixed(1280, 0), By(2, 518, 1), By(1, 3, 5, 129)};
    std::vector<std::byte> small = Build(spec);
    const auto check = [](std::span<const std::byte> bytes) {
        const Opened opened(bytes);
        if (opened.isRead)
            EXPECT_TRUE(IsConsistent(opened.items));
        else
            EXPECT_FALSE(LastError().empty());
    };
    for (std::size_t n = 0; n < small.size(); ++n)
        check(std::span(small).first(n));
    for (const std::size_t width : {1u, 2u, 4u})
        for (std::size_t at = 0; at + width <= small.size(); ++at)
            for (const int fill : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                std::vector<std::byte> bytes = small;
                std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), width,
                            static_cast<std::byte>(fill));
                check(bytes);
            }
}

} // namespace
} // namespace vimbo::dls
