#include "codecs/mace.h"

#include "codecs/mace_tables.h"
#include "codecs/pcm16.h"

#include <algorithm>

namespace vimbo {
namespace {

/// A byte holds three codes, of 3, 2 and 3 bits from the lowest.
constexpr unsigned LowCode(unsigned packed) noexcept
{
    return packed & 7;
}
constexpr unsigned MiddleCode(unsigned packed) noexcept
{
    return packed >> 3 & 3;
}
constexpr unsigned HighCode(unsigned packed) noexcept
{
    return packed >> 5;
}

/// The difference that a code stands for. The upper half of the codes mirrors the lower, one below zero.
template <std::size_t Half>
int StepOf(MaceState& state, unsigned code, const MaceLevels<Half>& levels,
           const std::array<std::int16_t, 2 * Half>& moves) noexcept
{
    const auto& row = levels[static_cast<std::size_t>(state.index) >> 4 & (levels.size() - 1)];
    const int step = code < Half ? row[code] : -1 - row[2 * Half - 1 - code];
    state.index = std::max(state.index + moves[code] - (state.index >> 5), 0);
    return step;
}

int WideStep(MaceState& state, unsigned code) noexcept
{
    return StepOf(state, code, kMaceWideLevels, kMaceWideMoves);
}

int NarrowStep(MaceState& state, unsigned code) noexcept
{
    return StepOf(state, code, kMaceNarrowLevels, kMaceNarrowMoves);
}

/// The Sound Manager's limits: what falls below goes to -32767, though -32768 itself may stay.
int Limit(int value) noexcept
{
    return value > 32767 ? 32767 : value < -32768 ? -32767 : value;
}

/// The 8-bit sample on top, doubled into both bytes.
float FromTopByte(int value) noexcept
{
    const auto top = static_cast<unsigned>(value) >> 8 & 0xFF;
    return FromPcm16(static_cast<std::int16_t>(top << 8 | top));
}

float NextOfThree(MaceState& state, int step) noexcept
{
    const int value = Limit(step + state.level);
    state.level = value - (value >> 3);
    return FromTopByte(value);
}

/// Two samples of 6:1 from one step: the value and a point between the last ones.
void NextOfSix(MaceState& state, int step, unsigned channels, float* out) noexcept
{
    constexpr int kRise = 506;
    constexpr int kFall = 314;
    const bool sameSign = (state.previous ^ step) >= 0;
    state.factor = sameSign                         ? std::min(state.factor + kRise, 32767)
                   : state.factor - kFall >= -32768 ? state.factor - kFall
                                                    : -32767;
    const int value = Limit(step + state.level);
    state.level = value * state.factor >> 15;
    const int half = value >> 1;
    const int bend = (state.earlier - half) >> 2;
    out[0] = FromTopByte(state.previous + state.earlier - bend);
    out[channels] = FromTopByte(state.previous + half + bend);
    state.earlier = state.previous;
    state.previous = half;
}

void DecodeThree(MaceState& state, std::span<const std::byte> packet, unsigned channels, float* out) noexcept
{
    for (const std::byte byte : packet) {
        const auto packed = std::to_integer<unsigned>(byte);
        out[0] = NextOfThree(state, WideStep(state, LowCode(packed)));
        out[channels] = NextOfThree(state, NarrowStep(state, MiddleCode(packed)));
        out[2 * channels] = NextOfThree(state, WideStep(state, HighCode(packed)));
        out += 3 * channels;
    }
}

/// The codes of 6:1 come in the other order.
void DecodeSix(MaceState& state, std::byte byte, unsigned channels, float* out) noexcept
{
    const auto packed = std::to_integer<unsigned>(byte);
    NextOfSix(state, WideStep(state, HighCode(packed)), channels, out);
    NextOfSix(state, NarrowStep(state, MiddleCode(packed)), channels, out + 2 * channels);
    NextOfSix(state, WideStep(state, LowCode(packed)), channels, out + 4 * channels);
}

} // namespace

std::size_t DecodeMace(std::span<MaceState> states, MaceRatio ratio, std::span<const std::byte> in,
                       std::span<float> out) noexcept
{
    const auto channels = static_cast<unsigned>(states.size());
    const std::size_t packetBytes = MacePacketBytes(ratio);
    const std::size_t rounds =
        std::min(in.size() / (packetBytes * channels), out.size() / (kMacePacketFrames * channels));
    for (std::size_t round = 0; round < rounds; ++round) {
        float* const frames = out.data() + round * kMacePacketFrames * channels;
        for (unsigned channel = 0; channel < channels; ++channel) {
            const auto packet = in.subspan((round * channels + channel) * packetBytes, packetBytes);
            if (ratio == MaceRatio::Three)
                DecodeThree(states[channel], packet, channels, frames + channel);
            else
                DecodeSix(states[channel], packet[0], channels, frames + channel);
        }
    }
    return rounds * kMacePacketFrames;
}

} // namespace vimbo
