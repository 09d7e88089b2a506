#include "formats/aiff/aiff_bytes.h"
#include "formats/open.h"
#include "formats/save.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vimbo {
namespace {

constexpr std::uint32_t kAnyPcm = FormatBit(DataFormat::Pcm8) | FormatBit(DataFormat::Pcm16) |
                                  FormatBit(DataFormat::Pcm24) | FormatBit(DataFormat::Pcm32);

ByteList Written(Waveform& wave, std::uint32_t formats)
{
    MemoryFile file;
    FormatChoice choice{.caps = formats | kCapsMono | kCapsStereo};
    EXPECT_TRUE(WriteAiff(wave, file, choice)) << WideToUtf8(LastError());
    return file.Release();
}

Waveform& AddWave(Collection& collection, std::initializer_list<float> samples)
{
    Waveform& wave = collection.Create<Waveform>(u"Na");
    wave.rateHz = 32000;
    wave.frames = static_cast<std::uint32_t>(samples.size());
    wave.bits = 16;
    std::ranges::copy(samples, wave.LockSamplesForWrite().begin());
    return wave;
}

TEST(AiffWrite, KnownBytes)
{
    Collection collection;
    Waveform& wave = AddWave(collection, {0.5f, -0.5f, 0.25f});
    EXPECT_EQ(Written(wave, FormatBit(DataFormat::Pcm8)),
              Spell("'FORM' 0000003C 'AIFF' 'NAME' 00000002 'Na'"
                    "'COMM' 00000012 0001 00000003 0008 400D FA00000000000000"
                    "'SSND' 0000000B 00000000 00000000 40 C0 20 00"));

    wave.rootKey = 61;
    wave.fineTune = -25;
    wave.loop = {.type = LoopType::Alternating, .start = 1, .end = 3};
    wave.markers.push_back({.isRange = false, .position = 2, .end = 0, .name = u"Hit"});
    wave.SetText(kTextComments, u"odd");
    EXPECT_EQ(Written(wave, FormatBit(DataFormat::Pcm24)),
              Spell("'FORM' 0000009E 'AIFF' 'NAME' 00000002 'Na' 'ANNO' 00000003 'odd' 00"
                    "'COMM' 00000012 0001 00000003 0018 400D FA00000000000000"
                    "'MARK' 0000002C 0003 0001 00000001 08 'beg loop' 00 0002 00000003 08 'end loop' 00"
                    "  0003 00000002 03 'Hit'"
                    "'INST' 00000014 3D E7 00 7F 00 7F 0000 0002 0001 0002 0000 0000 0000"
                    "'SSND' 00000011 00000000 00000000 400000 C00000 200000 00"));
}

TEST(AiffWrite, LoopsAndMarkersComeBack)
{
    const auto back = [](Waveform& wave) {
        auto opened = std::make_unique<OpenedAiff>(Written(wave, FormatBit(DataFormat::Pcm16)));
        EXPECT_TRUE(opened->isRead);
        return opened;
    };
    Collection collection;
    Waveform& wave = AddWave(collection, {0, 0, 0, 0, 0, 0, 0, 0});
    wave.markers.push_back({.isRange = true, .position = 5, .end = 7, .name = u"ReleaseLoop"});
    wave.markers.push_back({.isRange = true, .position = 1, .end = 4, .name = u"Part"});
    {
        const auto read = back(wave); // no loop: a range is told by two marks
        EXPECT_EQ(read->wave->loop.type, LoopType::Off);
        ASSERT_EQ(read->wave->markers.size(), 4u);
        EXPECT_EQ(read->wave->markers[2].name, u"Part");
        EXPECT_EQ(read->wave->markers[2].position, 1u);
        EXPECT_EQ(read->wave->markers[3].name, u"Part end");
        EXPECT_EQ(read->wave->markers[3].position, 4u);
    }
    wave.loop = {.type = LoopType::Forward, .start = 1.6, .end = 8};
    {
        const auto read = back(wave);
        EXPECT_EQ(read->wave->loop.type, LoopType::Forward);
        EXPECT_EQ(read->wave->loop.start, 2);
        EXPECT_EQ(read->wave->loop.end, 8);
        ASSERT_EQ(read->wave->markers.size(), 3u);
        EXPECT_TRUE(read->wave->markers[0].SameAs(wave.markers[0]));
    }
    wave.loop.end = 2; // nothing is left of it in whole frames
    EXPECT_EQ(back(wave)->wave->loop.type, LoopType::Off);
}

class NotesHost final : public Host {
public:
    bool WantsNotes() const override { return true; }
    void NoteConversion(ConversionNote note) override
    {
        if (note.fidelity != Fidelity::Kept)
            told.push_back(WideToUtf8(note.what + u": " + note.from + u" -> " + note.to));
    }
    std::vector<std::string> told;
};

TEST(AiffWrite, WhatIsLostIsTold)
{
    Collection collection;
    NotesHost host;
    collection.SetHost(host);
    Waveform& wave = AddWave(collection, {0, 0, 0, 0, 0, 0, 0, 0});
    wave.rootKey = 61;
    wave.volume = -6;
    wave.loop = {.type = LoopType::Alternating, .start = 2, .end = 6};
    wave.markers.push_back({.isRange = true, .position = 5, .end = 7, .name = u"ReleaseLoop"});
    wave.markers.push_back({.isRange = false, .position = 1, .end = 0, .name = u"Hit"});
    wave.SetText(kTextArtist, u"A");
    static_cast<void>(Written(wave, FormatBit(DataFormat::Pcm16)));
    EXPECT_TRUE(host.told.empty()) << host.told.front();

    wave.SetName(u"\u041d");
    wave.SetText(kTextEngineer, u"E");
    wave.bits = 24;
    wave.volume = -2.4f;
    wave.loop = {.type = LoopType::Reverse, .breakOnRelease = true, .start = 1.25, .end = 6, .pitch = 0.5f};
    wave.markers.push_back({.isRange = true, .position = 1, .end = 4, .name = u"Part"});
    wave.markers.push_back({.isRange = false, .position = 1, .end = 0, .name = std::u16string(300, u'x')});
    const OpenedAiff opened(Written(wave, FormatBit(DataFormat::Pcm16)));
    EXPECT_EQ(opened.wave->volume, -2) << "whole dB";
    std::ranges::sort(host.told);
    const std::vector<std::string> wanted = {"Engineer: E -> ",
                                             "Loop pitch: 0.5 st -> ",
                                             "Loop release mode: Break on Release -> ",
                                             "Loop start: 1.25 -> 1",
                                             "Loop type: Reverse -> Forward",
                                             "Marker name: " + std::string(300, 'x') + " -> " +
                                                 std::string(255, 'x'),
                                             "Marker range: Part -> ",
                                             "Name: \xd0\x9d -> H",
                                             "Playback Volume adjustment: -2.4 dB -> -2 dB",
                                             "Samples: 24-bit -> 16-bit"};
    EXPECT_EQ(host.told, wanted);
    collection.SetHost(SilentHost());
}

TEST(AiffWrite, MarksHaveTheirLimits)
{
    Collection collection;
    Waveform& wave = AddWave(collection, {0, 0});
    wave.markers.assign(40000, {.isRange = false, .position = 1, .end = 0, .name = u""});
    wave.markers[0].name.assign(300, u'x');
    OpenedAiff opened(Written(wave, FormatBit(DataFormat::Pcm16)));
    ASSERT_TRUE(opened.isRead);
    ASSERT_EQ(opened.wave->markers.size(), 32767u);
    EXPECT_EQ(opened.wave->markers[0].name, std::u16string(255, u'x'));
    EXPECT_EQ(opened.wave->frames, 2u);
}

TEST(AiffWrite, EveryDepthAndOddSizesComeBack)
{
    const struct {
        DataFormat format;
        int bits;
    } kDepths[] = {
        {DataFormat::Pcm8, 8}, {DataFormat::Pcm16, 16}, {DataFormat::Pcm24, 24}, {DataFormat::Pcm32, 32}};
    for (const auto& depth : kDepths) {
        for (const std::uint32_t frames : {0u, 1u, 5u, 70001u}) {
            SCOPED_TRACE(std::to_string(depth.bits) + " bits, " + std::to_string(frames));
            Collection collection;
            Waveform& wave = AddWave(collection, {});
            wave.frames = frames;
            std::uint32_t seed = 3;
            std::vector<float> wanted;
            const auto samples = wave.LockSamplesForWrite();
            for (float& sample : samples) { // 8-bit noise, which every depth holds exactly
                seed = seed * 1664525 + 1013904223;
                sample = static_cast<float>(static_cast<std::int8_t>(seed >> 24)) / 128.0f;
            }
            wanted.assign(samples.begin(), samples.end());
            const ByteList bytes = Written(wave, FormatBit(depth.format));
            EXPECT_EQ(bytes.size() % 2, 0u);
            OpenedAiff opened(bytes);
            ASSERT_TRUE(opened.isRead);
            EXPECT_EQ(opened.wave->bits, depth.bits);
            EXPECT_EQ(opened.wave->frames, frames);
            EXPECT_EQ(opened.Samples(), wanted);
        }
    }
}

TEST(AiffWrite, TakesTheDepthThatTheWaveHasAndRefusesOthers)
{
    Collection collection;
    Waveform& wave = AddWave(collection, {0.5f});
    wave.saveFormat = SaveFormat::Pcm24;
    EXPECT_EQ(OpenedAiff(Written(wave, kAnyPcm)).wave->bits, 24);
    wave.saveFormat = SaveFormat::Pcm16;
    EXPECT_EQ(OpenedAiff(Written(wave, kAnyPcm)).wave->bits, 16);
    MemoryFile file;
    FormatChoice choice{.caps = FormatBit(DataFormat::Float32) | kCapsMono};
    EXPECT_FALSE(WriteAiff(wave, file, choice));
    EXPECT_EQ(LastError(), u"Unsupported subformat");
    EXPECT_FALSE(WriteAiff(collection, file, choice));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
    EXPECT_EQ(file.Size(), 0u);
}

/// Converted samples stream from any place, also after a step back.
TEST(AiffWrite, CodedSamplesStream)
{
    const testing::ScratchFolder folder;
    ByteList data(34 * 2 * 3000);
    std::uint32_t seed = 9;
    for (std::byte& byte : data) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<std::byte>(seed >> 24);
    }
    for (const std::string_view tag : {"ima4", "MAC3", "MAC6"}) {
        const std::u16string path =
            folder.Put("a.aifc", IffImage("AIFC", {Comm(2, 3000, 16, tag), Ssnd(data)}));
        Collection collection;
        ASSERT_TRUE(LoadFile(collection, path, AllowRaw::No));
        Waveform& wave = *collection.List<Waveform>().front();
        const auto source = wave.OpenFrames();
        ASSERT_NE(source, nullptr);
        EXPECT_FALSE(wave.HasBlock());
        const auto whole = wave.LockSamples();
        ASSERT_EQ(whole.size(), std::size_t{wave.frames} * 2);
        std::vector<float> piece(2 * 777);
        for (const std::uint32_t first : {0u, 900u, 12345u, 64u}) {
            ASSERT_TRUE(source->Read(first, piece));
            EXPECT_TRUE(std::ranges::equal(piece, whole.subspan(first * 2, piece.size()))) << first;
        }
    }
}

} // namespace
} // namespace vimbo
