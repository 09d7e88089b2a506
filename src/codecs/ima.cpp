#include "codecs/ima.h"

#include "codecs/step_adpcm.h"

#include <cstdlib>

namespace vimbo {
namespace {

constexpr std::size_t kSteps = 89;
constexpr std::size_t kHeaderBytes = 4, kGroupBytes = 4;
constexpr unsigned kGroupCodes = 8; // of 4 bits
constexpr std::size_t kIma4HeaderBytes = 2;
constexpr int kIma4Coarseness = 128;     // of the predictor in a packet's header; below it lies the index
constexpr std::size_t kFittedFrames = 4; // that choose the first step anew
constexpr std::size_t kTrialFrames = 64; // that try it out

// Recommended Practices, rev. 3.00, table 2: each step about 1.1 times the one before.
constexpr std::array<int, kSteps> kStepSizes{
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

template <unsigned Bits>
using Track = StepTrack<kSteps, Bits>;

template <unsigned Bits>
constexpr std::array<int, 1u << (Bits - 1)> kMoves{};
template <>
constexpr std::array<int, 2> kMoves<2>{-1, 2};
template <>
constexpr std::array<int, 4> kMoves<3>{-1, -1, 1, 2};
template <>
constexpr std::array<int, 8> kMoves<4>{-1, -1, -1, -1, 2, 4, 6, 8};

template <unsigned Bits>
constexpr StepTable<kSteps, Bits> kTable{kStepSizes, kMoves<Bits>, 1};

template <unsigned Bits>
Track<Bits> ReadHeader(std::span<const std::byte> block, std::size_t channel) noexcept
{
    const std::size_t at = kHeaderBytes * channel;
    return {Int16LeAt(block, at), std::to_integer<int>(block[at + 2])};
}

/// Decodes `Lanes` neighbouring channels side by side, so that their chains of samples overlap in time.
/// `Stride` is the number of channels, or 0 where only `channels` knows it.
template <unsigned Bits, std::size_t Lanes, std::size_t Stride>
void DecodeLanes(std::span<const std::byte> block, std::size_t channels, std::size_t first,
                 std::size_t frames, std::span<float> out) noexcept
{
    const std::size_t stride = Stride != 0 ? Stride : channels;
    std::array<Track<Bits>, Lanes> tracks;
    for (std::size_t lane = 0; lane < Lanes; ++lane)
        tracks[lane] = ReadHeader<Bits>(block, first + lane);
    std::array<std::uint64_t, Lanes> held{};
    unsigned heldBits = 0;
    float* place = out.data() + first;
    for (std::size_t lane = 0; lane < Lanes; ++lane)
        place[lane] = FromPcm16(tracks[lane].Predictor());
    std::size_t at = kHeaderBytes * stride + kGroupBytes * first;
    for (std::size_t left = frames - 1; left > 0;) {
        for (std::size_t lane = 0; lane < Lanes; ++lane)
            held[lane] |= std::uint64_t{Word32LeAt(block, at + kGroupBytes * lane)} << heldBits;
        at += kGroupBytes * stride;
        heldBits += 32;
        const std::size_t codes = std::min<std::size_t>(left, heldBits / Bits);
        for (std::size_t i = 0; i < codes; ++i) {
            place += stride;
            for (std::size_t lane = 0; lane < Lanes; ++lane) {
                const auto code = static_cast<unsigned>(held[lane] & ((1u << Bits) - 1));
                place[lane] = FromPcm16(tracks[lane].Next(kTable<Bits>, code));
                held[lane] >>= Bits;
            }
        }
        heldBits %= Bits;
        left -= codes;
    }
}

template <unsigned Bits>
void DecodeBlock(std::span<const std::byte> block, std::size_t channels, std::size_t frames,
                 std::span<float> out) noexcept
{
    if (channels == 1)
        return DecodeLanes<Bits, 1, 1>(block, channels, 0, frames, out);
    if (channels == 2)
        return DecodeLanes<Bits, 2, 2>(block, channels, 0, frames, out);
    for (std::size_t channel = 0; channel < channels; ++channel)
        DecodeLanes<Bits, 1, 0>(block, channels, channel, frames, out);
}

unsigned QuantizedCode(int difference, int step) noexcept
{
    unsigned code = difference < 0 ? 8 : 0;
    int rest = std::abs(difference);
    for (unsigned digit = 4; digit != 0; digit >>= 1, step >>= 1)
        if (rest >= step) {
            code |= digit;
            rest -= step;
        }
    return code;
}

/// The next sample's code; the track moves on as the decoder's will.
unsigned Encode(Track<4>& track, int sample) noexcept
{
    const auto index = static_cast<std::size_t>(track.Index());
    const unsigned code = QuantizedCode(sample - track.Predictor(), kStepSizes[index]);
    track.Next(kTable<4>, code);
    return code;
}

/// One channel of interleaved samples, which goes on at its last value.
class ChannelInput {
public:
    ChannelInput(std::span<const float> in, std::size_t channels, std::size_t channel,
                 std::size_t frames) noexcept
        : in_(in), channels_(channels), channel_(channel), frames_(frames)
    {
    }

    int operator[](std::size_t frame) const noexcept
    {
        return ToPcm16(in_[std::min(frame, frames_ - 1) * channels_ + channel_]);
    }

private:
    std::span<const float> in_;
    std::size_t channels_, channel_, frames_;
};

/// A step that fits the differences that begin at `frame`: the largest code reaches the largest of them.
int FittingIndex(const ChannelInput& in, std::size_t frame) noexcept
{
    int largest = 0;
    for (std::size_t i = frame; i < frame + kFittedFrames; ++i)
        largest = std::max(largest, std::abs(in[i + 1] - in[i]));
    const auto* const step = std::lower_bound(kStepSizes.begin(), kStepSizes.end() - 1, largest / 2);
    return static_cast<int>(step - kStepSizes.begin());
}

/// Of two ways to go on with `frame`, the one that makes the smaller error for a while.
Track<4> BetterStart(const Track<4>& steady, const Track<4>& fresh, const ChannelInput& in,
                     std::size_t frame) noexcept
{
    const auto error = [&](Track<4> track) {
        std::int64_t sum = 0;
        for (std::size_t i = frame; i < frame + kTrialFrames; ++i) {
            const int sample = in[i];
            Encode(track, sample);
            const std::int64_t off = sample - track.Predictor();
            sum += off * off;
        }
        return sum;
    };
    return error(fresh) < error(steady) ? fresh : steady;
}

void EncodeChannel(ImaState& state, const ChannelInput& in, std::span<std::byte> block, std::size_t channels,
                   std::size_t channel) noexcept
{
    Track<4> track = BetterStart({in[0], state.stepIndex}, {in[0], FittingIndex(in, 0)}, in, 1);
    const std::size_t header = kHeaderBytes * channel;
    block[header] = LowByte(track.Predictor());
    block[header + 1] = LowByte(track.Predictor() >> 8);
    block[header + 2] = LowByte(track.Index());
    block[header + 3] = std::byte{0};
    std::size_t frame = 1;
    for (std::size_t at = header + kHeaderBytes * channels; at < block.size(); at += kGroupBytes * channels)
        for (std::size_t i = 0; i < kGroupBytes; ++i, frame += 2) {
            const unsigned low = Encode(track, in[frame]);
            block[at + i] = static_cast<std::byte>(low | Encode(track, in[frame + 1]) << 4);
        }
    state = {track.Predictor(), track.Index()};
}

/// Where a packet's header leaves the state: its 9 bits of predictor are only a coarse copy of the state's.
Track<4> EnterPacket(const ImaState& state, unsigned header) noexcept
{
    const int index = static_cast<int>(header % kIma4Coarseness);
    const int predictor = static_cast<std::int16_t>(header & 0xFF80);
    const bool isContinued =
        index == state.stepIndex && std::abs(predictor - state.predictor) < kIma4Coarseness;
    return {isContinued ? state.predictor : predictor, index};
}

/// Decodes `frames` frames of the packets of `Lanes` neighbouring channels, which `packets` begins with.
template <std::size_t Lanes>
void DecodePackets(std::span<ImaState, Lanes> states, std::span<const std::byte> packets, std::size_t frames,
                   float* place, std::size_t stride) noexcept
{
    std::array<Track<4>, Lanes> tracks;
    for (std::size_t lane = 0; lane < Lanes; ++lane) {
        const auto packet = packets.subspan(lane * kIma4PacketBytes);
        const auto header = std::to_integer<unsigned>(packet[0]) << 8 | std::to_integer<unsigned>(packet[1]);
        tracks[lane] = EnterPacket(states[lane], header);
    }
    for (std::size_t frame = 0; frame < frames; ++frame, place += stride)
        for (std::size_t lane = 0; lane < Lanes; ++lane) {
            const std::size_t at = lane * kIma4PacketBytes + kIma4HeaderBytes + frame / 2;
            const unsigned code = std::to_integer<unsigned>(packets[at]) >> (frame % 2 * 4) & 15;
            place[lane] = FromPcm16(tracks[lane].Next(kTable<4>, code));
        }
    for (std::size_t lane = 0; lane < Lanes; ++lane)
        states[lane] = {tracks[lane].Predictor(), tracks[lane].Index()};
}

void EncodePacket(ImaState& state, const ChannelInput& in, std::size_t firstFrame,
                  std::span<std::byte, kIma4PacketBytes> packet) noexcept
{
    const Track<4> steady(state.predictor, state.stepIndex);
    const Track<4> fresh(std::min(in[firstFrame] + kIma4Coarseness / 2, 32767) & -kIma4Coarseness,
                         FittingIndex(in, firstFrame));
    Track<4> track = BetterStart(steady, fresh, in, firstFrame);
    const int header = (track.Predictor() & -kIma4Coarseness) | track.Index();
    track = EnterPacket(state, static_cast<unsigned>(header));
    packet[0] = LowByte(header >> 8);
    packet[1] = LowByte(header);
    std::size_t frame = firstFrame;
    for (std::byte& pair : packet.subspan<kIma4HeaderBytes>()) {
        const unsigned low = Encode(track, in[frame]);
        pair = static_cast<std::byte>(low | Encode(track, in[frame + 1]) << 4);
        frame += 2;
    }
    state = {track.Predictor(), track.Index()};
}

} // namespace

std::size_t ImaBlockFrames(std::size_t blockBytes, std::size_t channels, unsigned bits) noexcept
{
    if (channels == 0 || bits < 2 || bits > 4 || blockBytes / kHeaderBytes < channels)
        return 0;
    const std::size_t bytes = blockBytes / channels - kHeaderBytes;
    return 1 + bytes / bits * 8 + bytes % bits * 8 / bits;
}

std::size_t ImaBlockBytes(std::size_t frames, std::size_t channels) noexcept
{
    return frames == 0 ? 0
                       : (kHeaderBytes + (frames + kGroupCodes - 2) / kGroupCodes * kGroupBytes) * channels;
}

std::size_t DecodeImaBlock(std::span<const std::byte> block, std::size_t channels, unsigned bits,
                           std::span<float> out) noexcept
{
    const std::size_t held = ImaBlockFrames(block.size(), channels, bits);
    const std::size_t frames = held == 0 ? 0 : std::min(held, out.size() / channels);
    if (frames == 0)
        return 0;
    if (bits == 2)
        DecodeBlock<2>(block, channels, frames, out);
    else if (bits == 3)
        DecodeBlock<3>(block, channels, frames, out);
    else
        DecodeBlock<4>(block, channels, frames, out);
    return frames;
}

std::size_t EncodeImaBlock(std::span<ImaState> states, std::span<const float> in,
                           std::span<std::byte> out) noexcept
{
    const std::size_t channels = states.size();
    const std::size_t rounds = channels == 0 ? 0 : out.size() / (kGroupBytes * channels);
    if (rounds == 0 || in.size() < channels)
        return 0;
    const std::size_t frames = std::min(in.size() / channels, 1 + (rounds - 1) * kGroupCodes);
    const auto block = out.first(ImaBlockBytes(frames, channels));
    for (std::size_t channel = 0; channel < channels; ++channel)
        EncodeChannel(states[channel], {in, channels, channel, frames}, block, channels, channel);
    return block.size();
}

std::size_t DecodeIma4(std::span<ImaState> states, std::span<const std::byte> in,
                       std::span<float> out) noexcept
{
    const std::size_t channels = states.size();
    if (channels == 0)
        return 0;
    const std::size_t roundBytes = kIma4PacketBytes * channels;
    const std::size_t room = out.size() / channels;
    std::size_t done = 0;
    for (; in.size() >= roundBytes && done < room; in = in.subspan(roundBytes)) {
        const std::size_t frames = std::min(room - done, kIma4PacketFrames);
        float* const place = out.data() + done * channels;
        std::size_t channel = 0;
        for (; channels - channel >= 2; channel += 2)
            DecodePackets<2>(states.subspan(channel).first<2>(), in.subspan(kIma4PacketBytes * channel),
                             frames, place + channel, channels);
        if (channel < channels)
            DecodePackets<1>(states.last<1>(), in.subspan(kIma4PacketBytes * channel), frames,
                             place + channel, channels);
        done += frames;
    }
    return done;
}

std::size_t EncodeIma4(std::span<ImaState> states, std::span<const float> in,
                       std::span<std::byte> out) noexcept
{
    const std::size_t channels = states.size();
    const std::size_t frames = channels == 0 ? 0 : in.size() / channels;
    std::size_t done = 0;
    for (std::size_t frame = 0; frame < frames; frame += kIma4PacketFrames)
        for (std::size_t channel = 0; channel < channels; ++channel) {
            if (out.size() - done < kIma4PacketBytes)
                return done;
            EncodePacket(states[channel], {in, channels, channel, frames}, frame,
                         out.subspan(done).first<kIma4PacketBytes>());
            done += kIma4PacketBytes;
        }
    return done;
}

} // namespace vimbo
