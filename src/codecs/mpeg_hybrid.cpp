// The inverse transform of layer III. All vectors hold the same line, or the same sample, of four subbands.
//
// A transform of 2N samples from N lines X is a cosine transform of type IV, Y, mirrored. With 2 cos(a)
// cos((2k+1)a) = cos(2ka) + cos((2k+2)a), Y[n] times 2 cos of its own angle is a transform of type III over
// X[k] + X[k-1], whose even and odd lines make two transforms of half the size, the odd ones once more by the
// same identity. The factors of the last step are part of the windows.
#include "codecs/mpeg_filters.h"
#include "codecs/mpeg_vectors.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vimbo::mpeg {
namespace {

constexpr unsigned kBlockSamples = 2 * kLines;
constexpr unsigned kShortLines = 6;
constexpr unsigned kShortSamples = 2 * kShortLines;
constexpr unsigned kWindows = 3;
constexpr unsigned kMixedSubbands = 2;
static_assert(kSubbands % kWidth == 0 && kMixedSubbands < kWidth);

double Angle(double part, double whole)
{
    return std::numbers::pi * part / whole;
}

/// Which of Y is sample i of a mirrored transform of `lines` lines, and with which sign.
unsigned MirrorIndex(unsigned i, unsigned lines)
{
    const unsigned n = i + lines / 2;
    return n < lines ? n : n < 2 * lines ? 2 * lines - 1 - n : n - 2 * lines;
}

double MirrorFactor(unsigned i, unsigned lines)
{
    const unsigned n = MirrorIndex(i, lines);
    const double factor = 1 / (2 * std::cos(Angle(2 * n + 1, 4 * lines)));
    return i + lines / 2 < lines ? factor : -factor;
}

/// ISO/IEC 11172-3, 2.4.3.4.10.3.
double WindowAt(BlockType type, unsigned i)
{
    if (type == BlockType::Stop)
        return WindowAt(BlockType::Start, kBlockSamples - 1 - i);
    if (type == BlockType::Long || i < 18)
        return std::sin(Angle(i + 0.5, 36));
    if (i < 24)
        return 1;
    return i < 30 ? std::sin(Angle(i - 18 + 0.5, 12)) : 0;
}

struct Tables {
    std::array<std::array<float, kBlockSamples>, 4> windows{}; ///< by block type
    std::array<float, kShortSamples> shortWindow{};
    std::array<float, 9> halves{}; ///< 1 / (2 cos((2n+1) pi / 36))
    std::array<float, 3> shortHalves{};
    std::array<float, 8> aliasOwn{}, aliasOther{};

    Tables()
    {
        for (unsigned type = 0; type < windows.size(); ++type)
            for (unsigned i = 0; i < kBlockSamples; ++i)
                windows[type][i] =
                    static_cast<float>(WindowAt(static_cast<BlockType>(type), i) * MirrorFactor(i, kLines));
        for (unsigned i = 0; i < kShortSamples; ++i)
            shortWindow[i] = static_cast<float>(std::sin(Angle(i + 0.5, 12)) * MirrorFactor(i, kShortLines));
        for (unsigned n = 0; n < halves.size(); ++n)
            halves[n] = static_cast<float>(1 / (2 * std::cos(Angle(2 * n + 1, 36))));
        for (unsigned n = 0; n < shortHalves.size(); ++n)
            shortHalves[n] = static_cast<float>(1 / (2 * std::cos(Angle(2 * n + 1, 12))));
        for (unsigned i = 0; i < kAliasCoefficients.size(); ++i) {
            const double c = kAliasCoefficients[i];
            aliasOwn[i] = static_cast<float>(1 / std::sqrt(1 + c * c));
            aliasOther[i] = static_cast<float>(c / std::sqrt(1 + c * c));
        }
    }
};

const Tables& GetTables()
{
    static const Tables tables;
    return tables;
}

/// out[n] = sum of in[m] cos(m (2n + 1) pi / 18).
void Cosines9(const Float4* in, Float4* out) noexcept
{
    constexpr float c10 = 0.98480775301220806f, c20 = 0.93969262078590838f, c30 = 0.86602540378443865f,
                    c40 = 0.76604444311897804f, c50 = 0.64278760968653933f, c70 = 0.34202014332566873f,
                    c80 = 0.17364817766693035f;
    const Float4 even0 = in[0] + 0.5f * in[6];
    const Float4 e[4] = {
        even0 + c20 * in[2] + c40 * in[4] + c80 * in[8], in[0] - in[6] + 0.5f * (in[2] - in[4] - in[8]),
        even0 - c80 * in[2] - c20 * in[4] + c40 * in[8], even0 - c40 * in[2] + c80 * in[4] - c20 * in[8]};
    const Float4 odd3 = c30 * in[3];
    const Float4 o[4] = {c10 * in[1] + odd3 + c50 * in[5] + c70 * in[7], c30 * (in[1] - in[5] - in[7]),
                         c50 * in[1] - odd3 - c70 * in[5] + c10 * in[7],
                         c70 * in[1] - odd3 + c10 * in[5] - c50 * in[7]};
    for (unsigned n = 0; n < 4; ++n) {
        out[n] = e[n] + o[n];
        out[8 - n] = e[n] - o[n];
    }
    out[4] = in[0] - in[2] + in[4] - in[6] + in[8];
}

/// out[n] = sum of in[m] cos(m (2n + 1) pi / 6).
void Cosines3(const Float4* in, Float4* out) noexcept
{
    constexpr float c30 = 0.86602540378443865f;
    const Float4 even = in[0] + 0.5f * in[2];
    const Float4 odd = c30 * in[1];
    out[0] = even + odd;
    out[1] = in[0] - in[2];
    out[2] = even - odd;
}

/// Y[n] times 2 cos((2n + 1) pi / (4 * 2 * Half)), from 2 * Half lines `Step` rows apart.
template <unsigned Half, unsigned Step, class Cosines>
void Transform(const SpectrumLines& lines, unsigned first, unsigned subband, const float* halves,
               Cosines cosines, Float4* out) noexcept
{
    Float4 even[Half], odd[Half], sums[Half], differences[Half];
    Float4 before{}, oddBefore{};
    for (unsigned m = 0; m < Half; ++m) {
        const Float4 a = Load(&lines.rows[first + 2 * m * Step][subband]);
        const Float4 b = Load(&lines.rows[first + (2 * m + 1) * Step][subband]);
        even[m] = a + before;
        odd[m] = a + b + oddBefore;
        oddBefore = a + b;
        before = b;
    }
    cosines(even, sums);
    cosines(odd, differences);
    for (unsigned n = 0; n < Half; ++n) {
        const Float4 difference = differences[n] * halves[n];
        out[n] = sums[n] + difference;
        out[2 * Half - 1 - n] = sums[n] - difference;
    }
}

/// 36 windowed samples of a long block of any kind.
void LongBlock(const SpectrumLines& lines, unsigned subband, BlockType type, Float4* out) noexcept
{
    const Tables& tables = GetTables();
    Float4 y[kLines];
    Transform<9, 1>(lines, 0, subband, tables.halves.data(), Cosines9, y);
    const float* window = tables.windows[static_cast<unsigned>(type)].data();
    for (unsigned n = 0; n < 9; ++n) {
        out[n] = y[9 + n] * window[n];
        out[17 - n] = y[9 + n] * window[17 - n];
        out[26 - n] = y[n] * window[26 - n];
        out[27 + n] = y[n] * window[27 + n];
    }
}

/// The same of three short blocks.
void ShortBlocks(const SpectrumLines& lines, unsigned subband, Float4* out) noexcept
{
    const Tables& tables = GetTables();
    std::fill_n(out, kBlockSamples, Float4{});
    for (unsigned w = 0; w < kWindows; ++w) {
        Float4 y[kShortLines];
        Transform<3, kWindows>(lines, w, subband, tables.shortHalves.data(), Cosines3, y);
        Float4* to = out + kShortLines * (w + 1);
        for (unsigned i = 0; i < kShortSamples; ++i) {
            const unsigned n = i < 3 ? i + 3 : i < 9 ? 8 - i : i - 9;
            to[i] += y[n] * tables.shortWindow[i];
        }
    }
}

/// Turns rows of subbands into rows of slots, with the sign of odd slots of odd subbands.
void ToSlots(const SpectrumLines& samples, SubbandSlots& out) noexcept
{
    constexpr Float4 kAlternate = {1, -1, 1, -1};
    const Float4 zero{};
    for (unsigned slot = 0; slot < kLines; slot += kWidth) {
        const bool isLast = slot + kWidth > kLines;
        for (unsigned sb = 0; sb < kSubbands; sb += kWidth) {
            Float4 a = Load(&samples.rows[slot][sb]), b = Load(&samples.rows[slot + 1][sb]);
            Float4 c = isLast ? zero : Load(&samples.rows[slot + 2][sb]);
            Float4 d = isLast ? zero : Load(&samples.rows[slot + 3][sb]);
            Transpose(a, b, c, d);
            Store(&out.rows[sb][slot], a);
            Store(&out.rows[sb + 1][slot], b * kAlternate);
            Store(&out.rows[sb + 2][slot], c);
            Store(&out.rows[sb + 3][slot], d * kAlternate);
        }
    }
}

} // namespace

void HybridFilter::Run(const SpectrumLines& lines, unsigned subbands, BlockType type, bool isMixed,
                       SubbandSlots& out) noexcept
{
    SpectrumLines samples;
    unsigned sb = 0;
    for (; sb < subbands; sb += kWidth) {
        Float4 block[kBlockSamples];
        if (type == BlockType::Short)
            ShortBlocks(lines, sb, block);
        else
            LongBlock(lines, sb, type, block);
        if (isMixed && sb == 0) {
            Float4 lowest[kBlockSamples];
            LongBlock(lines, 0, BlockType::Long, lowest);
            for (unsigned i = 0; i < kBlockSamples; ++i)
                for (unsigned lane = 0; lane < kMixedSubbands; ++lane)
                    block[i][lane] = lowest[i][lane];
        }
        for (unsigned i = 0; i < kLines; ++i) {
            Store(&samples.rows[i][sb], block[i] + Load(&overlap_.rows[i][sb]));
            Store(&overlap_.rows[i][sb], block[kLines + i]);
        }
    }
    for (; sb < kSubbands; sb += kWidth) {
        for (unsigned i = 0; i < kLines; ++i) {
            Store(&samples.rows[i][sb], Load(&overlap_.rows[i][sb]));
            Store(&overlap_.rows[i][sb], Float4{});
        }
    }
    ToSlots(samples, out);
}

void ReduceAliases(SpectrumLines& lines, unsigned borders) noexcept
{
    const Tables& tables = GetTables();
    for (unsigned i = 0; i < kAliasCoefficients.size(); ++i) {
        const float own = tables.aliasOwn[i], other = tables.aliasOther[i];
        float* up = lines.rows[kLines - 1 - i].data();
        float* down = lines.rows[i].data() + 1;
        for (unsigned sb = 0; sb < borders; ++sb) {
            const float u = up[sb], d = down[sb];
            up[sb] = u * own - d * other;
            down[sb] = d * own + u * other;
        }
    }
}

} // namespace vimbo::mpeg
