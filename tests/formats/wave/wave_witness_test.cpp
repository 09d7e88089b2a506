// WAV files that we write, opened by independent programs. A missing program skips its test with a notice.
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

constexpr int kWavRow = 480;
constexpr std::size_t kFrames = 4001;

std::vector<float> FloatsOf(const std::string& bytes)
{
    std::vector<float> floats(bytes.size() / sizeof(float));
    std::memcpy(floats.data(), bytes.data(), floats.size() * sizeof(float));
    return floats;
}

/// Noise with a loop, a tuning and two markers; an odd number of frames, so that 8-bit mono data need a pad.
Waveform& AddSound(Collection& collection, std::uint8_t channels)
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
    wave.loop = {.type = LoopType::Alternating, .start = 100, .end = 3900};
    wave.markers.push_back({.isRange = false, .position = 17, .end = 0, .name = u"Hit"});
    wave.markers.push_back({.isRange = true, .position = 1000, .end = 2000, .name = u"Part"});
    return wave;
}

struct Written {
    std::string path;
    std::vector<float> samples; ///< as we read them back
};

Written Write(const ScratchFolder& folder, std::uint8_t channels, DataFormat format)
{
    Collection source;
    FormatChoice choice = AutoChoice(kWavRow);
    choice.caps = FormatBit(format) | kCapsMono | kCapsStereo;
    const std::u16string path = folder.Wide("w" + std::to_string(channels) + ".wav");
    EXPECT_TRUE(SaveToPath(&AddSound(source, channels), path, kWavRow, choice));
    Collection read;
    EXPECT_TRUE(LoadFile(read, path, AllowRaw::No));
    const auto samples = read.All<Waveform>().begin()->LockSamples();
    return {WideToPath(path), {samples.begin(), samples.end()}};
}

constexpr std::array kPlainFormats = {DataFormat::Pcm8,  DataFormat::Pcm16,   DataFormat::Pcm24,
                                      DataFormat::Pcm32, DataFormat::Float32, DataFormat::MuLaw,
                                      DataFormat::ALaw};

/// Decodes every plain format with the program and compares sample by sample.
void CompareDecoded(const std::string& before, const std::string& after)
{
    const ScratchFolder folder;
    for (std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        for (DataFormat format : kPlainFormats) {
            SCOPED_TRACE(WideToUtf8(DataFormatName(format)));
            const Written file = Write(folder, channels, format);
            const std::vector<float> decoded = FloatsOf(ResultOf(before + "'" + file.path + "'" + after));
            // The pad byte is counted in the data: one byte more may be one frame more in 8-bit mono.
            const std::size_t pad = channels == 1 && DataFormatBits(format) == 8 ? 1 : 0;
            ASSERT_GE(decoded.size(), kFrames * channels);
            ASSERT_LE(decoded.size(), kFrames * channels + pad);
            ASSERT_GE(file.samples.size(), kFrames * channels);
            for (std::size_t i = 0; i < kFrames * channels; ++i)
                ASSERT_NEAR(decoded[i], file.samples[i], 1e-7) << i;
        }
    }
}

TEST(WaveWitness, SoxDecodesTheSameSamples)
{
    if (!HasProgram("sox"))
        GTEST_SKIP() << "sox is not installed";
    CompareDecoded("sox ", " -t f32 -");
}

TEST(WaveWitness, FfmpegDecodesTheSameSamples)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "ffmpeg is not installed";
    CompareDecoded("ffmpeg -v error -nostdin -i ", " -f f32le -c:a pcm_f32le -");
}

TEST(WaveWitness, FfmpegDecodesTheSameCompressedSamples)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "ffmpeg is not installed";
    const ScratchFolder folder;
    for (const std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        const Written file = Write(folder, channels, DataFormat::Compressed);
        const std::vector<float> decoded =
            FloatsOf(ResultOf("ffmpeg -v error -nostdin -i '" + file.path + "' -f f32le -c:a pcm_f32le -"));
        // It does not cut off the frame without sound and the delays of both filters.
        const std::size_t cut = (1152 + 576 + 529) * channels;
        ASSERT_EQ(file.samples.size(), kFrames * channels);
        ASSERT_GE(decoded.size(), cut + file.samples.size());
        for (std::size_t i = 0; i < file.samples.size(); ++i)
            ASSERT_NEAR(decoded[cut + i], file.samples[i], 2e-5) << i;
    }
}

TEST(WaveWitness, LibsndfileSeesLoopsMarkersAndTexts)
{
    if (!HasProgram("sndfile-info"))
        GTEST_SKIP() << "sndfile-info is not installed";
    const ScratchFolder folder;
    const std::string told = ResultOf("sndfile-info '" + Write(folder, 2, DataFormat::Pcm16).path + "'");
    for (const char* line : {"Frames      : 4001", "Channels    : 2", "Midi Note    : 45", "Loop Count   : 1",
                             "Type :  1  Start :   100  End :  3899", "Offset :    17", "Offset :  1000",
                             "labl : 0 : Hit", "labl : 1 : Part", "INAM : Witness"})
        EXPECT_NE(told.find(line), std::string::npos) << line << " in\n" << told;
}

} // namespace
} // namespace vimbo
