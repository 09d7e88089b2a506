// MPEG audio beside ffmpeg, an independent decoder, and through LAME and back.
#include "codecs/mp2_encoder.h"
#include "codecs/mp3_encoder.h"
#include "codecs/mpeg_maker.h"
#include "codecs/mpeg_stream.h"

#include "base/last_error.h"
#include "programs.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>

namespace vimbo {
namespace {

using namespace vimbo::testing;
using Samples = std::vector<float>;

/// The standard's limit for full accuracy (ISO/IEC 11172-4): rms of the difference, full scale 1.
constexpr double kFullAccuracy = 1.0 / 32768 / 3.4641016;

class MemoryInput final : public ByteInput {
public:
    explicit MemoryInput(Bytes bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t Size() const noexcept override { return bytes_.size(); }
    bool Read(std::uint64_t offset, std::span<std::byte> out, std::size_t& got) noexcept override
    {
        got = offset < bytes_.size() ? std::min<std::size_t>(out.size(), bytes_.size() - offset) : 0;
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), got, out.begin());
        return true;
    }

private:
    Bytes bytes_;
};

class MemorySink final : public ByteSink {
public:
    bool Write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override
    {
        held.resize(std::max<std::size_t>(held.size(), offset + bytes.size()));
        std::ranges::copy(bytes, held.begin() + static_cast<std::ptrdiff_t>(offset));
        return true;
    }
    Bytes held;
};

struct Decoded {
    MpegInfo info;
    Samples samples;
};

Decoded DecodeAll(const Bytes& bytes, std::size_t pieceFrames = 1000)
{
    MemoryInput input(bytes);
    MpegStream stream;
    Decoded result;
    if (!stream.Open(input))
        return result;
    result.info = stream.Info();
    Samples piece(pieceFrames * stream.Channels());
    std::size_t frames = 0;
    while (stream.Read(piece, frames) && frames != 0)
        result.samples.insert(result.samples.end(), piece.begin(),
                              piece.begin() + static_cast<std::ptrdiff_t>(frames * stream.Channels()));
    EXPECT_EQ(result.samples.size(), result.info.frames * stream.Channels());
    return result;
}

Samples ToSamples(const std::string& text)
{
    Samples samples(text.size() / sizeof(float));
    std::memcpy(samples.data(), text.data(), samples.size() * sizeof(float));
    return samples;
}

Bytes ToBytes(const std::string& text)
{
    Bytes bytes(text.size());
    std::memcpy(bytes.data(), text.data(), text.size());
    return bytes;
}

/// What ffmpeg makes of it. A first frame without sound is passed over, but nothing cut off.
Samples FfmpegDecodes(const Bytes& bytes, unsigned layer)
{
    const ScratchFolder folder;
    folder.Put("stream.mp3", bytes);
    return ToSamples(OutputOf("ffmpeg -nostdin -loglevel quiet -flags2 skip_manual -c:a mp" +
                              std::to_string(layer) + "float -f mp3 -i '" +
                              (folder.Path() / "stream.mp3").string() + "' -f f32le -c:a pcm_f32le -"));
}

/// The same by mpg123.
Samples Mpg123Decodes(const Bytes& bytes)
{
    const ScratchFolder folder;
    folder.Put("stream.mp3", bytes);
    return ToSamples(
        OutputOf("mpg123 -q --no-gapless -e f32 -s '" + (folder.Path() / "stream.mp3").string() + "'"));
}

double RmsDifference(std::span<const float> a, std::span<const float> b)
{
    double sum = 0;
    const std::size_t count = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < count; ++i)
        sum += (double{a[i]} - b[i]) * (double{a[i]} - b[i]);
    return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(count, 1)));
}

double Loudness(std::span<const float> samples)
{
    return RmsDifference(samples, Samples(samples.size()));
}

/// Tones, noise and clicks, which call for short blocks; the channels are partly alike.
Samples MakeSound(std::size_t frames, unsigned channels, double rateHz)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> noise(-0.05f, 0.05f);
    Samples sound(frames * channels);
    for (std::size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rateHz;
        const double common = 0.3 * std::sin(2 * std::numbers::pi * 440 * t) + (i % 4000 < 20 ? 0.4 : 0.0);
        for (unsigned channel = 0; channel < channels; ++channel)
            sound[i * channels + channel] = static_cast<float>(
                common + 0.2 * std::sin(2 * std::numbers::pi * (900 + 350 * channel) * t) + noise(random));
    }
    return sound;
}

Bytes Encode(const Mp3Settings& settings, const Samples& sound)
{
    MemorySink sink;
    Mp3Encoder encoder;
    EXPECT_TRUE(encoder.Start(settings, sink) && encoder.Put(sound) && encoder.Finish());
    return sink.held;
}

Bytes Joined(std::initializer_list<std::span<const std::byte>> parts)
{
    Bytes all;
    for (const auto part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

TEST(MpegAudio, HuffmanCodesAreComplete)
{
    using namespace mpeg;
    const std::span<const std::string_view> tables[] = {
        kCodes1,  kCodes2,  kCodes3,  kCodes5,  kCodes6,  kCodes7,  kCodes8, kCodes9, kCodes10,
        kCodes11, kCodes12, kCodes13, kCodes15, kCodes16, kCodes24, kCodesA, kCodesB};
    for (std::size_t table = 0; table < std::size(tables); ++table) {
        double share = 0;
        std::vector<std::string> codes;
        for (const std::string_view row : tables[table]) {
            std::istringstream in{std::string(row)};
            for (std::string code; in >> code; codes.push_back(code))
                share += std::exp2(-static_cast<double>(code.size()));
        }
        EXPECT_EQ(share, 1.0) << "table " << table << " leaves out codes, or has some twice";
        std::ranges::sort(codes);
        for (std::size_t i = 1; i < codes.size(); ++i)
            EXPECT_FALSE(codes[i].starts_with(codes[i - 1])) << "table " << table << ": " << codes[i];
    }
}

TEST(MpegAudio, HeadersSayLengthsAndRates)
{
    struct Case {
        std::uint32_t word;
        unsigned layer, kbit, channels;
        std::uint32_t rateHz;
        std::size_t bytes, frames;
    };
    const Case cases[] = {
        {0xFFFB9000, 3, 128, 2, 44100, 417, 1152},  {0xFFFB9200, 3, 128, 2, 44100, 418, 1152},
        {0xFFFDE4C0, 2, 384, 1, 48000, 1152, 1152}, {0xFFFFE800, 1, 448, 2, 32000, 672, 384},
        {0xFFF380C0, 3, 64, 1, 22050, 208, 576},    {0xFFE318C0, 3, 8, 1, 8000, 72, 576},
        {0xFFF510C0, 2, 8, 1, 22050, 52, 1152},     {0xFFFB0000, 3, 0, 2, 44100, 0, 1152},
    };
    for (const Case& c : cases) {
        const Bytes bytes = {std::byte(c.word >> 24), std::byte(c.word >> 16 & 0xFF),
                             std::byte(c.word >> 8 & 0xFF), std::byte(c.word & 0xFF)};
        MpegHeader header;
        ASSERT_TRUE(ParseMpegHeader(bytes, header)) << std::hex << c.word;
        EXPECT_EQ(header.layer, c.layer);
        EXPECT_EQ(header.kbit, c.kbit) << std::hex << c.word;
        EXPECT_EQ(header.Channels(), c.channels);
        EXPECT_EQ(header.rateHz, c.rateHz) << std::hex << c.word;
        EXPECT_EQ(header.FrameBytes(), c.bytes) << std::hex << c.word;
        EXPECT_EQ(header.Frames(), c.frames);
    }
    for (const std::uint32_t word : {0xFFEB9000u, 0xFFF99000u, 0xFFFBF000u, 0xFFFB9C00u, 0xFF7B9000u}) {
        const Bytes bytes = {std::byte(word >> 24), std::byte(word >> 16 & 0xFF), std::byte(word >> 8 & 0xFF),
                             std::byte(word & 0xFF)};
        MpegHeader header;
        EXPECT_FALSE(ParseMpegHeader(bytes, header)) << std::hex << word;
    }
}

TEST(MpegAudio, MadeFramesDecodeAsFfmpegDecodesThem)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "no ffmpeg";
    unsigned seed = 0;
    const auto check = [&seed](FrameShape shape, bool changesBlocks) {
        FrameMaker maker(++seed);
        Bytes bytes;
        for (unsigned i = 0; i < 40; ++i) {
            if (changesBlocks) {
                shape.blockType = i / 2 % 4;
                // ffmpeg takes for granted that blocks follow each other as encoders have them.
                shape.isMixed = shape.blockType != 0 && i / 8 % 2 != 0;
            }
            const Bytes frame = maker.Make(shape);
            bytes.insert(bytes.end(), frame.begin(), frame.end());
        }
        const Samples theirs = FfmpegDecodes(bytes, shape.layer);
        const Decoded ours = DecodeAll(bytes);
        const double loudness = Loudness(theirs);
        EXPECT_EQ(ours.info.mpegFrames, 40u);
        EXPECT_EQ(ours.samples.size(), theirs.size());
        EXPECT_GT(loudness, 0.003);
        EXPECT_LT(loudness, 1.0);
        EXPECT_LT(RmsDifference(ours.samples, theirs), kFullAccuracy)
            << "version " << shape.version << " layer " << shape.layer << " rate " << shape.rateIndex
            << " mode " << shape.mode << '/' << shape.modeExtension << " blocks " << changesBlocks << " crc "
            << shape.hasCrc << " loudness " << loudness;
    };
    for (const unsigned mode : {0u, 1u, 2u, 3u})
        for (const unsigned extension : {0u, 1u, 2u, 3u}) {
            if (mode != 1 && extension != 0)
                continue;
            FrameShape shape;
            shape.mode = mode;
            shape.modeExtension = extension;
            shape.hasCrc = extension == 1;
            for (unsigned rate = 0; rate < 3; ++rate) {
                shape.rateIndex = rate;
                shape.layer = 1;
                shape.version = 3;
                check(shape, false);
                shape.layer = 3;
                for (const unsigned version : {3u, 2u, 0u}) {
                    shape.version = version;
                    if (rate == extension % 3)
                        check(shape, false);
                    check(shape, true);
                }
            }
        }
}

TEST(MpegAudio, EncodedSoundsDecodeAsOthersDecodeThem)
{
    if (!HasProgram("ffmpeg") || !HasProgram("mpg123"))
        GTEST_SKIP() << "no ffmpeg or mpg123";
    const auto check = [](const Bytes& bytes, const std::string& what) {
        const Decoded ours = DecodeAll(bytes);
        // ffmpeg 5.1 has band 18 of 24000 Hz end at line 330, which the standard has at 332.
        const Samples theirs =
            ours.info.first.rateHz == 24000 ? Mpg123Decodes(bytes) : FfmpegDecodes(bytes, 3);
        ASSERT_GT(theirs.size(), 8000u) << what;
        ASSERT_NE(ours.info.frames, 0u) << what;
        // They are told to leave nothing out.
        const unsigned channels = ours.info.first.Channels();
        const std::size_t cut = ours.info.isTrimmed ? (576 + 529) * channels : 0;
        ASSERT_GE(theirs.size(), ours.samples.size() + cut) << what;
        EXPECT_LT(RmsDifference(ours.samples, std::span(theirs).subspan(cut)), kFullAccuracy) << what;
        EXPECT_GT(Loudness(ours.samples), 0.1) << what;
    };
    for (const std::uint32_t rateHz :
         {44100u, 48000u, 32000u, 22050u, 24000u, 16000u, 11025u, 12000u, 8000u}) {
        for (const unsigned channels : {1u, 2u}) {
            const Samples sound = MakeSound(rateHz, channels, rateHz);
            for (const unsigned kbit : {32u, 64u, 320u})
                check(Encode({Mp3RateMode::Constant, rateHz, channels, kbit, 0}, sound),
                      "layer III, " + std::to_string(rateHz) + " Hz, " + std::to_string(kbit) + " kbit/s");
            check(Encode({Mp3RateMode::Variable, rateHz, channels, 0, 3}, sound), "VBR");
        }
    }
    const ScratchFolder folder;
    const auto layer2 = [&](const std::string& options) {
        const std::string out = (folder.Path() / "stream.mp2").string();
        const std::string output =
            OutputOf("ffmpeg -nostdin -loglevel quiet -y -f lavfi -i 'anoisesrc=d=1:a=0.3:c=pink,aphaser' " +
                     options + " -f mp2 '" + out + "' && cat '" + out + "'");
        const Bytes bytes = ToBytes(output);
        const Samples theirs = FfmpegDecodes(bytes, 2);
        const Decoded ours = DecodeAll(bytes);
        ASSERT_GT(ours.samples.size(), 10000u) << options;
        EXPECT_EQ(ours.info.first.layer, 2) << options;
        ASSERT_EQ(ours.samples.size(), theirs.size()) << options;
        EXPECT_LT(RmsDifference(ours.samples, theirs), kFullAccuracy) << options;
    };
    for (const char* rate : {"44100", "48000", "32000"})
        for (const char* kbit : {"48k", "64k", "192k"})
            layer2(std::string("-c:a mp2 -ac 1 -ar ") + rate + " -b:a " + kbit);
    for (const char* rate : {"44100", "48000", "32000"})
        for (const char* kbit : {"64k", "128k", "384k"})
            layer2(std::string("-c:a mp2 -ac 2 -ar ") + rate + " -b:a " + kbit);
    for (const char* rate : {"22050", "24000", "16000"})
        layer2(std::string("-c:a mp2 -ac 2 -ar ") + rate + " -b:a 96k");
    if (OutputOf("ffmpeg -hide_banner -encoders 2>/dev/null").find("libtwolame") != std::string::npos)
        layer2("-c:a libtwolame -mode joint_stereo -ac 2 -ar 44100 -b:a 96k");
}

TEST(MpegAudio, LayerIIThroughTheEncoderAndBack)
{
    const struct {
        Mp2Settings settings;
        unsigned kbit;
    } cases[] = {
        {{44100, 2, 192}, 192}, {{48000, 1, 60}, 64},   {{32000, 2, 32}, 64}, // no lower one for two channels
        {{44100, 1, 384}, 192}, {{24000, 2, 500}, 160}, {{16000, 1, 96}, 96},
    };
    for (const auto& c : cases) {
        const unsigned channels = c.settings.channels;
        const Samples sound = MakeSound(20001, channels, c.settings.rateHz);
        MemorySink sink;
        Mp2Encoder encoder;
        ASSERT_TRUE(encoder.Start(c.settings, sink) && encoder.Put(sound) && encoder.Finish());
        EXPECT_EQ(encoder.Kbit(), c.kbit) << c.settings.rateHz << " Hz";
        const Decoded back = DecodeAll(sink.held);
        EXPECT_EQ(back.info.first.layer, 2);
        EXPECT_EQ(back.info.first.kbit, c.kbit);
        EXPECT_EQ(back.info.first.rateHz, c.settings.rateHz);
        constexpr std::size_t kDelay = 481; // of both filters
        ASSERT_GE(back.info.frames, 20001 + kDelay);
        EXPECT_LT(back.info.frames, 20001 + kDelay + 2 * 1152);
        EXPECT_LT(RmsDifference(std::span(back.samples).subspan(kDelay * channels), sound), 0.04)
            << c.settings.rateHz << " Hz; one frame's shift alone would be 0.06 and more";
    }
    MemorySink sink;
    Mp2Encoder encoder;
    EXPECT_FALSE(encoder.Start({11025, 1, 64}, sink));
    EXPECT_EQ(LastError(), u"Format not supported by MP2 encoder");
    EXPECT_EQ(NearestMp2Rate(11025), 16000u);
}

TEST(MpegAudio, FreeFormatDecodesAsMpg123DecodesIt)
{
    if (!HasProgram("lame") || !HasProgram("sox") || !HasProgram("mpg123"))
        GTEST_SKIP() << "no lame, sox or mpg123";
    const ScratchFolder folder;
    const std::string path = (folder.Path() / "free").string();
    const std::string output = OutputOf("sox -n -r 44100 -c 2 -b 16 '" + path +
                                        ".wav' synth 1 pinknoise gain -6 && lame --quiet --freeformat -b "
                                        "400 -t '" +
                                        path + ".wav' '" + path + ".mp3' && cat '" + path + ".mp3'");
    const Bytes bytes = ToBytes(output);
    const Samples theirs = Mpg123Decodes(bytes);
    const Decoded ours = DecodeAll(bytes);
    ASSERT_GT(theirs.size(), 80000u);
    EXPECT_TRUE(ours.info.first.IsFree());
    EXPECT_NEAR(ours.info.kbit, 400, 1);
    EXPECT_EQ(ours.samples.size(), theirs.size());
    EXPECT_LT(RmsDifference(ours.samples, theirs), kFullAccuracy);
}

TEST(MpegAudio, GivesBackAsManyFramesAtTheSamePlaces)
{
    for (const std::uint32_t rateHz : {44100u, 32000u, 24000u, 11025u}) {
        for (const unsigned channels : {1u, 2u}) {
            for (const std::size_t frames :
                 {std::size_t{1}, std::size_t{575}, std::size_t{1152}, std::size_t{20001}}) {
                const Samples sound = MakeSound(frames, channels, rateHz);
                const Bytes bytes = Encode({Mp3RateMode::Constant, rateHz, channels, 320, 0}, sound);
                const Decoded back = DecodeAll(bytes);
                EXPECT_TRUE(back.info.isTrimmed);
                EXPECT_EQ(back.info.first.rateHz, rateHz);
                ASSERT_EQ(back.info.frames, frames) << rateHz << " Hz, " << channels << " channels";
                EXPECT_EQ(back.info.first.Channels(), channels);
                // One frame's shift alone would be a difference of 0.06 and more.
                if (frames > 1000) {
                    EXPECT_LT(RmsDifference(back.samples, sound), 0.035) << rateHz << " Hz";
                }
            }
        }
    }
}

TEST(MpegAudio, KeepsPlaceAndLevelAtEveryBitRate)
{
    // A tone of 700 Hz: a frame's shift is a difference of 0.04 at its zeros, a half dB one of 0.025 at its
    // peaks.
    Samples tone(20000);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<float>(0.4 * std::sin(0.1 * static_cast<double>(i)));
    for (const Mp3RateMode mode : {Mp3RateMode::Constant, Mp3RateMode::Average, Mp3RateMode::Variable}) {
        for (const unsigned kbit : {32u, 64u, 104u, 112u, 160u, 320u}) {
            const Samples back = DecodeAll(Encode({mode, 44100, 1, kbit, 2}, tone)).samples;
            ASSERT_EQ(back.size(), tone.size()) << kbit;
            float worst = 0;
            for (std::size_t i = 2000; i < 18000; ++i)
                worst = std::max(worst, std::abs(back[i] - tone[i]));
            EXPECT_LT(worst, 0.012f) << kbit << " kbit/s, mode " << static_cast<int>(mode);
        }
    }
}

TEST(MpegAudio, ReadsOnFromAnyFrameAsFromTheStart)
{
    // Frames of low bit rates reach far back for their data; that of the highest does not fit in what is
    // held.
    const Mp3Settings settings[] = {{Mp3RateMode::Constant, 44100, 2, 320, 0},
                                    {Mp3RateMode::Constant, 44100, 2, 32, 0},
                                    {Mp3RateMode::Constant, 24000, 2, 8, 0},
                                    {Mp3RateMode::Variable, 44100, 1, 0, 5},
                                    {Mp3RateMode::Constant, 8000, 1, 8, 0}};
    for (const Mp3Settings& setting : settings) {
        const Samples sound = MakeSound(80000, setting.channels, setting.rateHz);
        const Bytes bytes = Encode(setting, sound);
        ASSERT_EQ(DecodeAll(bytes).info.frames, 80000u) << setting.rateHz << " Hz, " << setting.kbit;
        const Samples whole = DecodeAll(bytes).samples;
        MemoryInput input(bytes);
        MpegStream stream;
        ASSERT_TRUE(stream.Open(input));
        Samples part(300 * setting.channels);
        for (const std::uint64_t place : {79700u, 47u, 0u, 1152u, 39999u, 576u, 2881u, 60000u, 60300u}) {
            std::size_t frames = 0;
            ASSERT_TRUE(stream.Seek(place) && stream.Read(part, frames));
            EXPECT_EQ(frames, 300u);
            EXPECT_TRUE(
                std::ranges::equal(part, std::span(whole).subspan(place * setting.channels, part.size())))
                << setting.rateHz << " Hz, frame " << place;
        }
        std::size_t frames = 0;
        EXPECT_FALSE(stream.Seek(80000));
        EXPECT_TRUE(stream.Read(part, frames) &&
                    std::ranges::equal(part, std::span(whole).first(part.size())));
    }
}

TEST(MpegAudio, PassesOverWhatIsNoFrame)
{
    const Bytes stream = Encode({Mp3RateMode::Constant, 44100, 2, 128, 0}, MakeSound(20000, 2, 44100));
    const Decoded plain = DecodeAll(stream);
    // A tag with something in it that looks like a frame, and one behind the stream.
    Bytes tag(10 + 300, std::byte{0});
    const unsigned char head[] = {'I', 'D', '3', 4, 0, 0, 0, 0, 2, 44};
    std::memcpy(tag.data(), head, sizeof head);
    std::copy_n(stream.begin(), 200, tag.begin() + 20);
    const Bytes garbage(1000, std::byte{0xFF}), id3v1(128, std::byte{'T'});
    for (const Bytes& bytes :
         {Joined({tag, stream}), Joined({garbage, stream}), Joined({tag, tag, garbage, stream, id3v1})}) {
        const Decoded other = DecodeAll(bytes);
        EXPECT_EQ(other.info.frames, plain.info.frames);
        EXPECT_EQ(other.samples, plain.samples);
    }
    // A claim of a longer delay than what is there: 4095 frames and the decoder's, of at most four times
    // 1152.
    Bytes claimed(stream.begin(), stream.begin() + 5 * 418);
    const Bytes mark = ToBytes("LAME");
    const auto place =
        std::search(claimed.begin(), claimed.end(), mark.begin(), mark.end()) - claimed.begin();
    ASSERT_LT(place, 400);
    claimed[static_cast<std::size_t>(place) + 21] = std::byte{0xFF};
    claimed[static_cast<std::size_t>(place) + 22] |= std::byte{0xF0};
    EXPECT_FALSE(DecodeAll(claimed).info.isTrimmed);
    EXPECT_GE(DecodeAll(claimed).info.frames, 3 * 1152u);
    // Garbage between two frames costs what it covers, and no more than the data that it held.
    const auto cut = static_cast<std::ptrdiff_t>(10 * 418);
    const Decoded mended = DecodeAll(Joined({std::span(stream).first(static_cast<std::size_t>(cut)), garbage,
                                             std::span(stream).subspan(static_cast<std::size_t>(cut))}));
    EXPECT_NEAR(static_cast<double>(mended.info.mpegFrames), static_cast<double>(plain.info.mpegFrames), 1);
    // A stream whose start is missing: its first frames want data that are not there.
    const Decoded late = DecodeAll(Bytes(stream.begin() + 5000, stream.end()));
    const std::size_t shared = late.samples.size() - 4 * 1152 * 2;
    ASSERT_GT(shared, 4000u);
    EXPECT_FALSE(late.info.isTrimmed);
    const std::size_t end = plain.info.mpegFrames * 1152 * 2 - 2 * 1105; // of all that is decoded
    const auto ours = std::span(late.samples).last(shared).first(4000);
    const auto theirs = std::span(plain.samples).subspan(end - shared, 4000);
    EXPECT_LT(RmsDifference(ours, theirs), 1e-6);
}

TEST(MpegAudio, DamagedStreamsEndInSilenceOrNoise)
{
    const Bytes stream = Encode({Mp3RateMode::Constant, 44100, 2, 64, 0}, MakeSound(8000, 2, 44100));
    std::mt19937 random(3);
    for (unsigned round = 0; round < 300; ++round) {
        Bytes bytes = stream;
        for (unsigned i = 0; i <= round % 20; ++i)
            bytes[random() % bytes.size()] = static_cast<std::byte>(random());
        bytes.resize(bytes.size() - random() % 200);
        const Decoded decoded = DecodeAll(bytes);
        EXPECT_LE(decoded.info.mpegFrames, bytes.size() / 50);
        for (const float sample : decoded.samples)
            ASSERT_TRUE(std::isfinite(sample));
    }
}

TEST(MpegAudio, RefusesWhatItCannotTake)
{
    // The last one begins with a header of the free format, to which no second one comes.
    for (const Bytes& bytes : {Bytes{}, Bytes(3, std::byte{0xFF}), Bytes(5000, std::byte{0x55}),
                               Joined({MakeBytes({0xFF, 0xFB, 0x00, 0x00}), Bytes(300, std::byte{0})})}) {
        MemoryInput input(bytes);
        MpegStream stream;
        EXPECT_FALSE(stream.Open(input));
        EXPECT_EQ(LastError(), u"No MPEG audio found");
    }
    MemorySink sink;
    for (const std::uint32_t rateHz : {96000u, 44099u, 0u}) {
        Mp3Encoder encoder;
        EXPECT_FALSE(encoder.Start({Mp3RateMode::Constant, rateHz, 2, 128, 0}, sink));
        EXPECT_EQ(LastError(), u"Format not supported by MP3 encoder");
    }
    EXPECT_EQ(NearestMp3Rate(96000), 48000u);
    EXPECT_EQ(NearestMp3Rate(44000), 44100u);
    EXPECT_EQ(NearestMp3Rate(0), 8000u);
}

} // namespace
} // namespace vimbo
