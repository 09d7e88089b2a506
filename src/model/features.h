// The feature mask: which facilities of the model a user wishes to keep.
#pragma once

#include <cstdint>

namespace vimbo {

/// Bit numbers of the mask (setting `features`, default all ones).
enum class Feature : std::uint8_t {
    WaveCompressedFormats = 5,
    WaveDlsFlags = 6,
    WaveFractionalLoops = 7,
    WaveReverseLoops = 8,
    WaveSampledRelease = 9,
    WaveRegionOffsets = 10,
    WaveLoopTuning = 11
};

struct FeatureMask {
    std::uint64_t bits = ~std::uint64_t{0};
    constexpr bool Has(Feature feature) const noexcept
    {
        return (bits >> static_cast<unsigned>(feature) & 1) != 0;
    }
};

} // namespace vimbo
