#include "base/last_error.h"
#include "codecs/gsm.h"
#include "formats/open.h"
#include "formats/save.h"
#include "formats/speech/coded_frames.h"
#include "formats/speech/speech.h"
#include "test_files.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::MakeBytes;
using testing::ScratchFolder;
using testing::ScriptedHost;

/// Two soft partials, at the rate that the coding expects.
Waveform& AddTone(Collection& collection, std::uint32_t rateHz, std::uint32_t frames)
{
    Waveform& wave = collection.Create<Waveform>(u"tone");
    wave.rateHz = rateHz;
    wave.frames = frames;
    const std::span<float> samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double t = 2 * std::numbers::pi * static_cast<double>(i) / rateHz;
        samples[i] = static_cast<float>(0.3 * std::sin(400 * t) + 0.1 * std::sin(1100 * t));
    }
    return wave;
}

double SignalToNoiseDb(std::span<const float> wanted, std::span<const float> got, std::size_t delay)
{
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 400; i + delay < std::min(wanted.size(), got.size()); ++i) {
        signal += double{wanted[i]} * wanted[i];
        noise += std::pow(double{wanted[i]} - got[i + delay], 2);
    }
    return 10 * std::log10(signal / std::max(noise, 1e-20));
}

int FindWriter(std::u16string_view extension, std::u16string_view words)
{
    for (int row = 0; row < static_cast<int>(kFormatRowCount); ++row) {
        const FormatRow& entry = *FindRow(row);
        if (entry.extension == extension && entry.write &&
            entry.description.find(words) != std::u16string_view::npos)
            return row;
    }
    return -1;
}

struct RoundTrip {
    std::u16string_view extension;
    std::u16string_view words;
    std::uint32_t rateHz;
    std::uint64_t bytes;  ///< of 1600 frames
    std::uint32_t frames; ///< that come back
    std::size_t packingAnswer;
    std::size_t widthAnswer;
    std::size_t delay;
    double leastDb;
};

TEST(SpeechRows, EveryWriterIsReadBackBySiblings)
{
    const RoundTrip rows[] = {
        {u"g721", u"Big", 8000, 800, 1600, 0, 0, 0, 20},
        {u"g721", u"Little", 8000, 800, 1600, 1, 0, 0, 20},
        {u"g721-4", u"Little", 8000, 800, 1600, 1, 0, 0, 20},
        {u"g723-3", u"Big", 8000, 600, 1600, 0, 0, 0, 14},
        {u"g723-5", u"Little", 8000, 1000, 1600, 1, 0, 0, 25},
        {u"g723", u"Little", 8000, 600, 1600, 1, 0, 0, 14},
        {u"g726-2", u"Big", 8000, 400, 1600, 0, 0, 0, 7},
        {u"g726-3", u"Little", 8000, 600, 1600, 1, 0, 0, 14},
        {u"g726-4", u"Big", 8000, 800, 1600, 0, 0, 0, 20},
        {u"g726-5", u"Little", 8000, 1000, 1600, 1, 0, 0, 25},
        {u"g726", u"Big", 8000, 800, 1600, 0, 2, 0, 20},
        {u"g722", u"Big", 16000, 800, 1600, 0, 2, 22, 20},
        {u"g722-6", u"Little", 16000, 600, 1600, 1, 0, 22, 14},
        {u"g722-7", u"Big", 16000, 700, 1600, 0, 0, 22, 17},
        {u"g722-8", u"64", 16000, 800, 1600, 0, 0, 22, 20},
        {u"gsm", u"Raw", 8000, 330, 1600, 0, 0, 0, 6},
        {u"gsm", u"with header", 8000, 60 + 380, 1600, 0, 0, 0, 6},
    };
    for (const RoundTrip& test : rows) {
        SCOPED_TRACE(WideToUtf8(test.extension) + " " + WideToUtf8(test.words));
        const ScratchFolder folder;
        Collection source;
        Waveform& tone = AddTone(source, test.rateHz, 1600);
        tone.saveFormat = test.extension == u"g723" ? SaveFormat::Pcm8 : SaveFormat::Adpcm4;
        const int row = FindWriter(test.extension, test.words);
        ASSERT_GE(row, 0);
        const auto path = folder.Wide("x." + WideToUtf8(test.extension));
        FormatChoice choice = AutoChoice(row);
        if (test.extension == u"g723")
            choice.caps = FormatBit(DataFormat::Adpcm3) | kCapsMono;
        ASSERT_TRUE(SaveToPath(&tone, path, row, choice)) << WideToUtf8(LastError());
        EXPECT_EQ(folder.Get("x." + WideToUtf8(test.extension)).size(), test.bytes);

        ScriptedHost host;
        host.answers = {{"bit-packing", test.packingAnswer}, {"code-bits", test.widthAnswer}};
        Collection loaded;
        loaded.SetHost(host);
        ASSERT_TRUE(LoadFile(loaded, path, AllowRaw::No)) << WideToUtf8(LastError());
        ASSERT_EQ(loaded.CountOf(ItemKind::Waveform), 1u);
        Waveform& wave = *loaded.All<Waveform>().begin();
        EXPECT_EQ(wave.rateHz, test.rateHz);
        EXPECT_EQ(wave.frames, test.frames);
        const auto got = wave.LockSamples();
        ASSERT_EQ(got.size(), test.frames) << WideToUtf8(LastError());
        EXPECT_GT(SignalToNoiseDb(tone.LockSamples(), got, test.delay), test.leastDb);
    }
}

TEST(SpeechRows, QuestionsAreAskedOnceIfSoWished)
{
    const ScratchFolder folder;
    const auto path = folder.Put("x.g726", Bytes(20, std::byte{0x5A}));
    const auto framesOf = [&](ScriptedHost& host) {
        Collection collection;
        collection.SetHost(host);
        EXPECT_TRUE(LoadFile(collection, path, AllowRaw::No));
        return collection.All<Waveform>().begin()->frames;
    };
    ScriptedHost host;
    host.answers = {{"bit-packing", 1}, {"code-bits", 3}, {"ask-again", 1}};
    EXPECT_EQ(framesOf(host), 32u) << "20 bytes of 5-bit codes";
    ASSERT_EQ(host.asked.size(), 3u);
    EXPECT_EQ(host.asked[0], u"Is the data stored with 'Big Endian' or 'Little Endian' bit packing?");
    EXPECT_EQ(host.asked[1], u"Is it 2, 3, 4, or 5-bit (16, 24, 32, 40 or 64 kbps) ADPCM data?");
    EXPECT_EQ(host.asked[2], u"Ask the same again the next time you open a G.726 file?");
    host.answers["code-bits"] = 0;
    EXPECT_EQ(framesOf(host), 32u) << "answered for the session";
    EXPECT_EQ(host.asked.size(), 3u);

    ScriptedHost asking;
    asking.answers = {{"code-bits", 0}, {"ask-again", 0}};
    EXPECT_EQ(framesOf(asking), 80u);
    asking.answers["code-bits"] = 2;
    EXPECT_EQ(framesOf(asking), 40u);
    EXPECT_EQ(asking.asked.size(), 5u) << "the third question comes once, the others each time";

    ScriptedHost fixed;
    Collection collection;
    collection.SetHost(fixed);
    ASSERT_TRUE(LoadFile(collection, folder.Put("x.g722-8", Bytes(4, std::byte{1})), AllowRaw::No));
    EXPECT_TRUE(fixed.asked.empty()) << "the packing of whole bytes is no question";
    EXPECT_EQ(collection.All<Waveform>().begin()->frames, 8u);
}

TEST(SpeechRows, GsmStreamsThatAreNone)
{
    const ScratchFolder folder;
    Bytes frames(33 * 6);
    for (std::size_t at = 0; at < frames.size(); at += 33)
        frames[at] = std::byte{0xD0};
    const auto load = [&](const char* name, const Bytes& bytes, Collection& collection) {
        EXPECT_TRUE(LoadFile(collection, folder.Put(name, bytes), AllowRaw::No)) << WideToUtf8(LastError());
        return RowDescription(collection.formatRow);
    };
    Collection good;
    EXPECT_EQ(load("good.gsm", frames, good), u"Raw GSM 06.10");
    EXPECT_TRUE(good.All<Waveform>().begin()->EnsureData());

    // The nibble is lost behind what detection sees.
    Bytes longer(33 * 1200);
    for (std::size_t at = 0; at < longer.size(); at += 33)
        longer[at] = std::byte{0xD0};
    longer[33 * 1100] = std::byte{0x10};
    Collection broken;
    EXPECT_EQ(load("broken.gsm", longer, broken), u"Raw GSM 06.10");
    Waveform& wave = *broken.All<Waveform>().begin();
    EXPECT_FALSE(wave.EnsureData());
    EXPECT_EQ(LastError(), u"Corrupted GSM stream");
    EXPECT_FALSE(wave.HasBlock());

    frames[33] = std::byte{0x10};
    Collection aligned;
    EXPECT_EQ(load("aligned.gsm", frames, aligned), u"Raw GSM 06.10 'byte aligned'");
    EXPECT_TRUE(aligned.All<Waveform>().begin()->EnsureData());

    Bytes records(38 * 3);
    for (std::size_t at = 0; at < records.size(); at += 38)
        records[at] = std::byte{182};
    Collection modem;
    EXPECT_EQ(load("modem.gsm", records, modem), u"USR GSM without header");
    EXPECT_EQ(modem.All<Waveform>().begin()->frames, 480u);
}

TEST(CodedFrames, AnyPlaceReadsLikeTheWhole)
{
    Collection collection;
    Waveform& wave = collection.Create<Waveform>(u"w");
    Bytes bytes(200000);
    std::uint32_t seed = 1;
    for (std::byte& byte : bytes)
        byte = static_cast<std::byte>((seed = seed * 1664525 + 1013904223) >> 24);
    MemoryFile file(bytes);
    wave.frames = 400100; // a hundred more than there are codes: silence
    const auto restart = [] { return MakeDialogicDecoder(); };
    CodedFrames whole(wave, 0, bytes.size(), restart, file, nullptr);
    std::vector<float> all(wave.frames);
    ASSERT_TRUE(whole.Read(0, all));
    EXPECT_EQ(all.back(), 0.0f);
    EXPECT_NE(all[399999], 0.0f);
    CodedFrames pieces(wave, 0, bytes.size(), restart, file, nullptr);
    for (std::uint32_t first : {0u, 131070u, 131073u, 5u, 399990u, 400050u, 262144u}) {
        std::vector<float> some(20);
        ASSERT_TRUE(pieces.Read(first, some));
        EXPECT_TRUE(std::equal(some.begin(), some.end(), all.begin() + first)) << first;
    }
}

TEST(LoadCodedStream, LengthsBeyondBeliefAreLowered)
{
    Collection collection;
    Waveform& wave = collection.Create<Waveform>(u"w");
    MemoryFile file(Bytes(100, std::byte{0x17}));
    const auto restart = [] { return MakeDialogicDecoder(); };
    wave.frames = 0xFFFFFFFF;
    ASSERT_TRUE(LoadCodedStream(wave, file, 50, 1000, restart));
    EXPECT_EQ(wave.frames, 100u);
    wave.frames = 0xFFFFFFFF;
    EXPECT_FALSE(LoadCodedStream(wave, file, 500, 1000, restart));
    EXPECT_EQ(LastError(), u"Reading from file failed");
    wave.frames = 0;
    EXPECT_FALSE(LoadCodedStream(wave, file, 0, 100, restart));
    EXPECT_EQ(LastError(), u"Zero length");
}

} // namespace
} // namespace vimbo
