// Block names are those of Recommendation G.722.
#include "codecs/g722.h"

#include "codecs/g722_tables.h"
#include "codecs/pcm16.h"

#include <algorithm>

namespace vimbo {
namespace {

using namespace g722;

constexpr std::size_t kChunkCodes = 64; ///< worked on at a time, in buffers on the stack
constexpr std::size_t kHistory = G722State::kFilterHistory;
using Phase = std::array<std::int16_t, kHistory + kChunkCodes>;
using Sums = std::array<int, kChunkCodes>;

/// Negates `value` where `mask` is all ones; 0 leaves it.
constexpr int NegateIf(int mask, int value) noexcept
{
    return (value ^ mask) - mask;
}

/// One sub-band at work, its zero section in the form that suits the processor. Signs are random: no
/// branches.
template <class Band>
struct Predictor {
    G722Band band;
    G722ZerosBest zeros;

    explicit Predictor(const G722Band& start) noexcept : band(start), zeros(start.zeros) {}
    G722Band State() const noexcept
    {
        G722Band state = band;
        state.zeros = zeros.State();
        return state;
    }

    /// Blocks UPPOL2 and UPPOL1. `sign` is that of the partial reconstruction, -1 or 0.
    void MovePoles(int sign) noexcept
    {
        const int apart1 = sign ^ band.sign1;
        const int apart2 = sign ^ band.sign2;
        const int pull = std::clamp(band.pole1 * 4, -32767, 32767);
        const int pole2 = (NegateIf(~apart1, pull) >> 7) + NegateIf(apart2, 128) + (band.pole2 * 127 >> 7);
        band.pole2 = std::clamp(pole2, -12288, 12288);
        const int limit = 15360 - band.pole2;
        band.pole1 = std::clamp(NegateIf(apart1, 192) + (band.pole1 * 255 >> 8), -limit, limit);
        band.sign2 = band.sign1;
        band.sign1 = sign;
    }

    /// Takes in one code: the scale moves by its step, the predictor by its value.
    void Adapt(unsigned code) noexcept
    {
        const int difference = band.scale * Band::kLevels[code] >> 15;
        constexpr int kLargest = (static_cast<int>(Band::kScales.size()) - 1) * 64;
        band.logScale = std::clamp((band.logScale * 127 >> 7) + Band::kSteps[code], 0, kLargest);
        band.scale = Band::kScales[static_cast<std::size_t>(band.logScale >> 6)];

        const int last = band.rebuilt;
        band.rebuilt = Clamp16(band.estimate + difference);
        MovePoles((band.zeroEstimate + difference) >> 31);
        band.zeroEstimate = zeros.Move(difference);
        // Block FILTEP
        const int newer = band.pole1 * Clamp16(2 * band.rebuilt) >> 15;
        const int older = band.pole2 * Clamp16(2 * last) >> 15;
        band.estimate = Clamp16(Clamp16(newer + older) + band.zeroEstimate);
    }
};

constexpr int Limit15(int value) noexcept
{
    return std::clamp(value, -16384, 16383);
}

/// The 24-tap filter at work: two phases of 12 taps, the chunk's samples behind those of earlier chunks.
struct FilterBank {
    Phase first{}, second{};
    Sums firstSums, secondSums;

    explicit FilterBank(const G722State& state) noexcept
    {
        std::copy(state.first.begin(), state.first.end(), first.begin());
        std::copy(state.second.begin(), state.second.end(), second.begin());
    }
    void Store(G722State& state) const noexcept
    {
        std::copy_n(first.begin(), kHistory, state.first.begin());
        std::copy_n(second.begin(), kHistory, state.second.begin());
    }

    void Put(std::size_t place, int toFirst, int toSecond) noexcept
    {
        first[kHistory + place] = static_cast<std::int16_t>(toFirst);
        second[kHistory + place] = static_cast<std::int16_t>(toSecond);
    }
    void Run(const Taps& firstTaps, const Taps& secondTaps) noexcept
    {
        Weigh(first, firstTaps, firstSums);
        Weigh(second, secondTaps, secondSums);
    }
    /// Moves the end of a chunk to the front, where the next one begins.
    void Advance(std::size_t count) noexcept
    {
        std::copy_n(first.begin() + static_cast<std::ptrdiff_t>(count), kHistory, first.begin());
        std::copy_n(second.begin() + static_cast<std::ptrdiff_t>(count), kHistory, second.begin());
    }

private:
    /// All of a chunk's places, used or not: `out[n]` weighs `in[n]` to `in[n + 11]`, eight n side by side.
    static void Weigh(const Phase& in, const Taps& taps, Sums& out) noexcept
    {
        constexpr std::size_t kLanes = 8;
        for (std::size_t n = 0; n < out.size(); n += kLanes) {
            std::array<int, kLanes> sums{};
            for (std::size_t tap = 0; tap < kTaps; ++tap)
                for (std::size_t lane = 0; lane < kLanes; ++lane)
                    sums[lane] += in[n + lane + tap] * taps[tap];
            std::copy(sums.begin(), sums.end(), out.begin() + static_cast<std::ptrdiff_t>(n));
        }
    }
};

struct Decoder {
    Predictor<LowBand> low;
    Predictor<HighBand> high;
    const LowLevels& levels;

    /// One code, given as an octet, to both sub-bands' samples.
    void Step(unsigned octet, int& lowOut, int& highOut) noexcept
    {
        const unsigned lowCode = octet & 63;
        lowOut = Limit15(low.band.estimate + (low.band.scale * levels[lowCode] >> 15));
        low.Adapt(lowCode);
        high.Adapt(octet >> 6);
        highOut = Limit15(high.band.rebuilt);
    }
};

/// Block QUANTL: the 6-bit code by bisection. Magnitudes are in ones' complement, -1 counts as 0.
inline unsigned QuantizeLow(int difference, int scale) noexcept
{
    const int magnitude = difference ^ difference >> 31;
    std::size_t passed = 0;
    for (std::size_t step = 16; step > 0; step /= 2) {
        const std::size_t next = passed + step;
        if (next <= kDecisions.size() && magnitude >= kDecisions[next - 1] * scale >> 12)
            passed = next;
    }
    const int level = static_cast<int>(passed) + 1;
    return static_cast<unsigned>(difference < 0 ? kCodes6.Negative(level) : kCodes6.Positive(level));
}

/// Block QUANTH.
inline unsigned QuantizeHigh(int difference, int scale) noexcept
{
    const unsigned small = (difference ^ difference >> 31) < kHighDecision * scale >> 12 ? 1 : 0;
    return (difference < 0 ? 0u : 2u) + small;
}

/// Both sub-bands of a pair of samples, from the two phases' sums.
struct Encoder {
    Predictor<LowBand> low;
    Predictor<HighBand> high;

    unsigned Step(int first, int second) noexcept
    {
        const int lowIn = Limit15((second + first) >> 14);
        const int highIn = Limit15((second - first) >> 14);
        const unsigned lowCode = QuantizeLow(Clamp16(lowIn - low.band.estimate), low.band.scale);
        const unsigned highCode = QuantizeHigh(Clamp16(highIn - high.band.estimate), high.band.scale);
        low.Adapt(lowCode);
        high.Adapt(highCode);
        return highCode << 6 | lowCode;
    }
};

using Splitter = void (*)(std::span<const std::byte>, std::span<std::uint8_t>) noexcept;

Splitter SplitterFor(unsigned bits, BitPacking packing) noexcept
{
    const bool big = packing == BitPacking::BigEndian;
    switch (bits) {
    case 6:
        return big ? SplitCodes<6, BitPacking::BigEndian> : SplitCodes<6, BitPacking::LittleEndian>;
    case 7:
        return big ? SplitCodes<7, BitPacking::BigEndian> : SplitCodes<7, BitPacking::LittleEndian>;
    case 8:
        return SplitCodes<8, BitPacking::BigEndian>;
    default:
        return nullptr;
    }
}

const LowLevels& LevelsFor(unsigned bits) noexcept
{
    return bits == 8 ? kLow6 : bits == 7 ? kLow5 : kLow4;
}

constexpr std::size_t CodesIn(std::size_t bytes, unsigned bits) noexcept
{
    return bytes / bits * 8 + bytes % bits * 8 / bits;
}

/// The receiving filter's output; `out` may end one sample short of the last code.
void Interleave(const FilterBank& filters, std::size_t count, std::span<float> out) noexcept
{
    const std::size_t whole = std::min(count, out.size() / 2);
    for (std::size_t n = 0; n < whole; ++n) {
        out[2 * n] = FromPcm16(Clamp16(filters.firstSums[n] >> 11));
        out[2 * n + 1] = FromPcm16(Clamp16(filters.secondSums[n] >> 11));
    }
    if (whole < count)
        out[2 * whole] = FromPcm16(Clamp16(filters.firstSums[whole] >> 11));
}

/// The sending filter's input; a missing last sample is silence.
void Deinterleave(std::span<const float> in, std::size_t count, FilterBank& filters) noexcept
{
    for (std::size_t n = 0; n < count; ++n) {
        const float second = 2 * n + 1 < in.size() ? in[2 * n + 1] : 0.0f;
        filters.Put(n, ToPcm16(in[2 * n]), ToPcm16(second));
    }
}

} // namespace

std::size_t DecodeG722(G722State& state, unsigned bits, BitPacking packing, std::span<const std::byte> in,
                       std::span<float> out) noexcept
{
    const Splitter split = SplitterFor(bits, packing);
    if (split == nullptr)
        return 0;
    const std::size_t total = std::min(CodesIn(in.size(), bits), out.size() / 2 + out.size() % 2);
    Decoder decoder{Predictor<LowBand>(state.low), Predictor<HighBand>(state.high), LevelsFor(bits)};
    FilterBank filters(state);
    std::array<std::uint8_t, kChunkCodes> codes;
    for (std::size_t done = 0; done < total;) {
        const std::size_t count = std::min(total - done, kChunkCodes);
        split(in.subspan(done / 8 * bits), std::span(codes).first(count));
        for (std::size_t n = 0; n < count; ++n) {
            int low, high;
            decoder.Step(unsigned{codes[n]} << (8 - bits), low, high);
            filters.Put(n, low - high, low + high);
        }
        filters.Run(kFilterBackwards, kFilter);
        Interleave(filters, count, out.subspan(2 * done));
        filters.Advance(count);
        done += count;
    }
    filters.Store(state);
    state.low = decoder.low.State();
    state.high = decoder.high.State();
    return std::min(2 * total, out.size());
}

std::size_t EncodeG722(G722State& state, unsigned bits, BitPacking packing, std::span<const float> in,
                       std::span<std::byte> out) noexcept
{
    if (bits < 6 || bits > 8)
        return 0;
    const std::size_t total = std::min(in.size() / 2 + in.size() % 2, CodesIn(out.size(), bits));
    Encoder encoder{Predictor<LowBand>(state.low), Predictor<HighBand>(state.high)};
    FilterBank filters(state);
    CodeWriter writer(out, packing);
    for (std::size_t done = 0; done < total;) {
        const std::size_t count = std::min(total - done, kChunkCodes);
        Deinterleave(in.subspan(2 * done), count, filters);
        filters.Run(kFilter, kFilterBackwards);
        for (std::size_t n = 0; n < count; ++n)
            writer.Put(encoder.Step(filters.firstSums[n], filters.secondSums[n]) >> (8 - bits), bits);
        filters.Advance(count);
        done += count;
    }
    filters.Store(state);
    state.low = encoder.low.State();
    state.high = encoder.high.State();
    return writer.Finish();
}

} // namespace vimbo
