// The zero section of a G.722 sub-band predictor, blocks UPZERO and FILTEZ: the coder's dearest part, hence a
// plain form and one for SSE2. Internal to this folder.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vimbo {

/// Coefficients b1 to b6 (2^14 = 1) and the last six quantized differences, newest first. Two places to
/// spare.
struct alignas(16) G722Zeros {
    std::array<std::int16_t, 8> coefficients{};
    std::array<std::int16_t, 8> differences{};
};

class G722ZerosPlain {
public:
    explicit G722ZerosPlain(const G722Zeros& start) noexcept : state_(start) {}
    G722Zeros State() const noexcept { return state_; }

    /// Moves the coefficients, takes in `difference` (below 2^14 in magnitude) and predicts, in 16 bits.
    int Move(int difference) noexcept
    {
        const int gain = difference == 0 ? 0 : 128;
        auto& [coefficients, differences] = state_;
        for (std::size_t i = 0; i < kTaps; ++i) {
            const int toward = (differences[i] ^ difference) < 0 ? -gain : gain;
            // The leak grows with the coefficient, so that the sum cannot leave 16 bits.
            coefficients[i] = static_cast<std::int16_t>((coefficients[i] * 255 >> 8) + toward);
        }
        std::copy_backward(differences.begin(), differences.begin() + kTaps - 1, differences.begin() + kTaps);
        differences[0] = static_cast<std::int16_t>(difference);
        int sum = 0;
        for (std::size_t i = kTaps; i-- > 0;)
            sum = std::clamp(sum + (coefficients[i] * differences[i] >> 14), -32768, 32767);
        return sum;
    }

private:
    static constexpr std::size_t kTaps = 6;
    G722Zeros state_;
};

#if defined(__SSE2__)
/// The same, bit by bit; 16-bit lanes are just wide enough.
class G722ZerosSse2 {
public:
    explicit G722ZerosSse2(const G722Zeros& start) noexcept
        : coefficients_(std::bit_cast<__m128i>(start.coefficients)),
          differences_(std::bit_cast<__m128i>(start.differences))
    {
    }
    G722Zeros State() const noexcept
    {
        return {std::bit_cast<Lanes>(coefficients_), std::bit_cast<Lanes>(differences_)};
    }

    int Move(int difference) noexcept
    {
        const __m128i gain = _mm_set1_epi16(difference == 0 ? 0 : 128);
        const __m128i newest = _mm_set1_epi16(static_cast<std::int16_t>(difference));
        const __m128i apart = _mm_srai_epi16(_mm_xor_si128(differences_, newest), 15);
        const __m128i toward = _mm_sub_epi16(_mm_xor_si128(gain, apart), apart);
        // c * 255 >> 8 is c + (c * -256 >> 16).
        const __m128i leak = _mm_mulhi_epi16(coefficients_, _mm_set1_epi16(-256));
        coefficients_ = _mm_add_epi16(_mm_add_epi16(coefficients_, leak), toward);
        const __m128i used = _mm_setr_epi16(-1, -1, -1, -1, -1, -1, 0, 0);
        const __m128i older = _mm_and_si128(_mm_slli_si128(differences_, 2), used);
        differences_ = _mm_insert_epi16(older, difference, 0);
        return OldestFirstSum(Products());
    }

private:
    using Lanes = std::array<std::int16_t, 8>;

    /// c * d >> 14, in 16 bits because d is below 2^14.
    __m128i Products() const noexcept
    {
        const __m128i high = _mm_mulhi_epi16(coefficients_, _mm_add_epi16(differences_, differences_));
        const __m128i low = _mm_mullo_epi16(coefficients_, _mm_add_epi16(differences_, differences_));
        return _mm_or_si128(_mm_add_epi16(high, high), _mm_srli_epi16(low, 15));
    }

    /// Lanes 5 to 0 in this order, because each single addition saturates.
    static int OldestFirstSum(__m128i terms) noexcept
    {
        __m128i sum = _mm_srli_si128(terms, 10);
        sum = _mm_adds_epi16(sum, _mm_srli_si128(terms, 8));
        sum = _mm_adds_epi16(sum, _mm_srli_si128(terms, 6));
        sum = _mm_adds_epi16(sum, _mm_srli_si128(terms, 4));
        sum = _mm_adds_epi16(sum, _mm_srli_si128(terms, 2));
        sum = _mm_adds_epi16(sum, terms);
        return static_cast<std::int16_t>(_mm_cvtsi128_si32(sum));
    }

    __m128i coefficients_, differences_;
};
using G722ZerosBest = G722ZerosSse2;
#else
using G722ZerosBest = G722ZerosPlain;
#endif

} // namespace vimbo
