// FLAC and Ogg files of independent programs, read; files that we write, checked and decoded by them. A
// missing program skips its test with a notice.
#include "base/last_error.h"
#include "formats/open.h"
#include "formats/save.h"
#include "programs.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vimbo {
namespace {

using testing::HasProgram;

using testing::Bytes;
using testing::MakeWav;
using testing::ScratchFolder;

constexpr int kFlacRow = 109;
constexpr int kFlacMaxRow = 110;
constexpr int kOggRow = 279;
constexpr std::size_t kFrames = 20001;

bool Runs(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<float> FloatsOf(const std::string& command)
{
    std::string output;
    FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    std::array<char, 65536> buffer;
    while (const std::size_t got = pipe != nullptr ? std::fread(buffer.data(), 1, buffer.size(), pipe) : 0)
        output.append(buffer.data(), got);
    if (pipe != nullptr)
        ::pclose(pipe);
    std::vector<float> floats(output.size() / sizeof(float));
    std::memcpy(floats.data(), output.data(), floats.size() * sizeof(float));
    return floats;
}

/// A smooth tone under noise of the lowest bits, which no coding can leave out.
Bytes MakePcm(unsigned channels, unsigned bits)
{
    Bytes data;
    std::uint32_t seed = 5;
    for (std::size_t i = 0; i < kFrames * channels; ++i) {
        seed = seed * 1664525 + 1013904223;
        const double tone = 0.6 * std::sin(static_cast<double>(i / channels) * 0.05);
        const auto code = static_cast<std::int32_t>(std::ldexp(tone, static_cast<int>(bits) - 1)) +
                          static_cast<std::int32_t>(seed >> 24);
        for (unsigned byte = 0; byte < bits / 8; ++byte)
            data.push_back(static_cast<std::byte>(code >> (8 * byte)));
    }
    return data;
}

std::vector<float> SamplesOf(Collection& collection, const std::u16string& path)
{
    EXPECT_TRUE(LoadFile(collection, path, AllowRaw::No)) << WideToUtf8(LastError());
    if (collection.CountOf(ItemKind::Waveform) == 0)
        return {};
    const auto samples = collection.All<Waveform>().begin()->LockSamples();
    return {samples.begin(), samples.end()};
}

/// ffmpeg leaves out up to a block at the end, or adds it.
void ExpectNear(const std::vector<float>& samples, const std::vector<float>& wanted)
{
    constexpr std::size_t kMostMissing = 2048;
    ASSERT_GE(wanted.size() + kMostMissing, samples.size());
    for (std::size_t i = 0; i < std::min(samples.size(), wanted.size()); ++i)
        ASSERT_NEAR(samples[i], wanted[i], 2e-5) << i;
}

TEST(XiphWitness, FilesOfTheFlacProgram)
{
    if (!HasProgram("flac"))
        GTEST_SKIP() << "flac is not installed";
    for (const unsigned channels : {1u, 2u}) {
        for (const unsigned bits : {16u, 24u, 32u}) { // 32 since flac 1.4
            if (bits == 32 && !Runs("flac --version | grep -q 'flac 1.[4-9]'"))
                continue;
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(bits) + " bits");
            const ScratchFolder folder;
            const std::u16string wav =
                folder.Put("x.wav", MakeWav(channels, 44100, bits, MakePcm(channels, bits)));
            const std::u16string flac = folder.Wide("x.flac");
            ASSERT_TRUE(Runs("flac -8 -o '" + WideToPath(flac) + "' '" + WideToPath(wav) + "'"));
            Collection first, second;
            const std::vector<float> wanted = SamplesOf(first, wav);
            ASSERT_EQ(wanted.size(), kFrames * channels);
            EXPECT_TRUE(SamplesOf(second, flac) == wanted);
            EXPECT_EQ(second.All<Waveform>().begin()->bits, bits);
        }
    }
}

TEST(XiphWitness, TheFlacProgramRestoresTheWavFile)
{
    if (!HasProgram("flac"))
        GTEST_SKIP() << "flac is not installed";
    for (const unsigned bits : {8u, 16u, 24u}) {
        for (const unsigned channels : {1u, 2u}) {
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(bits) + " bits");
            const ScratchFolder folder;
            const std::u16string wav =
                folder.Put("x.wav", MakeWav(channels, 44100, bits, MakePcm(channels, bits)));
            Collection source;
            ASSERT_FALSE(SamplesOf(source, wav).empty());
            Waveform& wave = *source.All<Waveform>().begin();
            wave.rootKey = 40;
            wave.loop = {.type = LoopType::Forward, .start = 1000, .end = 15000};
            wave.markers = {Marker{.position = 77, .name = u"Hit"}};
            wave.SetText(kTextArtist, u"\u00C9va");
            const std::u16string flac = folder.Wide("y.flac");
            ASSERT_TRUE(SaveToPath(&wave, flac, bits == 16 ? kFlacMaxRow : kFlacRow, AutoChoice(kFlacRow)));
            EXPECT_TRUE(Runs("flac -t -w '" + WideToPath(flac) + "'"));
            const std::u16string back = folder.Wide("z.wav");
            ASSERT_TRUE(Runs("flac -d --keep-foreign-metadata -o '" + WideToPath(back) + "' '" +
                             WideToPath(flac) + "'"));
            Collection restored;
            const auto samples = wave.LockSamples();
            EXPECT_TRUE(SamplesOf(restored, back) == std::vector<float>(samples.begin(), samples.end()));
            const Waveform& again = *restored.All<Waveform>().begin();
            EXPECT_EQ(again.rootKey, 40);
            EXPECT_EQ(again.loop, wave.loop);
            ASSERT_EQ(again.markers.size(), 1u);
            EXPECT_EQ(again.markers[0].name, u"Hit");
            EXPECT_TRUE(!HasProgram("metaflac") || Runs("metaflac --show-tag=ARTIST '" + WideToPath(flac) +
                                                        "' | grep -q 'ARTIST=\u00C9va'"));
        }
    }
}

TEST(XiphWitness, FilesOfOggenc)
{
    if (!HasProgram("oggenc") || !HasProgram("ffmpeg"))
        GTEST_SKIP() << "oggenc or ffmpeg is not installed";
    for (const unsigned channels : {1u, 2u}) {
        SCOPED_TRACE(channels);
        const ScratchFolder folder;
        const std::u16string wav = folder.Put("x.wav", MakeWav(channels, 44100, 16, MakePcm(channels, 16)));
        const std::u16string ogg = folder.Wide("x.ogg");
        ASSERT_TRUE(Runs("oggenc -q 4 -t 'Na\u00EFve' -c LOOPSTART=100 -c LOOPLENGTH=900 -o '" +
                         WideToPath(ogg) + "' '" + WideToPath(wav) + "'"));
        const std::vector<float> wanted =
            FloatsOf("ffmpeg -v error -nostdin -i '" + WideToPath(ogg) + "' -f f32le -c:a pcm_f32le -");
        Collection read;
        const std::vector<float> samples = SamplesOf(read, ogg);
        ASSERT_EQ(samples.size(), kFrames * channels);
        ExpectNear(samples, wanted);
        const Waveform& wave = *read.All<Waveform>().begin();
        EXPECT_EQ(wave.GetName(), u"Na\u00EFve");
        EXPECT_EQ(wave.loop.start, 100);
        EXPECT_EQ(wave.loop.end, 1000);
    }
}

TEST(XiphWitness, OtherProgramsDecodeOurOgg)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "ffmpeg is not installed";
    for (const unsigned channels : {1u, 2u}) {
        SCOPED_TRACE(channels);
        const ScratchFolder folder;
        const std::u16string wav = folder.Put("x.wav", MakeWav(channels, 44100, 16, MakePcm(channels, 16)));
        const std::u16string ogg = folder.Wide("x.ogg");
        Collection source, read;
        ASSERT_FALSE(SamplesOf(source, wav).empty());
        ASSERT_TRUE(SaveToPath(&*source.All<Waveform>().begin(), ogg, kOggRow, AutoChoice(kOggRow)));
        const std::vector<float> wanted =
            FloatsOf("ffmpeg -v error -nostdin -i '" + WideToPath(ogg) + "' -f f32le -c:a pcm_f32le -");
        const std::vector<float> samples = SamplesOf(read, ogg);
        ASSERT_EQ(samples.size(), kFrames * channels);
        ExpectNear(samples, wanted);
        EXPECT_TRUE(!HasProgram("ogginfo") || Runs("ogginfo '" + WideToPath(ogg) + "'"));
    }
}

} // namespace
} // namespace vimbo
