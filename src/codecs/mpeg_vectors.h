// Vectors of floats for the filter banks. Internal to this folder.
#pragma once

#include <cstddef>
#include <cstring>

namespace vimbo::mpeg {

using Float4 = float __attribute__((vector_size(16)));
inline constexpr unsigned kWidth = 4;

inline Float4 Load(const float* from) noexcept
{
    Float4 v;
    std::memcpy(&v, from, sizeof(v));
    return v;
}

inline void Store(float* to, Float4 v) noexcept
{
    std::memcpy(to, &v, sizeof(v));
}

/// Element i of row k becomes element k of row i.
inline void Transpose(Float4& a, Float4& b, Float4& c, Float4& d) noexcept
{
    const Float4 ab = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    const Float4 abHigh = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Float4 cd = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    const Float4 cdHigh = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    a = __builtin_shufflevector(ab, cd, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
    c = __builtin_shufflevector(abHigh, cdHigh, 0, 1, 4, 5);
    d = __builtin_shufflevector(abHigh, cdHigh, 2, 3, 6, 7);
}

} // namespace vimbo::mpeg
