// The encoder of ETSI EN 300 961, clause 5.2.
#include "codecs/gsm.h"
#include "codecs/gsm_frame.h"

#include <bit>
#include <cstdlib>

namespace vimbo {
namespace {

using Samples = std::array<std::int16_t, kGsmFrameSamples>;
using Subframe = std::span<const std::int16_t, kGsmSubframeSamples>;
using SubframeBuffer = std::array<std::int16_t, kGsmSubframeSamples>;
using Correlations = std::array<std::int32_t, kGsmOrder + 1>;

/// Left shifts that bring a positive number to 2^30 or more.
int Norm(std::int32_t positive) noexcept
{
    return std::countl_zero(static_cast<std::uint32_t>(positive)) - 1;
}

/// Largest magnitude; that of -32768 counts as 32767.
int PeakOf(std::span<const std::int16_t> samples) noexcept
{
    int peak = 0;
    for (const int sample : samples)
        peak = std::max(peak, std::abs(sample));
    return std::min(peak, 32767);
}

/// Sum of products. Its users scale their samples so that twice the sum stays within 31 bits.
template <std::size_t Count>
std::int32_t Dot(const std::int16_t* a, const std::int16_t* b) noexcept
{
    std::int32_t sum = 0;
    for (std::size_t i = 0; i < Count; ++i)
        sum += a[i] * b[i];
    return sum;
}

int ToPcm16(float x) noexcept
{
    float code = x == x ? x * 32768.0f + 32768.5f : 32768.0f;
    code = std::min(std::max(code, 0.0f), 65535.0f);
    return static_cast<int>(code) - 32768;
}

/// 5.2.1 to 5.2.3: scaling to 14 bits, offset compensation, pre-emphasis.
void Preprocess(GsmEncoder& state, std::span<const float, kGsmFrameSamples> in, Samples& out) noexcept
{
    // 32735 / 32768 keeps the filter's sum within twice its largest input, 2^30 and a little, so nothing
    // saturates before the pre-emphasis.
    constexpr int kPole = 32735;
    std::int32_t sum = state.offsetSum;
    int lastInput = state.offsetInput;
    int last = state.preemphasis;
    for (std::size_t k = 0; k < kGsmFrameSamples; ++k) {
        const int input = ToPcm16(in[k]) >> 3 << 2;
        const std::int32_t high = sum >> 15;
        const std::int32_t low = sum & 0x7FFF;
        sum = high * kPole + (input - lastInput) * 32768 + MultiplyRounded(low, kPole);
        lastInput = input;
        const int free = (sum + 0x4000) >> 15;
        out[k] = static_cast<std::int16_t>(Saturate16(free + MultiplyRounded(last, -28180)));
        last = free;
    }
    state.offsetSum = sum;
    state.offsetInput = static_cast<std::int16_t>(lastInput);
    state.preemphasis = static_cast<std::int16_t>(last);
}

/// 5.2.4. Loud frames are scaled down and up again, which costs their samples up to 4 low bits: so the
/// recommendation wants it.
Correlations Autocorrelate(Samples& samples) noexcept
{
    const int peak = PeakOf(samples);
    const int scale = peak == 0 ? 0 : std::max(4 - Norm(peak << 16), 0);
    std::array<std::int16_t, kGsmOrder + kGsmFrameSamples> padded{};
    for (std::size_t k = 0; k < kGsmFrameSamples; ++k) {
        const int small = scale == 0 ? samples[k] : MultiplyRounded(samples[k], 0x8000 >> scale);
        padded[kGsmOrder + k] = static_cast<std::int16_t>(small);
        samples[k] = static_cast<std::int16_t>(small * (1 << scale));
    }
    Correlations sums;
    for (std::size_t lag = 0; lag <= kGsmOrder; ++lag)
        sums[lag] = 2 * Dot<kGsmFrameSamples>(padded.data() + kGsmOrder, padded.data() + kGsmOrder - lag);
    return sums;
}

/// 5.2.5: Schur's recursion. An unstable step leaves the coefficients from there on at 0.
GsmStages Reflect(const Correlations& sums) noexcept
{
    GsmStages reflections{};
    if (sums[0] == 0)
        return reflections;
    std::array<int, kGsmOrder + 1> p;
    const int shift = Norm(sums[0]);
    for (std::size_t i = 0; i <= kGsmOrder; ++i)
        p[i] = (sums[i] << shift) >> 16;
    std::array<int, kGsmOrder + 1> k = p;
    for (std::size_t n = 0; n < kGsmOrder; ++n) {
        const int size = std::min(std::abs(p[1]), 32767);
        if (p[0] < size)
            break;
        const int ratio = size == 0 ? 0 : std::min((size << 15) / p[0], 32767);
        const int r = p[1] > 0 ? -ratio : ratio;
        reflections[n] = static_cast<std::int16_t>(r);
        p[0] = Saturate16(p[0] + MultiplyRounded(p[1], r));
        for (std::size_t m = 1; m < kGsmOrder - n; ++m) {
            const int next = p[m + 1];
            p[m] = Saturate16(next + MultiplyRounded(k[m], r));
            k[m] = Saturate16(k[m] + MultiplyRounded(next, r));
        }
    }
    return reflections;
}

/// 5.2.6: three straight lines for the logarithm.
int LarFromReflection(int reflection) noexcept
{
    const int size = std::abs(reflection);
    int lar = 0;
    if (size < 22118)
        lar = size >> 1;
    else if (size < 31130)
        lar = size - 11059;
    else
        lar = (size - 26112) << 2;
    return reflection < 0 ? -lar : lar;
}

/// 5.2.7.
std::array<std::uint8_t, kGsmOrder> QuantiseLars(const GsmStages& reflections) noexcept
{
    std::array<std::uint8_t, kGsmOrder> codes;
    for (std::size_t i = 0; i < kGsmOrder; ++i) {
        const int scaled = MultiplyTruncated(kGsmLarSlope[i], LarFromReflection(reflections[i]));
        const int level = Saturate16(Saturate16(scaled + kGsmLarOffset[i]) + 256) >> 9;
        const int lowest = kGsmLarMin[i];
        codes[i] = static_cast<std::uint8_t>(std::clamp(level, lowest, -lowest - 1) - lowest);
    }
    return codes;
}

/// 5.2.10 over one run of samples with the same coefficients, in place.
void Analyse(std::array<int, kGsmOrder>& lattice, const GsmStages& reflections,
             std::span<std::int16_t> samples) noexcept
{
    std::array<int, kGsmOrder> r;
    std::copy(reflections.begin(), reflections.end(), r.begin());
    std::array<int, kGsmOrder> u = lattice;
    for (std::int16_t& sample : samples) {
        int forward = sample;
        int backward = sample;
        for (std::size_t i = 0; i < kGsmOrder; ++i) {
            const int delayed = u[i];
            u[i] = backward;
            backward = SaturateRarely(delayed + MultiplyRounded(r[i], forward));
            forward = SaturateRarely(forward + MultiplyRounded(r[i], delayed));
        }
        sample = static_cast<std::int16_t>(forward);
    }
    lattice = u;
}

/// Turns the samples into the short-term residual.
void FilterFrame(GsmEncoder& state, const GsmStages& lars, Samples& samples) noexcept
{
    std::array<int, kGsmOrder> lattice;
    std::copy(state.lattice.begin(), state.lattice.end(), lattice.begin());
    std::size_t at = 0;
    for (std::size_t run = 0; run < kGsmFilterRuns.size(); ++run) {
        const std::size_t count = kGsmFilterRuns[run];
        Analyse(lattice, GsmReflections(run, state.lars, lars), std::span(samples).subspan(at, count));
        at += count;
    }
    for (std::size_t i = 0; i < kGsmOrder; ++i)
        state.lattice[i] = static_cast<std::int16_t>(lattice[i]);
    state.lars = lars;
}

/// Lag of the largest cross-correlation, the smaller of equals, and that correlation.
struct LagChoice {
    std::uint8_t lag = 40;
    std::int32_t correlation = 0;
};

LagChoice FindLag(const SubframeBuffer& target, const std::int16_t* residual) noexcept
{
    LagChoice best;
    for (std::uint8_t lag = 40; lag <= kGsmHistory; ++lag) {
        const std::int32_t sum = Dot<kGsmSubframeSamples>(target.data(), residual - lag);
        if (sum > best.correlation)
            best = {lag, sum};
    }
    best.correlation *= 2;
    return best;
}

/// 5.2.11, second half: the ratio of correlation and power against the decision levels of table 5.3a.
std::uint8_t QuantiseGain(std::int32_t correlation, std::int32_t power) noexcept
{
    constexpr std::array<std::int16_t, 3> kDecision{6554, 16384, 26214};
    if (correlation <= 0)
        return 0;
    if (correlation >= power)
        return 3;
    const int shift = Norm(power);
    const int ratio = (correlation << shift) >> 16;
    const int whole = (power << shift) >> 16;
    std::uint8_t gain = 0;
    while (gain < kDecision.size() && ratio > MultiplyTruncated(whole, kDecision[gain]))
        ++gain;
    return gain;
}

/// 5.2.11: `residual` points behind 120 samples of history.
void FindLongTerm(Subframe target, const std::int16_t* residual, GsmSubframe& codes) noexcept
{
    const int peak = PeakOf(target);
    const int scale = peak == 0 ? 0 : std::max(6 - Norm(peak << 16), 0);
    SubframeBuffer scaled;
    for (std::size_t k = 0; k < kGsmSubframeSamples; ++k)
        scaled[k] = static_cast<std::int16_t>(target[k] >> scale);
    const LagChoice choice = FindLag(scaled, residual);
    for (std::size_t k = 0; k < kGsmSubframeSamples; ++k)
        scaled[k] = static_cast<std::int16_t>((residual - choice.lag)[k] >> 3);
    const std::int32_t power = 2 * Dot<kGsmSubframeSamples>(scaled.data(), scaled.data());
    codes.lag = choice.lag;
    codes.gain = QuantiseGain(choice.correlation >> (6 - scale), power);
}

/// 5.2.13: the weighting filter, 11 taps around each sample.
void Weight(const SubframeBuffer& in, SubframeBuffer& out) noexcept
{
    constexpr std::array<std::int16_t, 11> kTaps{-134, -374, 0, 2054, 5741, 8192, 5741, 2054, 0, -374, -134};
    std::array<std::int16_t, kGsmSubframeSamples + kTaps.size() - 1> padded{};
    std::copy(in.begin(), in.end(), padded.begin() + kTaps.size() / 2);
    std::array<std::int32_t, kGsmSubframeSamples> sums;
    sums.fill(4096);
    for (std::size_t tap = 0; tap < kTaps.size(); ++tap)
        for (std::size_t k = 0; k < kGsmSubframeSamples; ++k)
            sums[k] += padded[k + tap] * kTaps[tap];
    for (std::size_t k = 0; k < kGsmSubframeSamples; ++k)
        out[k] = static_cast<std::int16_t>(Saturate16(sums[k] >> 13));
}

/// 5.2.14: the grid with the most energy, the first of equals.
std::uint8_t FindGrid(const SubframeBuffer& weighted) noexcept
{
    std::uint8_t best = 0;
    std::int32_t most = 0;
    for (std::uint8_t grid = 0; grid < 4; ++grid) {
        std::int32_t energy = 0;
        for (std::size_t i = 0; i < kGsmPulses; ++i) {
            const int sample = weighted[grid + 3 * i] >> 2;
            energy += sample * sample;
        }
        if (energy > most) {
            most = energy;
            best = grid;
        }
    }
    return best;
}

/// 5.2.15: block maximum and pulses, quantised.
void QuantisePulses(const SubframeBuffer& weighted, GsmSubframe& codes) noexcept
{
    // Table 5.5: 2^18 / mantissa (8..15), rounded so that nothing exceeds its quantiser.
    constexpr std::array<std::int16_t, 8> kInverse{29128, 26215, 23832, 21846, 20165, 18725, 17476, 16384};
    std::array<std::int16_t, kGsmPulses> pulses;
    for (std::size_t i = 0; i < kGsmPulses; ++i)
        pulses[i] = weighted[codes.grid + 3 * i];
    const auto peak = static_cast<unsigned>(PeakOf(pulses));
    const auto exponent = static_cast<unsigned>(std::bit_width(peak >> 9));
    codes.peak = static_cast<std::uint8_t>((peak >> (exponent + 5)) + (exponent << 3));

    const GsmPeak decoded = DecodeGsmPeak(codes.peak);
    const int scale = 1 << (6 - decoded.exponent);
    for (std::size_t i = 0; i < kGsmPulses; ++i) {
        const int level = MultiplyTruncated(pulses[i] * scale, kInverse[decoded.mantissa]) >> 12;
        codes.pulses[i] = static_cast<std::uint8_t>(level + 4);
    }
}

/// 5.2.11 to 5.2.18 for 40 samples: codes, and the residual as the decoder will have it, written at
/// `residual`.
void EncodeSubframe(Subframe target, std::int16_t* residual, GsmSubframe& codes) noexcept
{
    FindLongTerm(target, residual, codes);
    SubframeBuffer predicted;
    SubframeBuffer error;
    for (std::size_t k = 0; k < kGsmSubframeSamples; ++k) {
        const int value = MultiplyRounded(kGsmGain[codes.gain], (residual - codes.lag)[k]);
        predicted[k] = static_cast<std::int16_t>(value);
        error[k] = static_cast<std::int16_t>(Saturate16(target[k] - value));
    }
    SubframeBuffer weighted;
    Weight(error, weighted);
    codes.grid = FindGrid(weighted);
    QuantisePulses(weighted, codes);
    SubframeBuffer pulses;
    DecodeGsmPulses(codes, pulses);
    for (std::size_t k = 0; k < kGsmSubframeSamples; ++k)
        residual[k] = static_cast<std::int16_t>(Saturate16(pulses[k] + predicted[k]));
}

void EncodeFrame(GsmEncoder& state, std::span<const float, kGsmFrameSamples> in, GsmFrame& frame) noexcept
{
    Samples samples;
    Preprocess(state, in, samples);
    frame.lars = QuantiseLars(Reflect(Autocorrelate(samples)));
    FilterFrame(state, DequantiseGsmLars(frame.lars), samples);

    std::array<std::int16_t, kGsmHistory + kGsmFrameSamples> residual;
    std::copy(state.residual.begin(), state.residual.end(), residual.begin());
    for (std::size_t i = 0; i < kGsmSubframes; ++i) {
        const std::size_t at = i * kGsmSubframeSamples;
        EncodeSubframe(Subframe(samples.data() + at, kGsmSubframeSamples), residual.data() + kGsmHistory + at,
                       frame.subframes[i]);
    }
    std::copy(residual.end() - kGsmHistory, residual.end(), state.residual.begin());
}

/// The next frame's samples off `in`, filled up with silence, as 260 bits at bit `firstBit`.
void EncodeInto(GsmEncoder& state, std::span<const float>& in, std::span<std::byte> block,
                std::size_t firstBit, BitPacking packing) noexcept
{
    std::array<float, kGsmFrameSamples> samples{};
    const std::size_t count = std::min(in.size(), samples.size());
    std::copy_n(in.begin(), count, samples.begin());
    in = in.subspan(count);
    GsmFrame frame;
    EncodeFrame(state, samples, frame);
    PackGsmFrame(frame, block, firstBit, packing);
}

} // namespace

std::size_t EncodeGsm(GsmEncoder& state, GsmFraming framing, std::span<const float> in,
                      std::span<std::byte> out) noexcept
{
    const bool isWav = framing == GsmFraming::Wav;
    const std::size_t blockBytes = isWav ? kGsmWavBlockBytes : kGsmFrameBytes;
    std::size_t written = 0;
    for (; !in.empty() && out.size() - written >= blockBytes; written += blockBytes) {
        std::array<std::byte, kGsmWavBlockBytes + 7> block{}; // with room for PackGsmFrame's whole words
        if (isWav) {
            EncodeInto(state, in, block, 0, BitPacking::LittleEndian);
            EncodeInto(state, in, block, 260, BitPacking::LittleEndian);
        } else {
            block[0] = std::byte{0xD0};
            EncodeInto(state, in, block, 4, BitPacking::BigEndian);
        }
        std::copy_n(block.begin(), blockBytes, out.begin() + static_cast<std::ptrdiff_t>(written));
    }
    return written;
}

} // namespace vimbo
