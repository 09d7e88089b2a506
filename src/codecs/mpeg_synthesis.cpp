// Polyphase synthesis: ISO/IEC 11172-3, 2.4.3.2.2. All vectors hold four time slots.
//
// The standard's V[i] = sum of S[k] cos((16 + i)(2k + 1) pi / 64) are, but for signs, the 32 values C of a
// cosine transform of type II: V[0..15] = C[16..31], V[16] = 0, V[17..31] = -C[31..17], V[32..48] =
// -C[16..0], V[49..63] = -C[1..15]. Sample j of a slot t is the sum over k of D[64k + j] V[j] of slot t - 2k,
// and of D[64k + 32 + j] V[32 + j] of slot t - 2k - 1. So samples j and 32 - j need the same two rows of C.
#include "codecs/mpeg_filters.h"
#include "codecs/mpeg_vectors.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vimbo::mpeg {
namespace {

constexpr unsigned kTaps = 8; ///< per phase of the window

/// D[i], 0 <= i < 512.
float WindowAt(unsigned i)
{
    constexpr unsigned kMiddle = 256;
    const int value = i <= kMiddle  ? kSynthesisWindow[i]
                      : i % 64 == 0 ? kSynthesisWindow[2 * kMiddle - i]
                                    : -kSynthesisWindow[2 * kMiddle - i];
    return static_cast<float>(value) / 65536.0f;
}

struct Tables {
    /// Of samples j and 32 - j (0: both 0), by tap: what C[16 + j] and C[16 - j] are multiplied with.
    struct Pair {
        std::array<float, kTaps> lowUpper, lowLower, highUpper, highLower;
    };
    std::array<Pair, 16> pairs{};
    std::array<float, kTaps> middle{}; ///< sample 16: C[0]
    /// 1 / (2 cos((2i + 1) pi / (2 N))) for N = 32, 16, 8, 4, 2, one behind the other
    std::array<float, 31> halves{};

    Tables()
    {
        for (unsigned j = 0; j < pairs.size(); ++j) {
            for (unsigned k = 0; k < kTaps; ++k) {
                pairs[j].lowUpper[k] = WindowAt(64 * k + j);
                pairs[j].lowLower[k] = -WindowAt(64 * k + 32 + j);
                if (j == 0)
                    continue;
                pairs[j].highUpper[k] = -WindowAt(64 * k + 32 - j);
                pairs[j].highLower[k] = -WindowAt(64 * k + 64 - j);
            }
        }
        for (unsigned k = 0; k < kTaps; ++k)
            middle[k] = -WindowAt(64 * k + 48);
        unsigned at = 0;
        for (unsigned size = 32; size > 1; size /= 2)
            for (unsigned i = 0; i < size / 2; ++i)
                halves[at++] =
                    static_cast<float>(1 / (2 * std::cos(std::numbers::pi * (2 * i + 1) / (2.0 * size))));
    }
};

const Tables& GetTables()
{
    static const Tables tables;
    return tables;
}

/// Cosine transform of type II, by halves (B. G. Lee, 1984). Result k goes to out[k * Step].
template <unsigned Size, unsigned Step>
[[gnu::always_inline]] inline void Cosines(const Float4* in, Float4* out, const float* halves) noexcept
{
    if constexpr (Size == 1) {
        out[0] = in[0];
    } else {
        constexpr unsigned kHalf = Size / 2;
        Float4 sums[kHalf], differences[kHalf], odd[kHalf];
        for (unsigned i = 0; i < kHalf; ++i) {
            sums[i] = in[i] + in[Size - 1 - i];
            differences[i] = (in[i] - in[Size - 1 - i]) * halves[i];
        }
        Cosines<kHalf, 2 * Step>(sums, out, halves + kHalf);
        Cosines<kHalf, 1>(differences, odd, halves + kHalf);
        for (unsigned i = 0; i + 1 < kHalf; ++i)
            out[(2 * i + 1) * Step] = odd[i] + odd[i + 1];
        out[(Size - 1) * Step] = odd[kHalf - 1];
    }
}

/// Four slots of two samples: `upper` of the slots t, t - 2 ..., `lower` of t - 1, t - 3 ...
[[gnu::always_inline]] inline void Window(const Tables::Pair& pair, const float* upper, const float* lower,
                                          Float4& low, Float4& high) noexcept
{
    Float4 a{}, b{};
    for (unsigned k = 0; k < kTaps; ++k) {
        const Float4 u = Load(upper - 2 * k), l = Load(lower - 2 * k - 1);
        a += u * pair.lowUpper[k] + l * pair.lowLower[k];
        b += u * pair.highUpper[k] + l * pair.highLower[k];
    }
    low = a;
    high = b;
}

void Scatter(Float4 samples, unsigned count, float* out, std::size_t stride) noexcept
{
    for (unsigned i = 0; i < count; ++i)
        out[i * kSubbands * stride] = samples[i];
}

} // namespace

void SynthesisFilter::Run(SubbandSlots& in, unsigned slots, float* out, std::size_t stride) noexcept
{
    const Tables& tables = GetTables();
    auto& rows = history_.rows;
    for (unsigned slot = 0; slot < slots; slot += kWidth) {
        Float4 x[kSubbands], c[kSubbands];
        for (unsigned sb = 0; sb < kSubbands; ++sb)
            x[sb] = Load(&in.rows[sb][slot]);
        Cosines<kSubbands, 1>(x, c, tables.halves.data());
        for (unsigned i = 0; i < kSubbands; ++i)
            Store(&rows[i][kPast + slot], c[i]);
    }
    for (unsigned slot = 0; slot < slots; slot += kWidth) {
        const unsigned count = std::min(kWidth, slots - slot);
        float* to = out + std::size_t{slot} * kSubbands * stride;
        Float4 low, high;
        Window(tables.pairs[0], &rows[16][kPast + slot], &rows[16][kPast + slot], low, high);
        Scatter(low, count, to, stride);
        for (unsigned j = 1; j < 16; ++j) {
            Window(tables.pairs[j], &rows[16 + j][kPast + slot], &rows[16 - j][kPast + slot], low, high);
            Scatter(low, count, to + j * stride, stride);
            Scatter(high, count, to + (kSubbands - j) * stride, stride);
        }
        Float4 middle{};
        for (unsigned k = 0; k < kTaps; ++k)
            middle += Load(&rows[0][kPast + slot - 2 * k - 1]) * tables.middle[k];
        Scatter(middle, count, to + 16 * stride, stride);
    }
    for (auto& row : rows)
        std::copy_n(row.begin() + slots, kPast, row.begin());
}

} // namespace vimbo::mpeg
