#include "codecs/gsm.h"

#include "test_files.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

namespace vimbo {
namespace {

using namespace vimbo::testing;
using Pcm = std::vector<std::int16_t>;

constexpr std::array kFramings{GsmFraming::Raw, GsmFraming::ByteAligned, GsmFraming::Wav};

// --- Sounds, 8000 Hz, in whole numbers only, so that they are the same on every machine ---

class Lcg {
public:
    explicit Lcg(std::uint32_t seed) : state_(seed) {}
    int Below(int limit)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return static_cast<int>(std::uint64_t{state_} * static_cast<std::uint32_t>(limit) >> 32);
    }
    int Around(int size) { return Below(2 * size + 1) - size; }

private:
    std::uint32_t state_;
};

/// Two poles at radius 0.97; `cosine` of their angle has 14 fraction bits.
struct Resonator {
    int Next(int in, int cosine)
    {
        const std::int64_t feedback =
            std::int64_t{cosine} * 31785 * last - std::int64_t{15416 << 14} * beforeLast;
        const int out = in + static_cast<int>((feedback + (1 << 27)) >> 28);
        beforeLast = last;
        return last = out;
    }
    int last = 0, beforeLast = 0;
};

std::int16_t Clip(int value)
{
    return static_cast<std::int16_t>(std::clamp(value, -32768, 32767));
}

/// Softened pulses or noise through two formants, changing every 150 ms, with pauses.
Pcm SpeechLike(std::size_t count)
{
    Lcg random(1);
    Resonator low, high;
    Pcm out(count);
    int level = 0, glottis = 0, period = 1, lowCosine = 0, highCosine = 0, phase = 0;
    bool isVoiced = true;
    for (std::size_t k = 0; k < count; ++k) {
        if (k % 1200 == 0) {
            level = random.Below(4) == 0 ? 0 : 1000 + random.Below(8000);
            period = 30 + random.Below(70);
            lowCosine = 12500 + random.Below(3300);
            highCosine = random.Below(11500);
            isVoiced = random.Below(3) != 0;
        }
        phase = phase + 1 >= period ? 0 : phase + 1;
        const int drive = isVoiced ? (phase == 0 ? level : 0) : random.Around(level / 16);
        glottis += (drive * 256 - glottis) / 8;
        out[k] = Clip(high.Next(low.Next(glottis / 256, lowCosine), highCosine) / 2);
    }
    return out;
}

/// Four triangle waves in harmony, struck anew every 400 ms.
Pcm MusicLike(std::size_t count)
{
    Pcm out(count);
    for (std::size_t k = 0; k < count; ++k) {
        int sum = 0;
        for (const unsigned step : {1802u, 2270u, 2700u, 3604u})
            sum += std::abs(static_cast<int>(k * (step + k / 3200 % 5 * 101) & 0xFFFF) - 32768) - 16384;
        out[k] = Clip(sum / 3 * (3200 - static_cast<int>(k % 3200)) / 3200);
    }
    return out;
}

Pcm NoiseOf(std::size_t count, int size)
{
    Lcg random(2);
    Pcm out(count);
    for (std::int16_t& sample : out)
        sample = Clip(random.Around(size));
    return out;
}

/// Square waves of 4000 and 2000 Hz in turn: each change drives the other's filters into saturation.
Pcm FullScale(std::size_t count)
{
    Pcm out(count);
    for (std::size_t k = 0; k < count; ++k)
        out[k] = k / (1 + k / 161 % 2) % 2 == 0 ? -32768 : 32767;
    return out;
}

constexpr std::string_view kFullScale = "full scale";

struct NamedSound {
    std::string_view name;
    Pcm samples;
};

std::vector<NamedSound> AllSounds(std::size_t count)
{
    return {
        {"speech", SpeechLike(count)},       {"music", MusicLike(count)}, {"noise", NoiseOf(count, 20000)},
        {"quiet noise", NoiseOf(count, 9)},  {"silence", Pcm(count)},     {kFullScale, FullScale(count)},
        {"lowest value", Pcm(count, -32768)}};
}

/// Any codes at all; raw frames with their nibble.
Bytes RandomFrames(GsmFraming framing, std::size_t blocks)
{
    Lcg random(77);
    const std::size_t blockBytes = GsmEncodedBytes(framing, 1);
    Bytes out(blocks * blockBytes);
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<std::byte>(random.Below(256));
    for (std::size_t i = 0; framing == GsmFraming::Raw && i < out.size(); i += blockBytes)
        out[i] = (out[i] & std::byte{0x0F}) | std::byte{0xD0};
    return out;
}

// --- The coder under test, over 16-bit samples ---

std::vector<float> ToFloats(const Pcm& samples)
{
    std::vector<float> out;
    for (const std::int16_t sample : samples)
        out.push_back(static_cast<float>(sample) / 32768.0f);
    return out;
}

Bytes Encode(GsmFraming framing, std::span<const float> samples)
{
    GsmEncoder state;
    Bytes out(GsmEncodedBytes(framing, samples.size()));
    EXPECT_EQ(EncodeGsm(state, framing, samples, out), out.size());
    return out;
}

Bytes Encode(GsmFraming framing, const Pcm& samples)
{
    return Encode(framing, ToFloats(samples));
}

/// Fails where a sample is no multiple of 1/32768.
Pcm Decode(GsmFraming framing, std::span<const std::byte> bytes)
{
    GsmDecoder state;
    std::vector<float> floats(GsmDecodedSamples(framing, bytes.size()));
    EXPECT_EQ(DecodeGsm(state, framing, bytes, floats), floats.size());
    EXPECT_FALSE(state.corrupted);
    Pcm out;
    for (const float sample : floats)
        out.push_back(static_cast<std::int16_t>(sample * 32768.0f));
    EXPECT_EQ(ToFloats(out), floats);
    return out;
}

Bytes LittleEndianBytes(const Pcm& samples)
{
    Bytes out;
    for (const std::int16_t sample : samples)
        for (const int shift : {0, 8})
            out.push_back(static_cast<std::byte>(sample >> shift & 0xFF));
    return out;
}

std::uint64_t Fnv1a(const Bytes& bytes)
{
    std::uint64_t hash = 14695981039346656037u;
    for (const std::byte byte : bytes)
        hash = (hash ^ std::to_integer<std::uint64_t>(byte)) * 1099511628211u;
    return hash;
}

// --- Against libgsm 1.0.22 and spandsp 0.0.6, whose results are spelled out. They agree but for "full
// scale", where libgsm rounds the lag search's sums to single precision and the figures are spandsp's. ---

TEST(Gsm, KnownFramesBothWays)
{
    const Bytes raw = MakeBytes(
        {0xD5, 0xDC, 0x9B, 0x25, 0xA3, 0x50, 0x18, 0xF6, 0x92, 0x72, 0x49, 0x24, 0x5E, 0x4D, 0x87, 0x5E, 0x62,
         0x6D, 0xC2, 0xAC, 0x2E, 0xA8, 0xE4, 0x83, 0x5B, 0x2A, 0xF0, 0x71, 0xB6, 0x53, 0xDB, 0xA6, 0x4B, 0xD2,
         0xA7, 0xB3, 0xEA, 0x2C, 0x6C, 0x4A, 0x15, 0xE7, 0xF8, 0x97, 0x43, 0x94, 0x29, 0xD3, 0x3A, 0xC2, 0x5D,
         0x12, 0xE6, 0x2C, 0x33, 0xEB, 0x72, 0x74, 0x51, 0x93, 0xAA, 0xBB, 0xE4, 0x84, 0x44, 0xFF});
    const Bytes wav = MakeBytes(
        {0x17, 0x37, 0x59, 0x1A, 0x87, 0x82, 0xF8, 0x93, 0x34, 0x92, 0x24, 0xF9, 0xC2, 0x0D, 0xEB, 0x3C, 0xD0,
         0x3E, 0x64, 0xA5, 0x4E, 0x1C, 0x49, 0xB8, 0x65, 0x85, 0xE7, 0x71, 0x8B, 0x66, 0x5F, 0x4B, 0xA6, 0x9C,
         0xF6, 0x29, 0x96, 0x36, 0xA4, 0xA2, 0xF3, 0x77, 0xB2, 0x62, 0x4A, 0x9A, 0x1A, 0x5E, 0x06, 0x6B, 0x4A,
         0x73, 0xC2, 0x96, 0x77, 0x23, 0xAF, 0x28, 0xC9, 0xAB, 0xD6, 0x93, 0x0C, 0xA8, 0xFD});
    const Pcm music = MusicLike(320);
    EXPECT_EQ(Encode(GsmFraming::Raw, music), raw);
    EXPECT_EQ(Encode(GsmFraming::ByteAligned, music), raw);
    EXPECT_EQ(Encode(GsmFraming::Wav, music), wav);

    const Pcm decoded = Decode(GsmFraming::Raw, raw);
    EXPECT_EQ(Decode(GsmFraming::Wav, wav), decoded);
    const Pcm secondFrame{-9248, -7008, -5728, -4064, -1968, -1008, -104, 624, 2528, 3088, 3136, 2984};
    EXPECT_TRUE(std::equal(secondFrame.begin(), secondFrame.end(), decoded.begin() + kGsmFrameSamples));
}

// FNV-1a over 1000 frames of each sound: raw frames, WAV blocks, 16-bit sound decoded from the frames.
TEST(Gsm, LongStreamsMatchTheReference)
{
    const std::array<std::array<std::uint64_t, 3>, 7> expected{{
        {0x5775C7DD987A41E9u, 0xBF2320824EB06C68u, 0xB30A3F16365D798Fu},
        {0x6DA8300A33277E5Bu, 0xA7D1BCE8816CED72u, 0xB47DE47A7A497898u},
        {0x13DCF5C9F277FA89u, 0x0F13A17CD99B3E3Eu, 0x125DBD2384D44F85u},
        {0xEA514A9B3B942398u, 0xEDBE288E28D3BABDu, 0xC8A595778537159Du},
        {0xA56C9EFEBCD02EDDu, 0xF30F3283764D9D99u, 0x20966D075733D03Du},
        {0xA9D31EC748064EBBu, 0xEF387F63A18B53E3u, 0xA167B71E5A5298F8u},
        {0x155DDFF36151B0B6u, 0xDA4FEA5D56C3018Cu, 0x067AF1CAA6406B4Fu},
    }};
    const auto sounds = AllSounds(1000 * kGsmFrameSamples);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(sounds.at(i).name);
        const Bytes raw = Encode(GsmFraming::Raw, sounds[i].samples);
        EXPECT_EQ(Fnv1a(raw), expected[i][0]);
        EXPECT_EQ(Fnv1a(Encode(GsmFraming::Wav, sounds[i].samples)), expected[i][1]);
        EXPECT_EQ(Fnv1a(LittleEndianBytes(Decode(GsmFraming::Raw, raw))), expected[i][2]);
    }
    const Pcm random = Decode(GsmFraming::Raw, RandomFrames(GsmFraming::Raw, 2000));
    EXPECT_EQ(Fnv1a(LittleEndianBytes(random)), 0xC4BA7E7179624D48u);
}

// --- Framing and limits ---

TEST(Gsm, WrongNibbleStopsRawStreamsOnly)
{
    Bytes bytes = Encode(GsmFraming::Raw, MusicLike(5 * kGsmFrameSamples));
    const Pcm intact = Decode(GsmFraming::Raw, bytes);
    bytes[3 * kGsmFrameBytes] ^= std::byte{0x10};
    EXPECT_EQ(Decode(GsmFraming::ByteAligned, bytes), intact);

    GsmDecoder state;
    std::vector<float> out(intact.size(), 9.0f);
    EXPECT_EQ(DecodeGsm(state, GsmFraming::Raw, bytes, out), 3 * kGsmFrameSamples);
    EXPECT_TRUE(state.corrupted);
    EXPECT_EQ(out[3 * kGsmFrameSamples - 1] * 32768.0f, static_cast<float>(intact[3 * kGsmFrameSamples - 1]));
    EXPECT_EQ(out[3 * kGsmFrameSamples], 9.0f);
}

TEST(Gsm, PiecesContinueAStream)
{
    const Pcm sound = SpeechLike(10 * kGsmWavBlockSamples);
    const std::vector<float> floats = ToFloats(sound);
    for (const GsmFraming framing : kFramings) {
        Bytes bytes;
        std::vector<float> decoded;
        GsmEncoder encoder;
        GsmDecoder decoder;
        for (std::size_t at = 0; at < floats.size(); at += kGsmWavBlockSamples) {
            Bytes piece(GsmEncodedBytes(framing, kGsmWavBlockSamples));
            std::array<float, kGsmWavBlockSamples> samples;
            EncodeGsm(encoder, framing, std::span(floats).subspan(at, samples.size()), piece);
            EXPECT_EQ(DecodeGsm(decoder, framing, piece, samples), samples.size());
            bytes.insert(bytes.end(), piece.begin(), piece.end());
            decoded.insert(decoded.end(), samples.begin(), samples.end());
        }
        EXPECT_EQ(bytes, Encode(framing, sound));
        EXPECT_EQ(decoded, ToFloats(Decode(framing, bytes)));
    }
}

TEST(Gsm, CutOffInputAndShortOutput)
{
    struct Case {
        GsmFraming framing;
        std::size_t bytes, samples;
    };
    for (const auto& [framing, bytes, samples] :
         {Case{GsmFraming::Raw, 32, 0}, Case{GsmFraming::Raw, 98, 320}, Case{GsmFraming::Wav, 32, 0},
          Case{GsmFraming::Wav, 33, 160}, Case{GsmFraming::Wav, 97, 320}, Case{GsmFraming::Wav, 98, 480}}) {
        EXPECT_EQ(GsmDecodedSamples(framing, bytes), samples);
        const Bytes all = RandomFrames(framing, 4);
        const Pcm expected = Decode(framing, all);
        const Bytes cut(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(bytes)); // its own allocation
        EXPECT_TRUE(std::ranges::equal(Decode(framing, cut), std::span(expected).first(samples)));
        GsmDecoder roomy;
        std::vector<float> room(samples + 170);
        EXPECT_EQ(DecodeGsm(roomy, framing, cut, room), samples);

        std::vector<float> out(171, 9.0f);
        GsmDecoder state;
        EXPECT_EQ(DecodeGsm(state, framing, all, std::span(out).first(170)), 170u);
        EXPECT_EQ(out[169] * 32768.0f, static_cast<float>(expected[169]));
        EXPECT_EQ(out[170], 9.0f);
    }
}

TEST(Gsm, EncoderFillsUpAndClips)
{
    for (const GsmFraming framing : kFramings) {
        EXPECT_TRUE(Encode(framing, Pcm{}).empty());
        Pcm sound = NoiseOf(401, 12000);
        const Bytes bytes = Encode(framing, sound);
        sound.resize(framing == GsmFraming::Wav ? 640 : 480);
        EXPECT_EQ(bytes, Encode(framing, sound));

        GsmEncoder state;
        Bytes small(bytes.size() - 1);
        const std::size_t oneLess = bytes.size() - GsmEncodedBytes(framing, 1);
        EXPECT_EQ(EncodeGsm(state, framing, ToFloats(sound), small), oneLess);
    }
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const std::array<float, 6> wild{kInfinity, -kInfinity, kNan, 1e30f, -3.0f, 1.0f};
    const Pcm tame{32767, -32768, 0, 32767, -32768, 32767};
    EXPECT_EQ(Encode(GsmFraming::Raw, wild), Encode(GsmFraming::Raw, tame));
    std::array<float, kGsmFrameSamples> fractions; // either side of the steps that the coder's 13 bits make
    Pcm rounded;
    for (std::size_t k = 0; k < fractions.size(); ++k) {
        fractions[k] = (k % 3 == 0 ? 7.6f : -0.6f) / 32768;
        rounded.push_back(k % 3 == 0 ? 8 : -1);
    }
    EXPECT_EQ(Encode(GsmFraming::Raw, fractions), Encode(GsmFraming::Raw, rounded));
}

// --- Against other programs ---

bool HasProgram(const std::string& name)
{
    return std::system(("command -v " + name + " > /dev/null 2>&1").c_str()) == 0;
}

/// Runs a command in the folder that writes 16-bit sound to its standard output.
Pcm SoundFrom(const ScratchFolder& folder, const std::string& command)
{
    static_assert(std::endian::native == std::endian::little);
    Pcm out;
    std::FILE* pipe = ::popen(("cd '" + folder.Path().string() + "' && " + command).c_str(), "r");
    for (std::int16_t sample = 0; std::fread(&sample, sizeof sample, 1, pipe) == 1;)
        out.push_back(sample);
    EXPECT_EQ(::pclose(pipe), 0) << command;
    return out;
}

/// A WAV file around blocks of 65 bytes, as 32-bit words.
Bytes WavAround(const Bytes& blocks)
{
    Bytes file;
    const auto put = [&](std::initializer_list<std::size_t> longs) {
        for (const std::size_t value : longs)
            for (unsigned shift = 0; shift < 32; shift += 8)
                file.push_back(static_cast<std::byte>(value >> shift & 0xFF));
    };
    const std::size_t samples = GsmDecodedSamples(GsmFraming::Wav, blocks.size());
    put({0x46464952, blocks.size() + 52, 0x45564157, 0x20746D66}); // "RIFF", "WAVE", "fmt "
    put({20, 0x31 | 1 << 16, 8000, 1625, kGsmWavBlockBytes,
         2 | kGsmWavBlockSamples << 16});                     // tag, channels; bits 0
    put({0x74636166, 4, samples, 0x61746164, blocks.size()}); // "fact", "data"
    file.insert(file.end(), blocks.begin(), blocks.end());
    return file;
}

TEST(Gsm, SoxAgreesBothWays)
{
    if (!HasProgram("sox"))
        GTEST_SKIP() << "sox is not installed";
    const ScratchFolder folder;
    const auto compare = [&](const Bytes& raw, const Bytes& wav) {
        folder.Put("stream.gsm", raw);
        EXPECT_EQ(SoundFrom(folder, "sox stream.gsm -t s16 -"), Decode(GsmFraming::Raw, raw));
        folder.Put("stream.wav", WavAround(wav));
        EXPECT_EQ(SoundFrom(folder, "sox stream.wav -t s16 -"), Decode(GsmFraming::Wav, wav));
    };
    compare(RandomFrames(GsmFraming::Raw, 1000), RandomFrames(GsmFraming::Wav, 500));
    for (const auto& [name, samples] : AllSounds(400 * kGsmFrameSamples)) {
        SCOPED_TRACE(name);
        const Bytes raw = Encode(GsmFraming::Raw, samples);
        compare(raw, Encode(GsmFraming::Wav, samples));
        folder.Put("sound.s16", LittleEndianBytes(samples));
        SoundFrom(folder, "sox -r 8000 -c 1 sound.s16 sound.gsm");
        EXPECT_TRUE(folder.Get("sound.gsm") == raw || name == kFullScale); // sox encodes with libgsm
    }
}

// Only streams of an encoder: ffmpeg's decoder does not saturate inside its filters. The sound must also stay
// close.
TEST(Gsm, FfmpegDecodesTheSameAndCloseToTheSource)
{
    if (!HasProgram("ffmpeg"))
        GTEST_SKIP() << "ffmpeg is not installed";
    const ScratchFolder folder;
    const auto check = [&](const Pcm& sound, double leastDb) {
        const Bytes raw = Encode(GsmFraming::Raw, sound);
        folder.Put("stream.gsm", raw);
        folder.Put("stream.wav", WavAround(Encode(GsmFraming::Wav, sound)));
        const Pcm decoded = Decode(GsmFraming::Raw, raw);
        const std::string command = "ffmpeg -v error -nostdin -c:a ";
        EXPECT_EQ(SoundFrom(folder, command + "gsm -i stream.gsm -f s16le -"), decoded);
        EXPECT_EQ(SoundFrom(folder, command + "gsm_ms -i stream.wav -f s16le -"), decoded);
        double power = 0, error = 0;
        for (std::size_t k = 0; k < sound.size(); ++k) {
            power += std::pow(sound[k], 2);
            error += std::pow(decoded[k] - sound[k], 2);
        }
        EXPECT_GT(10 * std::log10(power / error), leastDb);
    };
    check(SpeechLike(400 * kGsmFrameSamples), 7.5);
    check(MusicLike(400 * kGsmFrameSamples), 13.0);
}

} // namespace
} // namespace vimbo
