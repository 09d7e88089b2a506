#include "codecs/mpeg_layer3.h"

#include "codecs/mpeg_huffman.h"
#include "codecs/mpeg_scale_factors.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vimbo::mpeg {
namespace {

constexpr unsigned kEscape = 15; ///< value to which linbits are added
constexpr unsigned kMostValue = kEscape + (1u << 13) - 1;
constexpr int kLeastGain = -384, kMostGain = 64; ///< in quarters of a power of two

struct Tables {
    std::array<float, kMostValue + 1> powers{};            ///< x^(4/3)
    std::array<float, kMostGain - kLeastGain + 1> gains{}; ///< 2^(i/4)
    /// [rate, as in kBandEdges][long, short, mixed]
    std::array<std::array<BandLayout, 3>, kBandEdges.size()> layouts{};

    Tables()
    {
        for (unsigned x = 0; x < powers.size(); ++x)
            powers[x] = static_cast<float>(x * std::cbrt(static_cast<double>(x)));
        for (int i = kLeastGain; i <= kMostGain; ++i)
            gains[static_cast<unsigned>(i - kLeastGain)] = static_cast<float>(std::exp2(i / 4.0));
        for (unsigned rate = 0; rate < layouts.size(); ++rate) {
            const BandEdges& edges = kBandEdges[rate];
            constexpr unsigned kFirstLow = 3; // rate of MPEG 2
            AddLong(layouts[rate][0], edges, kLongBands);
            AddShort(layouts[rate][1], edges, 0);
            AddLong(layouts[rate][2], edges, rate < kFirstLow ? 8 : 6);
            AddShort(layouts[rate][2], edges, 3);
        }
    }

private:
    static void AddLong(BandLayout& layout, const BandEdges& edges, unsigned count)
    {
        layout.bands = layout.longBands = count;
        std::copy_n(edges.longs.begin(), count + 1, layout.edges.begin());
        for (unsigned i = 0; i < edges.longs[count]; ++i)
            layout.places[i] = static_cast<std::uint16_t>(i % kLines * kSubbands + i / kLines);
    }

    static void AddShort(BandLayout& layout, const BandEdges& edges, unsigned first)
    {
        for (unsigned band = first; band < kShortBands; ++band) {
            const unsigned width = edges.shorts[band + 1] - edges.shorts[band];
            for (unsigned window = 0; window < 3; ++window) {
                const unsigned start = layout.edges[layout.bands];
                for (unsigned f = 0; f < width; ++f) {
                    const unsigned i = 3 * (edges.shorts[band] + f) + window;
                    layout.places[start + f] =
                        static_cast<std::uint16_t>(i % kLines * kSubbands + i / kLines);
                }
                layout.edges[++layout.bands] = static_cast<std::uint16_t>(start + width);
            }
        }
    }
};

const Tables& GetTables()
{
    static const Tables tables;
    return tables;
}

/// Factors of the bands: 2.4.3.4.7.
void SetGains(const GranuleInfo& granule, const BandLayout& layout, bool hasPreemphasis,
              const Spectrum& spectrum, std::array<float, kMostBands>& gains) noexcept
{
    constexpr int kUnity = 210, kPerWindowGain = 8;
    const Tables& tables = GetTables();
    const int global = static_cast<int>(granule.globalGain) - kUnity;
    const int step = granule.isCoarse ? 4 : 2;
    for (unsigned band = 0; band < layout.bands; ++band) {
        int factor = spectrum.scaleFactors[band];
        int gain = global;
        if (band >= layout.longBands)
            gain -= kPerWindowGain * static_cast<int>(granule.windowGains[layout.WindowOf(band)]);
        else if (hasPreemphasis)
            factor += kPreemphasis[band];
        gain -= step * factor;
        gains[band] =
            tables.gains[static_cast<unsigned>(std::clamp(gain, kLeastGain, kMostGain) - kLeastGain)];
    }
}

float WithSign(float value, std::uint64_t sign) noexcept
{
    return std::bit_cast<float>(std::bit_cast<std::uint32_t>(value) | static_cast<std::uint32_t>(sign) << 31);
}

/// Decodes Huffman codes of one granule, band by band.
class SpectrumReader {
public:
    SpectrumReader(const BandLayout& layout, const std::array<float, kMostBands>& gains, const MpegBits& bits,
                   std::size_t end, float* out) noexcept
        : layout_(layout), gains_(gains), bits_(bits), at_(bits.Position()), end_(end), out_(out)
    {
    }

    /// Values of one table, up to line `limit`. False at the end of the data.
    bool ReadPairs(const BigValueTable& table, unsigned limit) noexcept
    {
        if (table.codes == nullptr) {
            std::fill(out_ + line_, out_ + std::max(line_, limit), 0.0f);
            line_ = std::max(line_, limit);
            while (line_ >= layout_.edges[band_ + 1] && band_ + 1 < layout_.bands)
                ++band_;
            return true;
        }
        while (line_ < limit) {
            const unsigned bandEnd = layout_.edges[band_ + 1];
            const unsigned stop = std::min(limit, bandEnd);
            const bool good = table.linbits != 0 ? ReadRun<true>(table, stop) : ReadRun<false>(table, stop);
            if (!good)
                return false;
            if (stop == bandEnd && band_ + 1 < layout_.bands)
                ++band_;
        }
        return true;
    }

    void ReadQuads(const HuffmanTable& codes) noexcept
    {
        while (at_ < end_ && line_ + 4 <= kGranuleFrames) {
            std::uint64_t word = bits_.Peek(at_);
            const std::uint32_t entry = codes.Find(word);
            word <<= HuffmanTable::Length(entry);
            std::size_t at = at_ + HuffmanTable::Length(entry);
            const unsigned values = entry & 0xF;
            at += static_cast<unsigned>(std::popcount(values));
            if (at > end_) // stuffing, not a code
                return;
            at_ = at;
            for (unsigned i = 0; i < 4; ++i) {
                const std::uint64_t isSet = values >> (3 - i) & 1;
                const float gain = isSet != 0 ? gains_[band_] : 0.0f;
                out_[line_ + i] = WithSign(gain, word >> 63 & isSet);
                word <<= isSet;
                if ((i & 1) != 0 && line_ + i + 1 == layout_.edges[band_ + 1] && band_ + 1 < layout_.bands)
                    ++band_;
            }
            line_ += 4;
        }
    }

    unsigned Line() const noexcept { return line_; }

private:
    template <bool HasLinbits>
    bool ReadRun(const BigValueTable& table, unsigned stop) noexcept
    {
        const Tables& tables = GetTables();
        const float gain = gains_[band_];
        const HuffmanTable& codes = *table.codes;
        const MpegBits bits = bits_;
        std::size_t at = at_;
        unsigned line = line_;
        for (; line < stop; line += 2) {
            if (at >= end_)
                break;
            std::uint64_t word = bits.Peek(at);
            const std::uint32_t entry = codes.Find(word);
            word <<= HuffmanTable::Length(entry);
            at += HuffmanTable::Length(entry);
            for (unsigned i = 0; i < 2; ++i) {
                unsigned value = entry >> (4 - 4 * i) & 0xF;
                if (HasLinbits && value == kEscape) {
                    value += static_cast<unsigned>(word >> (64 - table.linbits));
                    word <<= table.linbits;
                    at += table.linbits;
                }
                const unsigned isSet = value != 0 ? 1 : 0;
                out_[line + i] = WithSign(tables.powers[value] * gain, word >> 63 & isSet);
                word <<= isSet;
                at += isSet;
            }
        }
        at_ = at;
        line_ = line;
        if (at <= end_)
            return line == stop;
        line_ -= 2; // the last pair took bits that are not its own
        return false;
    }

    const BandLayout& layout_;
    const std::array<float, kMostBands>& gains_;
    const MpegBits& bits_;
    std::size_t at_;
    std::size_t end_;
    float* out_;
    unsigned line_ = 0;
    unsigned band_ = 0;
};

} // namespace

const BandLayout& LayoutFor(const MpegHeader& header, const GranuleInfo& granule) noexcept
{
    const unsigned rate = 3 * static_cast<unsigned>(header.version) + header.rateIndex;
    return GetTables().layouts[rate][!granule.IsShort() ? 0 : granule.isMixed ? 2 : 1];
}

void ReadGranule(const MpegHeader& header, const GranuleInfo& granule, const std::array<bool, 4>* shared,
                 bool isIntensity, MpegBits& bits, Spectrum& out) noexcept
{
    const BandLayout& layout = LayoutFor(header, granule);
    const std::size_t end = std::min(bits.Position() + granule.bits, bits.SizeBits());
    bool hasPreemphasis = false;
    std::array<float, kMostBands> gains;
    ReadScaleFactors(header, granule, shared, isIntensity, bits, out, hasPreemphasis);
    SetGains(granule, layout, hasPreemphasis, out, gains);
    const HuffmanTables& tables = GetHuffmanTables();
    SpectrumReader reader(layout, gains, bits, end, out.lines.data());
    bool good = bits.Position() <= end;
    for (unsigned region = 0; good && region < granule.regionEnds.size(); ++region)
        good = reader.ReadPairs(tables.bigValues[granule.tables[region]], granule.regionEnds[region]);
    if (good)
        reader.ReadQuads(*tables.quads[granule.quadTable]);
    out.end = reader.Line();
    std::fill(out.lines.begin() + out.end, out.lines.end(), 0.0f);
    while (out.end > 0 && out.lines[out.end - 1] == 0.0f)
        --out.end;
}

unsigned ToLines(const Spectrum& spectrum, const GranuleInfo& granule, const BandLayout& layout,
                 SpectrumLines& out) noexcept
{
    if (!granule.IsShort()) {
        const unsigned subbands = (spectrum.end + kLines - 1) / kLines;
        for (unsigned line = 0; line < kLines; ++line) {
            float* row = out.rows[line].data();
            for (unsigned sb = 0; sb < subbands; ++sb)
                row[sb] = spectrum.lines[sb * kLines + line];
            std::fill(row + subbands, row + kSubbands, 0.0f);
        }
        return subbands;
    }
    out = {};
    unsigned subbands = 0;
    for (unsigned i = 0; i < spectrum.end; ++i) {
        const unsigned place = layout.places[i];
        out.rows[place / kSubbands][place % kSubbands] = spectrum.lines[i];
        subbands = std::max(subbands, place % kSubbands + 1);
    }
    return subbands;
}

} // namespace vimbo::mpeg
