// Joint stereo of layer III: ISO/IEC 11172-3, 2.4.3.4.9, and 13818-3, 2.4.3.2.
#include "codecs/mpeg_layer3.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vimbo::mpeg {
namespace {

constexpr unsigned kIntensityBit = 1, kMiddleSideBit = 2;
constexpr unsigned kPositions1 = 7; ///< of MPEG 1
constexpr unsigned kPositions2 = 32;

/// Factors of left and right.
struct Ratio {
    float left, right;
};

struct Tables {
    std::array<Ratio, kPositions1> mpeg1{};
    std::array<std::array<Ratio, kPositions2>, 2> mpeg2{}; ///< [intensity_scale]

    Tables()
    {
        for (unsigned i = 0; i < kPositions1; ++i) {
            // tan(i pi / 12) to 1, both divided by their sum
            const double s = std::sin(i * std::numbers::pi / 12), c = std::cos(i * std::numbers::pi / 12);
            mpeg1[i] = {static_cast<float>(s / (s + c)), static_cast<float>(c / (s + c))};
        }
        for (unsigned scale = 0; scale < mpeg2.size(); ++scale) {
            for (unsigned i = 0; i < kPositions2; ++i) {
                const double step = scale == 0 ? 0.25 : 0.5;
                const auto weaker = static_cast<float>(std::exp2(-step * ((i + 1) / 2)));
                mpeg2[scale][i] = i % 2 != 0 ? Ratio{weaker, 1} : Ratio{1, weaker};
            }
        }
    }
};

const Tables& GetTables()
{
    static const Tables tables;
    return tables;
}

void MiddleSide(Spectrum& left, Spectrum& right, unsigned first, unsigned end) noexcept
{
    constexpr auto kHalf = static_cast<float>(1 / std::numbers::sqrt2);
    for (unsigned i = first; i < end; ++i) {
        const float middle = left.lines[i], side = right.lines[i];
        left.lines[i] = (middle + side) * kHalf;
        right.lines[i] = (middle - side) * kHalf;
    }
}

/// From which band on each window of the right channel is 0. Long bands are, where they are long for all.
class ZeroBounds {
public:
    ZeroBounds(const BandLayout& layout, const Spectrum& right) noexcept : layout_(layout)
    {
        for (unsigned band = 0; band < layout.bands && layout.edges[band] < right.end; ++band) {
            const auto first = right.lines.begin() + layout.edges[band];
            const auto last = right.lines.begin() + layout.edges[band + 1];
            if (std::all_of(first, last, [](float x) { return x == 0; }))
                continue;
            longEnd_ = band + 1;
            if (band >= layout.longBands)
                windowEnds_[layout.WindowOf(band)] = band + 1;
        }
    }
    bool IsZero(unsigned band) const noexcept
    {
        return band >= (band < layout_.longBands ? longEnd_ : windowEnds_[layout_.WindowOf(band)]);
    }

private:
    const BandLayout& layout_;
    unsigned longEnd_ = 0;
    std::array<unsigned, 3> windowEnds_{};
};

/// The band whose intensity position counts: the last one has none, and takes its neighbour's.
unsigned PositionBand(const BandLayout& layout, unsigned band) noexcept
{
    if (layout.longBands == layout.bands)
        return std::min(band, layout.bands - 2);
    return band + 3 >= layout.bands ? band - 3 : band;
}

} // namespace

void ToLeftRight(const MpegHeader& header, const std::array<GranuleInfo, kMostChannels>& granules,
                 std::array<Spectrum, kMostChannels>& spectra) noexcept
{
    if (header.mode != MpegMode::Joint || header.modeExtension == 0)
        return;
    auto& [left, right] = spectra;
    const bool isMiddleSide = (header.modeExtension & kMiddleSideBit) != 0;
    if ((header.modeExtension & kIntensityBit) == 0) {
        left.end = right.end = std::max(left.end, right.end);
        MiddleSide(left, right, 0, left.end);
        return;
    }
    const BandLayout& layout = LayoutFor(header, granules[1]);
    const ZeroBounds bounds(layout, right);
    const std::span<const Ratio> ratios =
        header.IsLow() ? std::span<const Ratio>(GetTables().mpeg2[granules[1].scaleFactorChoice & 1])
                       : std::span<const Ratio>(GetTables().mpeg1);
    for (unsigned band = 0; band < layout.bands; ++band) {
        const unsigned first = layout.edges[band], end = layout.edges[band + 1];
        const unsigned source = PositionBand(layout, band);
        const unsigned position = right.scaleFactors[source];
        const unsigned illegal = right.illegal[source];
        if (!bounds.IsZero(band) || (illegal != 0 && position >= illegal)) {
            if (isMiddleSide)
                MiddleSide(left, right, first, end);
            continue;
        }
        const Ratio ratio = ratios[position];
        for (unsigned i = first; i < end; ++i) {
            right.lines[i] = left.lines[i] * ratio.right;
            left.lines[i] *= ratio.left;
        }
    }
    left.end = right.end = std::max(left.end, right.end);
}

} // namespace vimbo::mpeg
