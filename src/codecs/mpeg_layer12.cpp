// ISO/IEC 11172-3, 2.4.3.2 and 2.4.3.3.
#include "codecs/mpeg_layer12.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vimbo::mpeg {
namespace {

constexpr unsigned kScaleBits = 6;

/// 2.4.2.5, table B.1: 2^(1 - i/3).
float ScaleFactor(unsigned index) noexcept
{
    static const auto kFactors = [] {
        std::array<float, 1u << kScaleBits> factors{};
        for (unsigned i = 0; i < factors.size(); ++i)
            factors[i] = static_cast<float>(std::exp2(1 - i / 3.0));
        return factors;
    }();
    return kFactors[index];
}

/// The middle of a quantisation step; `steps` of them go from -1 to 1.
float Dequantize(unsigned code, unsigned steps) noexcept
{
    return static_cast<float>(2 * static_cast<int>(code) + 1 - static_cast<int>(steps)) /
           static_cast<float>(steps);
}

const AllocationTable& TableFor(const MpegHeader& header) noexcept
{
    if (header.IsLow())
        return kTableB1Lsf;
    constexpr unsigned kIndex48kHz = 1, kIndex32kHz = 2;
    const unsigned kbit = header.kbit / header.Channels();
    if (header.rateIndex == kIndex48kHz)
        return header.IsFree() || kbit >= 56 ? kTableB2a : kTableB2c;
    if (header.IsFree() || kbit >= 96)
        return kTableB2b;
    if (kbit >= 56)
        return kTableB2a;
    return header.rateIndex == kIndex32kHz ? kTableB2d : kTableB2c;
}

} // namespace

SubbandReader::SubbandReader(const MpegHeader& header, MpegBits& bits) noexcept
    : header_(header), bits_(bits), channels_(header.Channels())
{
    if (header.mode == MpegMode::Mono)
        bound_ = kSubbands;
    if (header.mode == MpegMode::Joint)
        bound_ = 4 * (header.modeExtension + 1u);
    if (header.layer == 1)
        ReadLayer1();
    else
        ReadLayer2();
}

void SubbandReader::ReadLayer1()
{
    constexpr unsigned kAllocationBits = 4, kForbidden = 15;
    for (unsigned sb = 0; sb < kSubbands; ++sb) {
        for (unsigned channel = 0; channel < channels_; ++channel) {
            if (channel == 1 && sb >= bound_) {
                steps_[1][sb] = steps_[0][sb];
                continue;
            }
            const unsigned allocation = bits_.Take(kAllocationBits);
            const bool isCoded = allocation != 0 && allocation != kForbidden;
            steps_[channel][sb] = static_cast<std::uint16_t>(isCoded ? (2u << allocation) - 1 : 0);
        }
    }
    for (unsigned sb = 0; sb < kSubbands; ++sb)
        for (unsigned channel = 0; channel < channels_; ++channel)
            if (steps_[channel][sb] != 0)
                scales_[channel][sb].fill(ScaleFactor(bits_.Take(kScaleBits)));
}

void SubbandReader::ReadLayer2()
{
    unsigned sb = 0;
    for (const AllocationRun& run : TableFor(header_)) {
        for (; sb < run.end; ++sb) {
            for (unsigned channel = 0; channel < channels_; ++channel)
                steps_[channel][sb] = channel == 1 && sb >= bound_
                                          ? steps_[0][sb]
                                          : run.allocation->steps[bits_.Take(run.allocation->bits)];
        }
    }
    subbands_ = sb;
    ReadScaleFactors2();
}

void SubbandReader::ReadScaleFactors2()
{
    std::array<std::array<unsigned, kSubbands>, 2> selects{};
    for (unsigned sb = 0; sb < subbands_; ++sb)
        for (unsigned channel = 0; channel < channels_; ++channel)
            if (steps_[channel][sb] != 0)
                selects[channel][sb] = bits_.Take(2);
    const auto next = [this] { return ScaleFactor(bits_.Take(kScaleBits)); };
    for (unsigned sb = 0; sb < subbands_; ++sb) {
        for (unsigned channel = 0; channel < channels_; ++channel) {
            if (steps_[channel][sb] == 0)
                continue;
            auto& [first, second, third] = scales_[channel][sb];
            first = second = third = next();
            switch (selects[channel][sb]) { // which of the parts share theirs
            case 0:
                second = next();
                third = next();
                break;
            case 1:
                third = next();
                break;
            case 3:
                second = third = next();
                break;
            default:
                break;
            }
        }
    }
}

void SubbandReader::ReadSlot1(unsigned slot, std::array<SubbandSlots, 2>& out) noexcept
{
    for (unsigned sb = 0; sb < kSubbands; ++sb) {
        float value = 0;
        for (unsigned channel = 0; channel < channels_; ++channel) {
            const unsigned steps = steps_[channel][sb];
            if (steps != 0 && (channel == 0 || sb < bound_))
                value = Dequantize(bits_.Take(static_cast<unsigned>(std::bit_width(steps))), steps);
            out[channel].rows[sb][slot] = steps != 0 ? value * scales_[channel][sb][0] : 0;
        }
    }
}

void SubbandReader::ReadTriple2(unsigned slot, std::array<SubbandSlots, 2>& out) noexcept
{
    constexpr unsigned kPartSlots = kSlots2 / kParts;
    const unsigned part = slot_ / kPartSlots;
    for (unsigned sb = 0; sb < subbands_; ++sb) {
        std::array<float, 3> values{};
        for (unsigned channel = 0; channel < channels_; ++channel) {
            const unsigned steps = steps_[channel][sb];
            if (steps != 0 && (channel == 0 || sb < bound_)) {
                const bool isGrouped = steps == 3 || steps == 5 || steps == 9;
                const unsigned stepBits = static_cast<unsigned>(std::bit_width(steps));
                unsigned group =
                    isGrouped ? bits_.Take(static_cast<unsigned>(std::bit_width(steps * steps * steps))) : 0;
                for (float& value : values) {
                    const unsigned code = isGrouped ? group % steps : bits_.Take(stepBits);
                    group /= steps;
                    value = Dequantize(code, steps);
                }
            }
            for (unsigned i = 0; i < values.size(); ++i)
                out[channel].rows[sb][slot + i] = steps != 0 ? values[i] * scales_[channel][sb][part] : 0;
        }
    }
}

void SubbandReader::Read(std::array<SubbandSlots, 2>& out) noexcept
{
    if (header_.layer == 1) {
        for (unsigned slot = 0; slot < kSlots1; ++slot)
            ReadSlot1(slot, out);
        return;
    }
    for (unsigned slot = 0; slot < kLines; slot += 3, slot_ += 3)
        ReadTriple2(slot, out);
    for (unsigned channel = 0; channel < channels_; ++channel)
        for (unsigned sb = subbands_; sb < kSubbands; ++sb)
            out[channel].rows[sb].fill(0.0f);
}

} // namespace vimbo::mpeg
