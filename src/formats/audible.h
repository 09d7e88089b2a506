// Which values of an articulation have a part in its sound, and which differences can be heard.
#pragma once

#include "model/envelope.h"

#include <array>
#include <optional>

namespace vimbo {

/// True if the value has any part in the sound of the block. Parameters of a filter, LFO, envelope or EQ band
/// that is not in use have none, nor have depths and levels of 0, nor factors of times of 0. The volume
/// envelope, and values whose 0 says something (such as the bender's range), always have.
bool IsHeard(const ArticulationBlock& block, ParamId id) noexcept;

/// True if nobody hears the difference between two values of a parameter: less than 0.05 dB, 1 cent, 1 % of
/// times and frequencies (or half a millisecond), 0.5 % of factors; values of lists must be equal.
bool SoundsAlike(const ParamRow& row, float a, float b) noexcept;

/// Tells which envelopes run alike in two blocks although their values differ, because their segments are set
/// in another way. Each envelope is looked at when first asked for; the blocks must outlive this.
class EnvelopeMatches {
public:
    EnvelopeMatches(const ArticulationBlock& wanted, const ArticulationBlock& held) noexcept
        : wanted_(wanted), held_(held)
    {
    }
    /// True for levels and times of envelopes that run alike; the sustain level, factors, release mode and
    /// shutdown are to be compared one by one.
    bool Covers(ParamId id);

private:
    bool Match(EnvelopeIndex index) const;

    const ArticulationBlock& wanted_;
    const ArticulationBlock& held_;
    std::array<std::optional<bool>, kEnvelopes> known_;
};

} // namespace vimbo
