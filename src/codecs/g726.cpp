// Block and variable names are those of Recommendation G.726.
#include "codecs/g726.h"

#include "codecs/g726_tables.h"
#include "codecs/pcm16.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace vimbo {
namespace {

using namespace g726;

constexpr std::size_t kChunkCodes = 64; ///< taken apart at a time, in a buffer on the stack

/// Negates `value` where `mask` is all ones; 0 leaves it.
constexpr int NegateIf(int mask, int value) noexcept
{
    return (value ^ mask) - mask;
}

constexpr int Wrap16(int value) noexcept
{
    return static_cast<std::int16_t>(value);
}

/// Blocks FLOATA and FLOATB, for 15 bits of magnitude; a half stands for zero.
inline G726Float ToFloat(int magnitude, int sign) noexcept
{
    const unsigned twice = 2 * static_cast<unsigned>(magnitude) + (magnitude == 0 ? 1 : 0);
    const int exponent = static_cast<int>(std::bit_width(twice)) - 1;
    return {static_cast<int>(twice << 6 >> (exponent + 1)), exponent, sign};
}

/// Block FMULT: a coefficient rounded to six bits times a signal, 15 bits of magnitude.
inline int Multiply(int coefficient, const G726Float& signal) noexcept
{
    const int quarter = coefficient >> 2;
    const G726Float factor = ToFloat(NegateIf(quarter >> 31, quarter) & 8191, coefficient >> 31);
    const int mantissa = (signal.mantissa * factor.mantissa + 48) >> 4;
    const int exponent = signal.exponent + factor.exponent;
    const auto magnitude = static_cast<int>(static_cast<std::uint64_t>(mantissa) << exponent >> 19 & 32767);
    return NegateIf(signal.sign ^ factor.sign, magnitude);
}

/// One direction at work. A sample is: Begin(), choice of a code, End() with what it means.
template <unsigned Bits>
class Coder {
public:
    explicit Coder(const G726State& state) noexcept : s_(state) {}
    const G726State& State() const noexcept { return s_; }

    /// A code to the reconstructed signal, in 16 bits where 14 matter.
    int Decode(unsigned code) noexcept
    {
        Begin();
        return End(kMeanings<Bits>[code]);
    }

    /// The code of a sample of 14 bits.
    unsigned Encode(int sample) noexcept
    {
        Begin();
        const unsigned code = Quantize(sample - se_);
        End(kMeanings<Bits>[code]);
        return code;
    }

private:
    void Begin() noexcept
    {
        y_ = Scale();
        int sum = 0;
        for (std::size_t i = 0; i < s_.b.size(); ++i)
            sum += Multiply(s_.b[i], s_.dq[i]);
        sez_ = Wrap16(sum) >> 1;
        se_ = Wrap16(sum + Multiply(s_.a[0], s_.sr[0]) + Multiply(s_.a[1], s_.sr[1])) >> 1;
    }

    /// Blocks LIMA and MIX.
    int Scale() const noexcept
    {
        const int slow = s_.yl >> 6;
        return slow + (s_.yu - slow) * std::min(s_.ap >> 2, 64) / 64;
    }

    /// Blocks LOG, SUBTB and QUAN.
    unsigned Quantize(int d) const noexcept
    {
        const int sign = d >> 31;
        const auto magnitude = static_cast<unsigned>(NegateIf(sign, d)) & 32767;
        const int exponent = std::max(static_cast<int>(std::bit_width(magnitude)) - 1, 0);
        const int logarithm = (exponent << 7) + static_cast<int>(magnitude << 7 >> exponent & 127);
        const int normalized = logarithm - (y_ >> 2);
        unsigned level = 0;
        for (const int decision : kHalf<Bits>.decisions)
            level += normalized >= decision ? 1 : 0;
        constexpr unsigned kMask = (1u << Bits) - 1;
        if (sign != 0 || (level == 0 && Bits > 2)) // all zeros must not be on the line, but for 2 bits
            level = ~level & kMask;
        return level;
    }

    /// Blocks ADDA and ANTILOG.
    int Reconstruct(int level) const noexcept
    {
        const int logarithm = level + (y_ >> 2);
        const int octave = std::max(logarithm >> 7, 0);
        return ((logarithm & 127) + 128) << octave >> 7 & ~(logarithm >> 31);
    }

    int End(const Meaning& meaning) noexcept
    {
        const int magnitude = Reconstruct(meaning.level);
        const int dq = NegateIf(meaning.sign, magnitude);
        const bool transition = s_.td && magnitude > ToneThreshold();
        const int sr = Wrap16(dq + se_);
        MoveScale(meaning);
        MovePredictor(dq, magnitude, meaning.sign, transition);
        MoveSpeed(meaning, transition);
        Remember(magnitude, meaning.sign, sr);
        return std::clamp(sr, -8192, 8191) * 4;
    }

    /// Block TRANS: what a difference must exceed to end a tone.
    int ToneThreshold() const noexcept
    {
        const int whole = s_.yl >> 15;
        const int threshold = whole > 9 ? 31 << 10 : (32 + (s_.yl >> 10 & 31)) << whole;
        return (threshold + (threshold >> 1)) >> 1;
    }

    /// Blocks FILTD, LIMB and FILTE.
    void MoveScale(const Meaning& meaning) noexcept
    {
        s_.yu = std::clamp(y_ + ((meaning.scaleStep - y_) >> 5), 544, 5120);
        s_.yl += s_.yu + (-s_.yl >> 6);
    }

    /// Blocks UPA2, LIMC, UPA1, LIMD, UPB, TONE, TRIGB.
    void MovePredictor(int dq, int magnitude, int sign, bool transition) noexcept
    {
        const int partial = Wrap16(dq + sez_);
        const int pk0 = partial >> 31;
        const int heard = partial == 0 ? 0 : -1;
        const int apart1 = pk0 ^ s_.pk[0];
        const int apart2 = pk0 ^ s_.pk[1];
        const int pull = std::clamp(s_.a[0], -8191, 8191) * 4;
        const int toward2 = (NegateIf(apart2, 16384) + NegateIf(~apart1, pull)) >> 7;
        const int a2 = std::clamp(s_.a[1] + (toward2 & heard) - (s_.a[1] >> 7), -12288, 12288);
        const int limit = 15360 - a2;
        const int a1 = std::clamp(s_.a[0] + (NegateIf(apart1, 192) & heard) - (s_.a[0] >> 8), -limit, limit);
        s_.pk = {pk0, s_.pk[0]};
        s_.td = a2 < -11776;
        if (transition) {
            s_.a = {};
            s_.b = {};
            return;
        }
        s_.a = {a1, a2};
        const int gain = magnitude == 0 ? 0 : 128;
        constexpr int kLeak = Bits == 5 ? 9 : 8;
        for (std::size_t i = 0; i < s_.b.size(); ++i) {
            const int moved = s_.b[i] + NegateIf(sign ^ s_.dq[i].sign, gain) - (s_.b[i] >> kLeak);
            s_.b[i] = static_cast<std::int16_t>(moved);
        }
    }

    /// Blocks FILTA, FILTB, SUBTC, FILTC, TRIGA; a transition also takes back the tone.
    void MoveSpeed(const Meaning& meaning, bool transition) noexcept
    {
        s_.dms += ((meaning.speed << 9) - s_.dms) >> 5;
        s_.dml += ((meaning.speed << 11) - s_.dml) >> 7;
        const int apart = std::abs(s_.dms * 4 - s_.dml);
        const bool fast = y_ < 1536 || s_.td || apart >= s_.dml >> 3;
        s_.ap = transition ? 256 : s_.ap + (((fast ? 512 : 0) - s_.ap) >> 4);
        s_.td = s_.td && !transition;
    }

    void Remember(int magnitude, int sign, int sr) noexcept
    {
        std::copy_backward(s_.dq.begin(), s_.dq.end() - 1, s_.dq.end());
        s_.dq[0] = ToFloat(magnitude, sign);
        s_.sr[1] = s_.sr[0];
        s_.sr[0] = ToFloat(NegateIf(sr >> 31, sr) & 32767, sr >> 31);
    }

    G726State s_;
    int y_ = 0;   ///< logarithmic scale factor
    int se_ = 0;  ///< signal estimate
    int sez_ = 0; ///< the zero section's part of it
};

template <unsigned Bits, BitPacking Packing>
std::size_t Decode(G726State& state, std::span<const std::byte> in, std::span<float> out) noexcept
{
    const std::size_t total = std::min(in.size() / Bits * 8 + in.size() % Bits * 8 / Bits, out.size());
    Coder<Bits> coder(state);
    std::array<std::uint8_t, kChunkCodes> codes;
    for (std::size_t done = 0; done < total;) {
        const std::size_t count = std::min(total - done, kChunkCodes);
        SplitCodes<Bits, Packing>(in.subspan(done / 8 * Bits), std::span(codes).first(count));
        for (std::size_t n = 0; n < count; ++n)
            out[done + n] = FromPcm16(coder.Decode(codes[n]));
        done += count;
    }
    state = coder.State();
    return total;
}

template <unsigned Bits>
std::size_t DecodePacked(G726State& state, BitPacking packing, std::span<const std::byte> in,
                         std::span<float> out) noexcept
{
    return packing == BitPacking::BigEndian ? Decode<Bits, BitPacking::BigEndian>(state, in, out)
                                            : Decode<Bits, BitPacking::LittleEndian>(state, in, out);
}

template <unsigned Bits>
std::size_t Encode(G726State& state, BitPacking packing, std::span<const float> in,
                   std::span<std::byte> out) noexcept
{
    const std::size_t total = std::min(in.size(), out.size() / Bits * 8 + out.size() % Bits * 8 / Bits);
    Coder<Bits> coder(state);
    CodeWriter writer(out, packing);
    for (const float sample : in.first(total))
        writer.Put(coder.Encode(ToPcm16(sample) >> 2), Bits);
    state = coder.State();
    return writer.Finish();
}

} // namespace

std::size_t DecodeG726(G726State& state, unsigned bits, BitPacking packing, std::span<const std::byte> in,
                       std::span<float> out) noexcept
{
    switch (bits) {
    case 2:
        return DecodePacked<2>(state, packing, in, out);
    case 3:
        return DecodePacked<3>(state, packing, in, out);
    case 4:
        return DecodePacked<4>(state, packing, in, out);
    case 5:
        return DecodePacked<5>(state, packing, in, out);
    default:
        return 0;
    }
}

std::size_t EncodeG726(G726State& state, unsigned bits, BitPacking packing, std::span<const float> in,
                       std::span<std::byte> out) noexcept
{
    switch (bits) {
    case 2:
        return Encode<2>(state, packing, in, out);
    case 3:
        return Encode<3>(state, packing, in, out);
    case 4:
        return Encode<4>(state, packing, in, out);
    case 5:
        return Encode<5>(state, packing, in, out);
    default:
        return 0;
    }
}

} // namespace vimbo
