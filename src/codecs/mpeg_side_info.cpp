// The side information and the scale factors of layer III.
#include "codecs/mpeg_scale_factors.h"

#include <algorithm>

namespace vimbo::mpeg {
namespace {

constexpr unsigned kShortRegion = 36; ///< end of region 0 where the stream does not say it, in lines
constexpr unsigned kMostBigValues = kGranuleFrames / 2;

bool Is8kHz(const MpegHeader& header) noexcept
{
    return header.version == MpegVersion::Mpeg25 && header.rateIndex == 2;
}

/// Tables and regions of blocks that are not plain long ones.
void ParseSwitchedBlock(const MpegHeader& header, MpegBits& in, GranuleInfo& out) noexcept
{
    out.type = static_cast<BlockType>(in.Take(2));
    out.isMixed = in.Take(1) != 0;
    out.tables[0] = in.Take(5);
    out.tables[1] = in.Take(5);
    for (unsigned& gain : out.windowGains)
        gain = in.Take(3);
    constexpr unsigned kLongRegionBands = 8;
    const BandEdges& edges = kBandEdges[3 * static_cast<unsigned>(header.version) + header.rateIndex];
    out.regionEnds[0] = !out.IsShort()   ? edges.longs[kLongRegionBands]
                        : Is8kHz(header) ? 2 * kShortRegion
                                         : kShortRegion;
    out.regionEnds[1] = kGranuleFrames;
}

void ParsePlainBlock(const MpegHeader& header, MpegBits& in, GranuleInfo& out) noexcept
{
    for (unsigned& table : out.tables)
        table = in.Take(5);
    const unsigned first = in.Take(4) + 1, second = first + in.Take(3) + 1;
    const BandEdges& edges = kBandEdges[3 * static_cast<unsigned>(header.version) + header.rateIndex];
    out.regionEnds[0] = edges.longs[first];
    out.regionEnds[1] = edges.longs[std::min(second, kLongBands)];
}

/// False for what the standard forbids.
bool ParseGranule(const MpegHeader& header, MpegBits& in, GranuleInfo& out) noexcept
{
    out = {};
    out.bits = in.Take(12);
    out.bigValues = in.Take(9);
    out.globalGain = in.Take(8);
    out.scaleFactorChoice = in.Take(header.IsLow() ? 9 : 4);
    const bool isSwitched = in.Take(1) != 0;
    if (isSwitched)
        ParseSwitchedBlock(header, in, out);
    else
        ParsePlainBlock(header, in, out);
    out.hasPreemphasis = !header.IsLow() && in.Take(1) != 0;
    out.isCoarse = in.Take(1) != 0;
    out.quadTable = in.Take(1);
    if (out.bigValues > kMostBigValues || (isSwitched && out.type == BlockType::Long))
        return false;
    out.regionEnds[2] = 2 * out.bigValues;
    for (unsigned& end : out.regionEnds)
        end = std::min(end, out.regionEnds[2]);
    return true;
}

/// Bands of a layout in groups of equal width of their scale factors.
struct Group {
    unsigned bands;
    unsigned bits;
};

template <std::size_t Count>
void ReadGroups(MpegBits& in, const std::array<Group, Count>& groups, const std::array<bool, 4>* shared,
                Spectrum& out) noexcept
{
    unsigned band = 0;
    for (std::size_t i = 0; i < Count; ++i) {
        const Group& group = groups[i];
        const unsigned end = band + group.bands;
        if (shared != nullptr && (*shared)[i]) {
            band = end;
            continue;
        }
        for (; band < end; ++band)
            out.scaleFactors[band] = static_cast<std::uint8_t>(in.Take(group.bits));
    }
    std::fill(out.scaleFactors.begin() + band, out.scaleFactors.end(), std::uint8_t{0});
}

void ReadScaleFactors1(const GranuleInfo& granule, const std::array<bool, 4>* shared, MpegBits& in,
                       Spectrum& out) noexcept
{
    const auto [low, high] = kScaleFactorBits[granule.scaleFactorChoice];
    constexpr std::uint8_t kLimit = 7; // 2.4.3.4.9.3
    out.illegal.fill(kLimit);
    if (granule
            .IsShort()) // six bands of three windows each, in mixed blocks eight long ones and three of three
        ReadGroups<2>(in, {{{granule.isMixed ? 17u : 18u, low}, {18, high}}}, nullptr, out);
    else
        ReadGroups<4>(in, {{{6, low}, {5, low}, {5, high}, {5, high}}}, shared, out);
}

/// Widths of the four parts, and which row of sizes they have. 13818-3, 2.4.3.2.
struct LowWidths {
    std::array<unsigned, 4> bits;
    unsigned row;
    bool hasPreemphasis = false;
};

LowWidths WidthsOf(unsigned choice, bool isIntensity) noexcept
{
    if (!isIntensity) {
        if (choice < 400)
            return {{(choice >> 4) / 5, (choice >> 4) % 5, choice % 16 >> 2, choice % 4}, 0};
        if (choice < 500)
            return {{(choice - 400) / 4 / 5, (choice - 400) / 4 % 5, (choice - 400) % 4, 0}, 1};
        return {{(choice - 500) / 3, (choice - 500) % 3, 0, 0}, 2, true};
    }
    choice >>= 1;
    if (choice < 180)
        return {{choice / 36, choice % 36 / 6, choice % 36 % 6, 0}, 3};
    if (choice < 244)
        return {{(choice - 180) % 64 >> 4, (choice - 180) % 16 >> 2, (choice - 180) % 4, 0}, 4};
    return {{(choice - 244) / 3, (choice - 244) % 3, 0, 0}, 5};
}

/// @return whether the bands are emphasised
bool ReadScaleFactors2(const GranuleInfo& granule, bool isIntensity, MpegBits& in, Spectrum& out) noexcept
{
    const LowWidths widths = WidthsOf(granule.scaleFactorChoice, isIntensity);
    const unsigned kind = !granule.IsShort() ? 0 : granule.isMixed ? 2 : 1;
    const PartSizes& sizes = kScaleFactorParts[widths.row][kind];
    std::array<Group, 4> groups{};
    out.illegal.fill(0);
    unsigned band = 0;
    for (unsigned i = 0; i < groups.size(); ++i) {
        groups[i] = {sizes[i], widths.bits[i]};
        const auto limit = static_cast<std::uint8_t>((1u << widths.bits[i]) - 1);
        std::fill_n(out.illegal.begin() + band, sizes[i], limit);
        band += sizes[i];
    }
    ReadGroups<4>(in, groups, nullptr, out);
    return widths.hasPreemphasis;
}

} // namespace

bool ParseSideInfo(const MpegHeader& header, std::span<const std::byte> bytes, SideInfo& out) noexcept
{
    constexpr std::size_t kMostSideBytes = 32;
    const std::size_t size = header.SideInfoBytes();
    if (bytes.size() < size)
        return false;
    std::array<std::uint8_t, kMostSideBytes + kBitsMargin> copy{};
    std::memcpy(copy.data(), bytes.data(), size);
    MpegBits in(copy.data(), size);
    const unsigned channels = header.Channels();
    const unsigned granules = header.IsLow() ? 1 : 2;
    out.dataBack = in.Take(header.IsLow() ? 8 : 9);
    if (header.IsLow())
        in.Take(channels); // private bits
    else
        in.Take(channels == 1 ? 5 : 3);
    for (unsigned channel = 0; channel < channels; ++channel)
        for (bool& shares : out.sharesScaleFactors[channel])
            shares = !header.IsLow() && in.Take(1) != 0;
    for (unsigned granule = 0; granule < granules; ++granule)
        for (unsigned channel = 0; channel < channels; ++channel)
            if (!ParseGranule(header, in, out.granules[granule][channel]))
                return false;
    return true;
}

void ReadScaleFactors(const MpegHeader& header, const GranuleInfo& granule, const std::array<bool, 4>* shared,
                      bool isIntensity, MpegBits& in, Spectrum& out, bool& hasPreemphasis) noexcept
{
    hasPreemphasis = granule.hasPreemphasis;
    if (header.IsLow())
        hasPreemphasis = ReadScaleFactors2(granule, isIntensity, in, out);
    else
        ReadScaleFactors1(granule, shared, in, out);
}

} // namespace vimbo::mpeg
