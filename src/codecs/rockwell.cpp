#include "codecs/rockwell.h"

#include "codecs/bits.h"
#include "codecs/pcm16.h"

namespace vimbo {
namespace {

constexpr int kSmallestStep = 31;
constexpr std::int64_t kLeak = 64226; // 0.98, 2^16 = 1
constexpr int kCoefficientMove = 393; // 0.012, 2^15 = 1
constexpr std::int64_t kHalfOutput = 0x8000;

/// Quantizer of one width, by code. 2^15 = a quarter.
template <unsigned Bits>
struct Quantizer {
    std::array<int, 1u << Bits> levels; ///< difference, in steps
    std::array<int, 1u << Bits> growth; ///< of the step
    int largestStep;
};

constexpr Quantizer<2> kTwoBits{{-12370, -3709, 3709, 12370}, {13107, 6554, 6554, 13107}, 21700};

constexpr Quantizer<3> kThreeBits{{-17629, -11010, -6193, -2008, 2008, 6193, 11010, 17629},
                                  {14336, 10240, 7373, 7373, 7373, 7373, 10240, 14336},
                                  15226};

// 13255 has no mirror image below: the modems' own table is like that.
constexpr Quantizer<4> kFourBits{
    {-22389, -16949, -13271, -10289, -7720, -5381, -3179, -1052, 1052, 3179, 5381, 7720, 10289, 13255, 16949,
     22389},
    {19661, 16384, 13107, 9830, 7373, 7373, 7373, 7373, 7373, 7373, 7373, 7373, 9830, 13107, 16384, 19661},
    11989};

/// factor * step, rounded to the nearest by the bit below, times 4.
int Scaled(int factor, int step) noexcept
{
    return ((factor * step + 0x4000) >> 15) * 4;
}

/// The difference on top of what the last eight foretell. The sum has 16 bits below the output, which is
/// rounded.
int Predicted(const RockwellState& state, int difference) noexcept
{
    std::int64_t sum = std::int64_t{difference} * 65536 + kHalfOutput;
    for (std::size_t i = 0; i < RockwellState::kOrder; ++i)
        sum += std::int64_t{2} * (state.coefficients[i] * state.differences[i]);
    return static_cast<int>(std::clamp<std::int64_t>(sum >> 16, -32768, 32767));
}

/// Every coefficient leaks, and moves towards the sign that its difference has in common with the new one.
void Learn(RockwellState& state, int difference) noexcept
{
    for (std::size_t i = 0; i < RockwellState::kOrder; ++i) {
        const int product = difference * state.differences[i];
        const int move = product > 0 ? kCoefficientMove : product < 0 ? -kCoefficientMove : 0;
        const auto leaked = static_cast<int>(state.coefficients[i] * kLeak >> 16);
        state.coefficients[i] = Clamp16(leaked + move);
    }
    std::copy_backward(state.differences.begin(), state.differences.end() - 1, state.differences.end());
    state.differences[0] = difference;
}

template <unsigned Bits>
std::size_t Decode(const Quantizer<Bits>& quantizer, RockwellState& outside, std::span<const std::byte> in,
                   std::span<float> out) noexcept
{
    RockwellState state = outside;
    CodeReader codes(in, BitPacking::LittleEndian);
    const std::size_t held = in.size() / Bits * 8 + in.size() % Bits * 8 / Bits;
    const std::size_t samples = std::min(held, out.size());
    for (std::size_t i = 0; i < samples; ++i) {
        const unsigned code = codes.Take(Bits);
        const int difference = Clamp16(Scaled(quantizer.levels[code], state.step));
        state.step =
            std::clamp(Scaled(quantizer.growth[code], state.step), kSmallestStep, quantizer.largestStep);
        out[i] = FromPcm16(Predicted(state, difference));
        Learn(state, difference);
    }
    outside = state;
    return samples;
}

} // namespace

std::size_t DecodeRockwell(RockwellState& state, unsigned bits, std::span<const std::byte> in,
                           std::span<float> out) noexcept
{
    switch (bits) {
    case 2:
        return Decode(kTwoBits, state, in, out);
    case 3:
        return Decode(kThreeBits, state, in, out);
    case 4:
        return Decode(kFourBits, state, in, out);
    default:
        return 0;
    }
}

} // namespace vimbo
