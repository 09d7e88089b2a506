// Test sounds at 22050 Hz, files around coded streams, and other programs that decode them, for the ADPCM
// tests.
#pragma once

#include "test_files.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <string>
#include <utility>

namespace vimbo::testing {

using Pcm = std::vector<std::int16_t>;

/// Linear congruential generator of Numerical Recipes; the upper bits are the better ones.
class Random {
public:
    explicit Random(std::uint32_t seed) : state_(seed) {}
    unsigned Below(unsigned limit)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return static_cast<unsigned>(std::uint64_t{state_} * limit >> 32);
    }

private:
    std::uint32_t state_;
};

inline std::int16_t Clip(double value)
{
    return static_cast<std::int16_t>(std::clamp(value, -32768.0, 32767.0));
}

inline Pcm NoiseOf(std::size_t count, int size)
{
    Random random(2);
    Pcm out(count);
    for (std::int16_t& sample : out)
        sample = Clip(static_cast<int>(random.Below(static_cast<unsigned>(2 * size + 1))) - size);
    return out;
}

/// Pulses at 110 Hz or noise, in turn and with pauses, through two formants.
inline Pcm SpeechLike(std::size_t count)
{
    struct Formant {
        double angle, radius, last = 0, beforeLast = 0;
        double Next(double in)
        {
            const double out = in + 2 * radius * std::cos(angle) * last - radius * radius * beforeLast;
            beforeLast = last;
            return last = out;
        }
    } low{0.17, 0.97}, high{0.45, 0.95};
    const Pcm breath = NoiseOf(count, 400);
    Pcm out(count);
    double glottis = 0;
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t part = k / 3000 % 4;
        low.angle = 0.12 + 0.02 * static_cast<double>(k / 3000 % 5);
        const double drive = part == 2 ? breath[k] : part == 3 ? 0 : k % 200 < 5 ? 700 : 0;
        glottis += 0.15 * (drive - glottis);
        out[k] = Clip(high.Next(low.Next(glottis)) / 4);
    }
    return out;
}

/// Chords of four decaying notes with three partials each, struck anew every 6000 samples.
inline Pcm MusicLike(std::size_t count)
{
    Pcm out(count);
    for (std::size_t k = 0; k < count; ++k) {
        double sum = 0;
        const double time = static_cast<double>(k % 6000) / 22050;
        for (const double hz : {220.0, 277.2, 329.6, 440.0})
            for (const double partial : {1.0, 2.0, 3.0})
                sum += std::sin(2 * std::numbers::pi * hz * partial * time) / partial *
                       std::exp(-4 * partial * time);
        out[k] = Clip(4500 * sum);
    }
    return out;
}

inline bool HasProgram(const std::string& name)
{
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

/// Runs `command`, in which {in} and {out} stand for files of these names in a fresh folder.
/// @return what it left in {out}; empty when it failed
inline Bytes RunOnFile(std::string command, const std::string& inName, std::span<const std::byte> in,
                       const std::string& outName)
{
    const ScratchFolder folder;
    folder.Put(inName, in);
    for (const auto& [mark, name] : {std::pair{"{in}", inName}, std::pair{"{out}", outName}})
        for (auto at = command.find(mark); at != std::string::npos; at = command.find(mark))
            command.replace(at, std::string(mark).size(), (folder.Path() / name).string());
    return std::system((command + " </dev/null >/dev/null 2>&1").c_str()) == 0 ? folder.Get(outName)
                                                                               : Bytes{};
}

inline Pcm ToPcm(std::span<const std::byte> bytes)
{
    Pcm out;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        out.push_back(static_cast<std::int16_t>(std::to_integer<unsigned>(bytes[i]) |
                                                std::to_integer<unsigned>(bytes[i + 1]) << 8));
    return out;
}

/// Fails when a sample is no multiple of 1/32768.
inline Pcm ToPcm(std::span<const float> floats)
{
    Pcm out(floats.size());
    std::transform(floats.begin(), floats.end(), out.begin(),
                   [](float sample) { return static_cast<std::int16_t>(sample * 32768.0f); });
    EXPECT_TRUE(std::equal(floats.begin(), floats.end(), out.begin(),
                           [](float sample, std::int16_t whole) { return sample * 32768.0f == whole; }));
    return out;
}

inline Bytes ToBytes(const Pcm& samples)
{
    const auto view = std::as_bytes(std::span(samples)); // the tests' machines are little-endian
    return {view.begin(), view.end()};
}

inline std::vector<float> ToFloats(const Pcm& samples)
{
    std::vector<float> out;
    for (const std::int16_t sample : samples)
        out.push_back(static_cast<float>(sample) / 32768.0f);
    return out;
}

inline Pcm FfmpegDecoded(const std::string& name, std::span<const std::byte> file)
{
    return ToPcm(RunOnFile("ffmpeg -v error -y -i {in} -f s16le {out}", name, file, "out.raw"));
}

inline Pcm SoxDecoded(const std::string& name, std::span<const std::byte> file,
                      const std::string& options = "")
{
    return ToPcm(RunOnFile("sox " + options + " {in} -t s16 {out}", name, file, "out.raw"));
}

/// Grows a file of numbers in one byte order and four-letter tags.
class FileMaker {
public:
    explicit FileMaker(std::endian order) : order_(order) {}
    FileMaker& Tag(const char* text)
    {
        for (int i = 0; i < 4; ++i)
            bytes_.push_back(static_cast<std::byte>(text[i]));
        return *this;
    }
    FileMaker& Put(std::size_t value, unsigned width)
    {
        for (unsigned i = 0; i < width; ++i)
            bytes_.push_back(
                static_cast<std::byte>(value >> (8 * (order_ == std::endian::little ? i : width - 1 - i))));
        return *this;
    }
    FileMaker& Add(std::span<const std::byte> bytes)
    {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    const Bytes& Get() const { return bytes_; }

private:
    Bytes bytes_;
    std::endian order_;
};

struct CodedWav {
    unsigned tag, channels, blockAlign, bits;
    Bytes extra; ///< what follows the extra bytes' count
    std::size_t frames;
};

inline Bytes MakeCodedWav(const CodedWav& format, std::span<const std::byte> data)
{
    FileMaker file(std::endian::little);
    file.Tag("RIFF").Put(50 + format.extra.size() + data.size(), 4).Tag("WAVE").Tag("fmt ");
    file.Put(18 + format.extra.size(), 4).Put(format.tag, 2).Put(format.channels, 2).Put(22050, 4);
    file.Put(22050 * format.channels * format.bits / 8, 4).Put(format.blockAlign, 2).Put(format.bits, 2);
    file.Put(format.extra.size(), 2).Add(format.extra);
    file.Tag("fact").Put(4, 4).Put(format.frames, 4).Tag("data").Put(data.size(), 4).Add(data);
    return file.Get();
}

inline std::size_t NumberAt(std::span<const std::byte> bytes, std::size_t at, unsigned width)
{
    std::size_t value = 0;
    for (unsigned i = 0; i < width && at + i < bytes.size(); ++i)
        value |= std::to_integer<std::size_t>(bytes[at + i]) << (8 * i);
    return value;
}

/// Content of a WAV file's chunk; empty when there is none.
inline Bytes ChunkOf(const Bytes& wav, const std::string& tag)
{
    for (std::size_t at = 12; at + 8 <= wav.size();) {
        const std::size_t size = std::min(NumberAt(wav, at + 4, 4), wav.size() - at - 8);
        const auto content = std::span(wav).subspan(at + 8, size);
        if (std::equal(tag.begin(), tag.end(), reinterpret_cast<const char*>(wav.data() + at)))
            return {content.begin(), content.end()};
        at += 8 + size + size % 2;
    }
    return {};
}

inline Bytes RandomBytes(Random& random, std::size_t count)
{
    Bytes out(count);
    for (std::byte& value : out)
        value = static_cast<std::byte>(random.Below(256));
    return out;
}

inline Pcm Interleaved(const Pcm& left, const Pcm& right)
{
    Pcm out;
    for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
        out.push_back(left[i]);
        out.push_back(right[i]);
    }
    return out;
}

/// Signal against difference; `got` may go on behind the end of `wanted`.
inline double SnrDb(const Pcm& wanted, const Pcm& got)
{
    EXPECT_GE(got.size(), wanted.size());
    double signal = 0, noise = 0;
    for (std::size_t i = 0; i < std::min(wanted.size(), got.size()); ++i) {
        signal += std::pow(wanted[i], 2.0);
        noise += std::pow(wanted[i] - got[i], 2.0);
    }
    return 10 * std::log10(signal / std::max(noise, 1e-9));
}

} // namespace vimbo::testing

/// Leaves the test with a notice where a program is not installed.
#define NEED_PROGRAM(name)                                                                                   \
    if (!vimbo::testing::HasProgram(name))                                                                   \
    GTEST_SKIP() << name << " is not installed"
