// Vectors of floats for kernels that run several voices, or several frames, side by side. Each element is
// computed by itself and nothing is contracted, so results do not depend on the width. Internal to this
// folder.
#pragma once

#include "dsp/kernels/multiversion.h"
#include "dsp/kernels/sample_rules.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace vimbo {

using Float4 = float __attribute__((vector_size(16)));
using Float8 = float __attribute__((vector_size(32)));

/// As wide as the registers of the version. Wider ones would live in memory.
template <Isa Version>
using Floats = std::conditional_t<Version == Isa::Avx2, Float8, Float4>;

template <class V>
inline constexpr std::size_t kWidth = sizeof(V) / sizeof(float);

// Vectors travel by reference: by value they would need a calling convention that the baseline lacks.

template <class V>
VIMBO_INLINE void Load(V& v, const float* from) noexcept
{
    std::memcpy(&v, from, sizeof(V));
}

template <class V>
VIMBO_INLINE void Store(float* to, const V& v) noexcept
{
    std::memcpy(to, &v, sizeof(V));
}

/// Four floats from each of two places; narrow vectors take the lower one only.
VIMBO_INLINE void LoadQuads(Float4& v, const float* lower, const float*) noexcept
{
    Load(v, lower);
}

VIMBO_INLINE void LoadQuads(Float8& v, const float* lower, const float* upper) noexcept
{
    Float4 a, b;
    Load(a, lower);
    Load(b, upper);
    v = __builtin_shufflevector(a, b, 0, 1, 2, 3, 4, 5, 6, 7);
}

VIMBO_INLINE void StoreQuads(float* lower, float*, const Float4& v) noexcept
{
    Store(lower, v);
}

VIMBO_INLINE void StoreQuads(float* lower, float* upper, const Float8& v) noexcept
{
    const Float4 a = __builtin_shufflevector(v, v, 0, 1, 2, 3), b = __builtin_shufflevector(v, v, 4, 5, 6, 7);
    Store(lower, a);
    Store(upper, b);
}

/// Turns four rows into four columns, in each half of wider vectors: element i of row k becomes element k of
/// row i.
VIMBO_INLINE void Transpose(Float4& a, Float4& b, Float4& c, Float4& d) noexcept
{
    const Float4 ab = __builtin_shufflevector(a, b, 0, 4, 1, 5),
                 abHigh = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Float4 cd = __builtin_shufflevector(c, d, 0, 4, 1, 5),
                 cdHigh = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    a = __builtin_shufflevector(ab, cd, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
    c = __builtin_shufflevector(abHigh, cdHigh, 0, 1, 4, 5);
    d = __builtin_shufflevector(abHigh, cdHigh, 2, 3, 6, 7);
}

VIMBO_INLINE void Transpose(Float8& a, Float8& b, Float8& c, Float8& d) noexcept
{
    const Float8 ab = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
    const Float8 abHigh = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
    const Float8 cd = __builtin_shufflevector(c, d, 0, 8, 1, 9, 4, 12, 5, 13);
    const Float8 cdHigh = __builtin_shufflevector(c, d, 2, 10, 3, 11, 6, 14, 7, 15);
    a = __builtin_shufflevector(ab, cd, 0, 1, 8, 9, 4, 5, 12, 13);
    b = __builtin_shufflevector(ab, cd, 2, 3, 10, 11, 6, 7, 14, 15);
    c = __builtin_shufflevector(abHigh, cdHigh, 0, 1, 8, 9, 4, 5, 12, 13);
    d = __builtin_shufflevector(abHigh, cdHigh, 2, 3, 10, 11, 6, 7, 14, 15);
}

/// What every feedback path adds and takes away again: values below about 1e-25 become exactly 0, so that
/// decaying states never reach the denormals, which many processors compute a hundred times slower.
inline constexpr float kFlush = 1e-18f;

template <class V>
VIMBO_INLINE void Flush(V& v) noexcept
{
    v = (v + kFlush) - kFlush;
}

} // namespace vimbo
