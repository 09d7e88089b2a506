// The decoder of ETSI EN 300 961, clause 5.3.
#include "codecs/gsm.h"
#include "codecs/gsm_frame.h"

namespace vimbo {
namespace {

using Residual = std::array<std::int16_t, kGsmHistory + kGsmFrameSamples>;

/// A block with room for UnpackGsmFrame's whole words.
using PaddedBlock = std::array<std::byte, kGsmWavBlockBytes + 7>;

/// 5.3.2: the subframe's pulses plus what lay `lag` samples before, written at `at`.
void AddLongTerm(Residual& residual, std::size_t at, std::size_t lag, int gain,
                 std::span<const std::int16_t, kGsmSubframeSamples> pulses) noexcept
{
    for (std::size_t k = 0; k < kGsmSubframeSamples; ++k) {
        const int predicted = MultiplyRounded(gain, residual[at + k - lag]);
        residual[at + k] = static_cast<std::int16_t>(Saturate16(pulses[k] + predicted));
    }
}

void BuildResidual(GsmDecoder& state, const GsmFrame& frame, Residual& residual) noexcept
{
    std::copy(state.residual.begin(), state.residual.end(), residual.begin());
    std::array<std::int16_t, kGsmSubframeSamples> pulses;
    std::size_t at = kGsmHistory;
    for (const GsmSubframe& subframe : frame.subframes) {
        if (subframe.lag >= 40 && subframe.lag <= kGsmHistory)
            state.lag = subframe.lag;
        DecodeGsmPulses(subframe, pulses);
        AddLongTerm(residual, at, state.lag, kGsmGain[subframe.gain], pulses);
        at += kGsmSubframeSamples;
    }
    std::copy(residual.end() - kGsmHistory, residual.end(), state.residual.begin());
}

/// What the synthesis filter keeps, in registers.
struct Synthesis {
    std::array<int, kGsmOrder> lattice;
    int deemphasis;
};

/// 5.3.4 to 5.3.7 over one run of samples with the same coefficients.
void Synthesise(Synthesis& memory, const GsmStages& reflections, std::span<const std::int16_t> in,
                std::span<float> out) noexcept
{
    std::array<int, kGsmOrder> r;
    std::copy(reflections.begin(), reflections.end(), r.begin());
    std::array<int, kGsmOrder> v = memory.lattice;
    int last = memory.deemphasis;
    for (std::size_t k = 0; k < in.size(); ++k) {
        int s = SaturateRarely(in[k] - MultiplyRounded(r[7], v[7]));
        for (std::size_t i = 7; i-- > 0;) {
            s = SaturateRarely(s - MultiplyRounded(r[i], v[i]));
            v[i + 1] = SaturateRarely(v[i] + MultiplyRounded(r[i], s));
        }
        v[0] = s;
        last = Saturate16(s + MultiplyRounded(last, 28180));
        out[k] = static_cast<float>(Saturate16(2 * last) & ~7) * 0x1p-15f;
    }
    memory = {v, last};
}

void DecodeFrame(GsmDecoder& state, const GsmFrame& frame, std::span<float, kGsmFrameSamples> out) noexcept
{
    Residual residual;
    BuildResidual(state, frame, residual);
    const GsmStages lars = DequantiseGsmLars(frame.lars);
    Synthesis memory{{}, state.deemphasis};
    std::copy(state.lattice.begin(), state.lattice.end(), memory.lattice.begin());
    std::size_t at = 0;
    for (std::size_t run = 0; run < kGsmFilterRuns.size(); ++run) {
        const std::size_t count = kGsmFilterRuns[run];
        const auto in = std::span<const std::int16_t>(residual).subspan(kGsmHistory + at, count);
        Synthesise(memory, GsmReflections(run, state.lars, lars), in, out.subspan(at, count));
        at += count;
    }
    for (std::size_t i = 0; i < kGsmOrder; ++i)
        state.lattice[i] = static_cast<std::int16_t>(memory.lattice[i]);
    state.deemphasis = static_cast<std::int16_t>(memory.deemphasis);
    state.lars = lars;
}

/// One frame into as much of `out` as there is, at most 160 samples.
std::size_t DecodeInto(GsmDecoder& state, const PaddedBlock& block, std::size_t firstBit, BitPacking packing,
                       std::span<float> out) noexcept
{
    GsmFrame frame;
    UnpackGsmFrame(frame, block, firstBit, packing);
    if (out.size() >= kGsmFrameSamples) {
        DecodeFrame(state, frame, out.first<kGsmFrameSamples>());
        return kGsmFrameSamples;
    }
    std::array<float, kGsmFrameSamples> whole;
    DecodeFrame(state, frame, whole);
    std::copy_n(whole.begin(), out.size(), out.begin());
    return out.size();
}

/// Steps past the next block of `bytes` bytes, or the rest if that is less.
PaddedBlock TakeBlock(std::span<const std::byte>& in, std::size_t bytes) noexcept
{
    PaddedBlock block{};
    const auto taken = in.first(std::min(bytes, in.size()));
    std::copy(taken.begin(), taken.end(), block.begin());
    in = in.subspan(taken.size());
    return block;
}

std::size_t DecodeWav(GsmDecoder& state, std::span<const std::byte> in, std::span<float> out) noexcept
{
    std::size_t written = 0;
    while (in.size() >= kGsmFrameBytes && written < out.size()) {
        const bool hasSecond = in.size() >= kGsmWavBlockBytes;
        const PaddedBlock block = TakeBlock(in, kGsmWavBlockBytes);
        written += DecodeInto(state, block, 0, BitPacking::LittleEndian, out.subspan(written));
        if (hasSecond && written < out.size())
            written += DecodeInto(state, block, 260, BitPacking::LittleEndian, out.subspan(written));
    }
    return written;
}

} // namespace

std::size_t DecodeGsm(GsmDecoder& state, GsmFraming framing, std::span<const std::byte> in,
                      std::span<float> out) noexcept
{
    if (framing == GsmFraming::Wav)
        return DecodeWav(state, in, out);
    std::size_t written = 0;
    while (in.size() >= kGsmFrameBytes && written < out.size()) {
        if (framing == GsmFraming::Raw && (in[0] >> 4) != std::byte{0xD}) {
            state.corrupted = true;
            break;
        }
        const PaddedBlock block = TakeBlock(in, kGsmFrameBytes);
        written += DecodeInto(state, block, 4, BitPacking::BigEndian, out.subspan(written));
    }
    return written;
}

} // namespace vimbo
