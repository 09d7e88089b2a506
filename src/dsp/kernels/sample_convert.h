// Conversion between the sample encodings of files and 32-bit float samples. Pure code over spans; the hot
// path of every load and save, so each direction has a vectorised form and a plain twin that tests compare it
// with.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

enum class SampleCoding : std::uint8_t {
    Pcm8,
    Pcm12, ///< two samples in three bytes
    Pcm16,
    Pcm20, ///< two samples in five bytes
    Pcm24,
    Pcm24In32, ///< 24 significant bits at the top of a 32-bit word
    Pcm32,
    Float32,
    Float64,
    MuLaw,
    ALaw,
    Delta8, ///< differences between successive samples, wrapping
    Delta16
};

/// How samples lie in a file. `isUnsigned` matters for linear PCM only; `order` for samples of 12 bits and
/// more.
struct SampleLayout {
    SampleCoding coding = SampleCoding::Pcm16;
    bool isUnsigned = false;
    std::endian order = std::endian::little;

    friend bool operator==(const SampleLayout&, const SampleLayout&) = default;
};

/// Bits that one sample takes in the file: 8, 12, 16, 20, 24, 32 or 64.
unsigned StoredBits(SampleCoding coding) noexcept;

/// Bytes of `samples` samples, the last one rounded up to a whole byte. No overflow up to 2^58 samples.
std::uint64_t StoredBytes(SampleCoding coding, std::uint64_t samples) noexcept;

/// Running value of the delta codings: carry it over when a stream is converted in pieces. Starts at 0.
struct DeltaState {
    std::uint16_t previous = 0;
};

/// Bytes to floats, nominal range [-1, 1): signed value / 2^(bits-1); floats as they are.
/// @param bytes at least StoredBytes(layout.coding, out.size()); may be unaligned; must not overlap `out`,
/// except that
///              4-byte codings may be converted in place (bytes starting exactly at out.data())
/// Packed codings: a piece that is not the last must hold an even number of samples.
/// Errors: none; a span that is too short converts what it holds and clears the rest of `out`.
void DecodeSamples(const SampleLayout& layout, std::span<const std::byte> bytes, std::span<float> out,
                   DeltaState& state) noexcept;

/// Floats to bytes. The input is not prescaled: a peak of exactly 1.0 saturates at the largest code, NaN
/// gives the code of silence (floats keep theirs). 8 to 20 bits are rounded half up; 24 and 32 bits are
/// truncated downwards after adding the offset.
/// @param bytes at least StoredBytes(layout.coding, in.size())
void EncodeSamples(const SampleLayout& layout, std::span<const float> in, std::span<std::byte> bytes,
                   DeltaState& state) noexcept;

/// The plain twins of the two above: same results, one sample at a time.
void DecodeSamplesPlain(const SampleLayout& layout, std::span<const std::byte> bytes, std::span<float> out,
                        DeltaState& state) noexcept;
void EncodeSamplesPlain(const SampleLayout& layout, std::span<const float> in, std::span<std::byte> bytes,
                        DeltaState& state) noexcept;

/// Reverses the bytes of each element in place; size 2, 3, 4 or 8. A rest shorter than an element stays.
void SwapBytes(std::span<std::byte> bytes, std::size_t elementSize) noexcept;

/// left/right planes (equal lengths) to left, right, left, right...; out.size() == 2 * left.size().
void Interleave(std::span<const float> left, std::span<const float> right, std::span<float> out) noexcept;

/// The reverse of Interleave.
void Deinterleave(std::span<const float> in, std::span<float> left, std::span<float> right) noexcept;

/// (left + right) * 0.5 for each frame of an interleaved stereo span; out.size() == in.size() / 2.
void AverageToMono(std::span<const float> in, std::span<float> out) noexcept;

/// Each sample into both channels; out.size() == 2 * in.size().
void DuplicateToStereo(std::span<const float> in, std::span<float> out) noexcept;

} // namespace vimbo
