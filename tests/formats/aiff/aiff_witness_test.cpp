// AIFF files of independent programs, read, and files that we write, opened by them. A missing program skips
// its test with a notice.
#include "base/last_error.h"
#include "formats/aiff/aiff_bytes.h"
#include "formats/open.h"
#include "formats/save.h"
#include "programs.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vimbo {
namespace {

using testing::HasProgram;

/// Without standard error.
std::string ResultOf(const std::string& command)
{
    return testing::OutputOf(command + " 2>/dev/null");
}

using testing::ScratchFolder;

constexpr int kAifRow = 15;
constexpr std::size_t kFrames = 4001;
constexpr std::string_view kDecode = "ffmpeg -v error -nostdin -i ";
constexpr std::string_view kToFloats = " -f f32le -c:a pcm_f32le -";

bool Runs(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<float> FloatsOf(const std::string& command)
{
    const std::string bytes = ResultOf(command);
    std::vector<float> floats(bytes.size() / sizeof(float));
    std::memcpy(floats.data(), bytes.data(), floats.size() * sizeof(float));
    return floats;
}

std::string Quoted(const std::u16string& path)
{
    return "'" + WideToPath(path) + "'";
}

std::vector<float> SamplesOf(const std::u16string& path)
{
    Collection read;
    EXPECT_TRUE(LoadFile(read, path, AllowRaw::No)) << WideToUtf8(LastError());
    if (read.CountOf(ItemKind::Waveform) == 0)
        return {};
    const auto samples = read.All<Waveform>().begin()->LockSamples();
    return {samples.begin(), samples.end()};
}

/// Noise with two loops, a tuning and a marker; an odd number of frames.
void AddSound(Collection& collection, std::uint8_t channels)
{
    Waveform& wave = collection.Create<Waveform>(u"Witness");
    wave.channels = channels;
    wave.rateHz = 32000;
    wave.frames = kFrames;
    std::uint32_t seed = 7;
    for (float& sample : wave.LockSamplesForWrite()) {
        seed = seed * 1664525 + 1013904223;
        sample = static_cast<float>(static_cast<std::int32_t>(seed)) / 2147483648.0f * 0.99f;
    }
    wave.rootKey = 45;
    wave.fineTune = 12;
    wave.loop = {.type = LoopType::Alternating, .start = 100, .end = 3900};
    wave.markers.push_back({.isRange = true, .position = 1000, .end = 2000, .name = u"ReleaseLoop"});
    wave.markers.push_back({.isRange = false, .position = 17, .end = 0, .name = u"Hit"});
    wave.SetText(kTextArtist, u"Somebody");
}

std::u16string Write(const ScratchFolder& folder, std::uint8_t channels, DataFormat format)
{
    Collection source;
    AddSound(source, channels);
    FormatChoice choice = AutoChoice(kAifRow);
    choice.caps = FormatBit(format) | kCapsMono | kCapsStereo;
    const std::u16string path = folder.Wide("w.aif");
    EXPECT_TRUE(SaveToPath(source.List<Waveform>().front(), path, kAifRow, choice));
    return path;
}

void CompareWritten(std::string_view before, std::string_view after)
{
    const ScratchFolder folder;
    for (const std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        for (const DataFormat format :
             {DataFormat::Pcm8, DataFormat::Pcm16, DataFormat::Pcm24, DataFormat::Pcm32}) {
            SCOPED_TRACE(WideToUtf8(DataFormatName(format)));
            const std::u16string path = Write(folder, channels, format);
            const std::vector<float> decoded =
                FloatsOf(std::string(before) + Quoted(path) + std::string(after));
            const std::vector<float> samples = SamplesOf(path);
            ASSERT_EQ(decoded.size(), kFrames * channels);
            ASSERT_EQ(samples.size(), decoded.size());
            // sox rounds 32 bits to float in another way; narrower codes are exact.
            const float tolerance = format == DataFormat::Pcm32 ? 0x1p-24f : 0;
            for (std::size_t i = 0; i < samples.size(); ++i)
                ASSERT_NEAR(samples[i], decoded[i], tolerance) << i;
        }
    }
}

TEST(AiffWitness, SoxAndFfmpegDecodeWhatWeWrite)
{
    if (!HasProgram("sox") || !HasProgram("ffmpeg"))
        GTEST_SKIP() << "sox or ffmpeg is not installed";
    CompareWritten("sox -D ", " -t f32 -");
    CompareWritten(kDecode, kToFloats);
}

TEST(AiffWitness, LibsndfileSeesLoopsMarkersAndTexts)
{
    if (!HasProgram("sndfile-info"))
        GTEST_SKIP() << "sndfile-info is not installed";
    const ScratchFolder folder;
    const std::string told =
        ResultOf("sndfile-info " + Quoted(Write(folder, 2, DataFormat::Pcm24)) + " | tr -s ' \\n' ' '");
    for (const char* words :
         {"Frames : 4001", "Channels : 2", "Sample Rate : 32000", "NAME : Witness", "AUTH : Somebody",
          "Base Note : 45", "Detune : 12", "Mark ID : 1 Position : 100 Name : sust loop begin",
          "Mark ID : 4 Position : 2000 Name : rel loop end", "Mark ID : 5 Position : 17 Name : Hit",
          "=> backward begin : 1 end : 2", "=> forward begin : 3 end : 4"})
        EXPECT_NE(told.find(words), std::string::npos) << words << " in\n" << told;
}

TEST(AiffWitness, WhatFfmpegEncodes)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "ffmpeg is not installed";
    const ScratchFolder folder;
    for (const std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        const std::string source = Quoted(Write(folder, channels, DataFormat::Pcm24));
        for (const char* codec : {"pcm_s8", "pcm_s16be", "pcm_s16le", "pcm_s24be", "pcm_s32be", "pcm_f32be",
                                  "pcm_f64be", "pcm_alaw", "pcm_mulaw", "adpcm_ima_qt"}) {
            SCOPED_TRACE(std::string(codec) + " " + std::to_string(channels));
            const std::u16string path = folder.Wide("e.aiff");
            ASSERT_TRUE(
                Runs("ffmpeg -v error -nostdin -y -i " + source + " -c:a " + codec + " " + Quoted(path)));
            const std::vector<float> decoded =
                FloatsOf(std::string(kDecode) + Quoted(path) + std::string(kToFloats));
            ASSERT_GE(decoded.size(), kFrames * channels);
            EXPECT_EQ(SamplesOf(path), decoded);
        }
    }
}

TEST(AiffWitness, MaceAsFfmpegDecodesIt)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "ffmpeg is not installed";
    const ScratchFolder folder;
    std::uint32_t seed = 11;
    for (const unsigned channels : {1u, 2u}) {
        for (const std::string_view tag : {"MAC3", "MAC6"}) {
            ByteList data((tag == "MAC3" ? 2u : 1u) * channels * 5000);
            for (std::byte& byte : data) {
                seed = seed * 1664525 + 1013904223;
                byte = static_cast<std::byte>(seed >> 24);
            }
            const std::u16string path =
                folder.Put("m.aifc", IffImage("AIFC", {Comm(channels, 5000, 8, tag), Ssnd(data)}));
            const std::vector<float> decoded =
                FloatsOf(std::string(kDecode) + Quoted(path) + std::string(kToFloats));
            ASSERT_EQ(decoded.size(), 30000u * channels);
            EXPECT_EQ(SamplesOf(path), decoded);
        }
    }
}

TEST(AiffWitness, SoxWritesMaud)
{
    if (!HasProgram("sox"))
        GTEST_SKIP() << "sox is not installed";
    const ScratchFolder folder;
    for (const std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        const std::string source = Quoted(Write(folder, channels, DataFormat::Pcm16));
        for (const char* coding : {"-b 8", "-b 16", "-e a-law", "-e u-law"}) {
            SCOPED_TRACE(coding);
            const std::u16string path = folder.Wide("m.maud");
            ASSERT_TRUE(Runs("sox -D " + source + " " + coding + " " + Quoted(path)));
            std::vector<float> decoded = FloatsOf("sox -D " + Quoted(path) + " -t f32 -");
            ASSERT_GE(decoded.size(), kFrames * channels);
            decoded.resize(kFrames * channels); // sox takes the pad byte for a sample
            EXPECT_EQ(SamplesOf(path), decoded);
        }
    }
}

} // namespace
} // namespace vimbo
