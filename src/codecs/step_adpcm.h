// What IMA and Dialogic ADPCM share: a table of steps that the codes climb up and down. Internal to this
// folder.
#pragma once

#include "codecs/pcm16.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace vimbo {

/// All moves of the coder: for every step and code the difference to the next sample and the next step, in
/// one word, so that a sample costs one look-up. Codes of `Bits` bits, their top bit the sign.
template <std::size_t Steps, unsigned Bits>
class StepTable {
public:
    /// @param moves  change of the step's index, by the code without its sign
    /// @param scale  one unit of a step in 16-bit samples
    constexpr StepTable(const std::array<int, Steps>& steps, const std::array<int, 1u << (Bits - 1)>& moves,
                        int scale) noexcept
    {
        for (std::size_t index = 0; index < Steps; ++index)
            for (unsigned code = 0; code < 1u << Bits; ++code) {
                const unsigned size = code & kSizeMask;
                const int difference = Difference(steps[index], size) * (code == size ? scale : -scale);
                const int next = std::clamp(static_cast<int>(index) + moves[size], 0, int{Steps} - 1);
                entries_[index << Bits | code] = difference * (1 << kRowBits) + (next << Bits);
            }
    }

    std::int32_t At(unsigned row, unsigned code) const noexcept { return entries_[row | code]; }

    static constexpr unsigned kRowBits = 11;

private:
    static constexpr unsigned kSizeMask = (1u << (Bits - 1)) - 1;
    static_assert(Steps << Bits <= 1u << kRowBits);

    /// (size + 1/2) * step / 2^(Bits - 2), each binary digit's share cut off by itself, as the first coders
    /// with shifts and additions did and the published algorithms tell.
    static constexpr int Difference(int step, unsigned size) noexcept
    {
        int difference = step >> (Bits - 1);
        for (unsigned digit = 0; digit + 1 < Bits; ++digit)
            if ((size >> digit & 1) != 0)
                difference += step >> (Bits - 2 - digit);
        return difference;
    }

    std::array<std::int32_t, (Steps << Bits)> entries_{}; ///< difference above, row of the next step below
};

/// One channel on its way through a StepTable.
template <std::size_t Steps, unsigned Bits>
class StepTrack {
public:
    using Table = StepTable<Steps, Bits>;

    StepTrack() noexcept = default;

    /// An index or a predictor out of range goes to the nearest one in range.
    StepTrack(int predictor, int index) noexcept
        : predictor_(Clamp16(predictor)), row_(std::clamp(index, 0, int{Steps} - 1) << Bits)
    {
    }

    int Next(const Table& table, unsigned code) noexcept
    {
        const std::int32_t move = table.At(static_cast<unsigned>(row_), code);
        row_ = move & ((1 << Table::kRowBits) - 1);
        predictor_ = Clamp16(predictor_ + (move >> Table::kRowBits));
        return predictor_;
    }

    int Predictor() const noexcept { return predictor_; }
    int Index() const noexcept { return row_ >> Bits; }

private:
    int predictor_ = 0;
    int row_ = 0; ///< index << Bits
};

} // namespace vimbo
