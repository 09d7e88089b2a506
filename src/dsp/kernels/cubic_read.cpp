#include "dsp/kernels/cubic_read.h"

#include "dsp/kernels/lane_vectors.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>

namespace vimbo {
namespace {

constexpr std::size_t kChunk = 64; // frames whose places are worked out at a time

/// Element that the upper half of a vector starts with; 0 where there is none.
template <class V>
constexpr std::size_t kUpper = kWidth<V> - 4;

/// p1 + t (p2 - p0) / 2 + t^2 (p0 - 5/2 p1 + 2 p2 - p3 / 2) + t^3 (3 (p1 - p2) + p3 - p0) / 2. The square's
/// factor is what the others leave for y = p2 at t = 1. V is a float or a vector of them.
template <class V>
VIMBO_INLINE void Cubic(V& y, const V& p0, const V& p1, const V& p2, const V& p3, const V& t) noexcept
{
    const V rise = p2 - p1;
    const V linear = 0.5f * (p2 - p0);
    const V cube = 0.5f * (p3 - p0) - 1.5f * rise;
    const V square = (rise - linear) - cube;
    y = ((cube * t + square) * t + linear) * t + p1;
}

/// Frame numbers and fractions of `count` positions, filled up to a whole vector with the last one.
struct Places {
    alignas(32) std::array<std::int32_t, kChunk> whole;
    alignas(32) std::array<float, kChunk> fraction;

    VIMBO_INLINE void Compute(double position, double rate, std::size_t first, std::size_t count) noexcept
    {
        const auto start = static_cast<std::int32_t>(first);
        for (std::size_t i = 0; i < kChunk; ++i) {
            const std::int32_t n = start + static_cast<std::int32_t>(i);
            const double at = position + static_cast<double>(n) * rate;
            whole[i] = static_cast<std::int32_t>(at);
            fraction[i] = static_cast<float>(at - static_cast<double>(whole[i]));
        }
        for (std::size_t i = count; i < kChunk; ++i)
            whole[i] = whole[count - 1];
    }
};

/// Vector by vector; a rest shorter than a vector passes through a buffer.
template <class V>
VIMBO_INLINE void StorePart(float* out, const V& v, std::size_t count) noexcept
{
    if (count >= kWidth<V>) {
        Store(out, v);
    } else {
        std::array<float, kWidth<V>> rest;
        Store(rest.data(), v);
        std::copy_n(rest.data(), count, out);
    }
}

template <class V>
VIMBO_INLINE void ReadMonoVector(V& y, const float* frames, const std::int32_t* whole,
                                 const float* fraction) noexcept
{
    const float* from[kWidth<V>];
    for (std::size_t i = 0; i < kWidth<V>; ++i)
        from[i] = frames + whole[i] - 1;
    V p0, p1, p2, p3, t;
    LoadQuads(p0, from[0], from[kUpper<V>]);
    LoadQuads(p1, from[1], from[kUpper<V> + 1]);
    LoadQuads(p2, from[2], from[kUpper<V> + 2]);
    LoadQuads(p3, from[3], from[kUpper<V> + 3]);
    Transpose(p0, p1, p2, p3);
    Load(t, fraction);
    Cubic(y, p0, p1, p2, p3, t);
}

struct ReadMono {
    template <Isa Version>
    VIMBO_INLINE static void Run(const float* frames, double position, double rate, float* __restrict out,
                                 std::size_t count) noexcept
    {
        using V = Floats<Version>;
        for (std::size_t done = 0; done < count; done += kChunk) {
            const std::size_t now = std::min(kChunk, count - done);
            Places places;
            places.Compute(position, rate, done, now);
            for (std::size_t i = 0; i < now; i += kWidth<V>) {
                V y;
                ReadMonoVector(y, frames, places.whole.data() + i, places.fraction.data() + i);
                StorePart(out + done + i, y, now - i);
            }
        }
    }
};

template <class V>
VIMBO_INLINE void ReadStereoVector(V& left, V& right, const float* frames, const std::int32_t* whole,
                                   const float* fraction) noexcept
{
    const float *early[kWidth<V>], *late[kWidth<V>];
    for (std::size_t i = 0; i < kWidth<V>; ++i) {
        early[i] = frames + 2 * static_cast<std::ptrdiff_t>(whole[i]) - 2;
        late[i] = early[i] + 4;
    }
    V l0, r0, l1, r1, l2, r2, l3, r3, t;
    LoadQuads(l0, early[0], early[kUpper<V>]);
    LoadQuads(r0, early[1], early[kUpper<V> + 1]);
    LoadQuads(l1, early[2], early[kUpper<V> + 2]);
    LoadQuads(r1, early[3], early[kUpper<V> + 3]);
    Transpose(l0, r0, l1, r1);
    LoadQuads(l2, late[0], late[kUpper<V>]);
    LoadQuads(r2, late[1], late[kUpper<V> + 1]);
    LoadQuads(l3, late[2], late[kUpper<V> + 2]);
    LoadQuads(r3, late[3], late[kUpper<V> + 3]);
    Transpose(l2, r2, l3, r3);
    Load(t, fraction);
    Cubic(left, l0, l1, l2, l3, t);
    Cubic(right, r0, r1, r2, r3, t);
}

struct ReadStereo {
    template <Isa Version>
    VIMBO_INLINE static void Run(const float* frames, double position, double rate, float* __restrict left,
                                 float* __restrict right, std::size_t count) noexcept
    {
        using V = Floats<Version>;
        for (std::size_t done = 0; done < count; done += kChunk) {
            const std::size_t now = std::min(kChunk, count - done);
            Places places;
            places.Compute(position, rate, done, now);
            for (std::size_t i = 0; i < now; i += kWidth<V>) {
                V l, r;
                ReadStereoVector(l, r, frames, places.whole.data() + i, places.fraction.data() + i);
                StorePart(left + done + i, l, now - i);
                StorePart(right + done + i, r, now - i);
            }
        }
    }
};

// ---- Original pitch: the fraction stays the same, and the frames lie side by side.

template <std::size_t Channels>
struct ReadUnshifted {
    template <Isa>
    VIMBO_INLINE static void Run(const float* frames, float t, float* __restrict out,
                                 std::size_t count) noexcept
    {
        constexpr std::ptrdiff_t kStep = Channels;
        for (std::size_t i = 0; i < count; ++i) {
            const float* const at = frames + i * Channels;
            Cubic(out[i], at[-kStep], at[0], at[kStep], at[2 * kStep], t);
        }
    }
};

/// Whether all positions have the fraction of the first: at rate 1, unless adding frame numbers costs it
/// bits.
bool KeepsFraction(double position, double rate, std::size_t count) noexcept
{
    const auto last = static_cast<double>(count);
    return rate == 1.0 && (position + last) - last == position;
}

/// What one frame reads.
float ReadFrame(const float* frames, std::ptrdiff_t step, double position) noexcept
{
    const auto whole = static_cast<std::int32_t>(position);
    const float* const at = frames + whole * step;
    float y;
    Cubic(y, at[-step], at[0], at[step], at[2 * step],
          static_cast<float>(position - static_cast<double>(whole)));
    return y;
}

} // namespace

void ReadCubicMono(const float* frames, double position, double rate, std::span<float> out) noexcept
{
    assert(position >= 0);
    if (!KeepsFraction(position, rate, out.size())) {
        RunBest<ReadMono>(frames, position, rate, out.data(), out.size());
        return;
    }
    const auto whole = static_cast<std::int32_t>(position);
    const auto t = static_cast<float>(position - static_cast<double>(whole));
    if (t == 0)
        std::copy_n(frames + whole, out.size(), out.data());
    else
        RunBest<ReadUnshifted<1>>(frames + whole, t, out.data(), out.size());
}

void ReadCubicStereo(const float* interleaved, double position, double rate, std::span<float> left,
                     std::span<float> right) noexcept
{
    assert(position >= 0 && left.size() == right.size());
    if (!KeepsFraction(position, rate, left.size())) {
        RunBest<ReadStereo>(interleaved, position, rate, left.data(), right.data(), left.size());
        return;
    }
    const auto whole = static_cast<std::int32_t>(position);
    const auto t = static_cast<float>(position - static_cast<double>(whole));
    const float* const from = interleaved + 2 * static_cast<std::ptrdiff_t>(whole);
    RunBest<ReadUnshifted<2>>(from, t, left.data(), left.size());
    RunBest<ReadUnshifted<2>>(from + 1, t, right.data(), right.size());
}

void ReadCubicMonoPlain(const float* frames, double position, double rate, std::span<float> out) noexcept
{
    for (std::size_t n = 0; n < out.size(); ++n)
        out[n] = ReadFrame(frames, 1, position + static_cast<double>(n) * rate);
}

void ReadCubicStereoPlain(const float* interleaved, double position, double rate, std::span<float> left,
                          std::span<float> right) noexcept
{
    for (std::size_t n = 0; n < left.size(); ++n) {
        const double at = position + static_cast<double>(n) * rate;
        left[n] = ReadFrame(interleaved, 2, at);
        right[n] = ReadFrame(interleaved + 1, 2, at);
    }
}

} // namespace vimbo
