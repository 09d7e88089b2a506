// The instruments of an engine, by patch.
#pragma once

#include "synth/synth_instrument.h"

#include <vector>

namespace vimbo::synth {

/// A patch's instrument. Tables are made off the rendering thread and exchanged as a whole, so looking one up
/// needs no lock.
class InstrumentTable {
public:
    using Ref = std::shared_ptr<const SynthInstrument>;

    /// The instrument of exactly this patch, or null.
    const SynthInstrument* Find(std::uint32_t patch) const noexcept;
    /// As a program change finds it: without bank LSB, then without bank MSB, then for drums program 0, where
    /// the patch itself is not there.
    const SynthInstrument* FindNearest(MidiLocation location) const noexcept;

    /// This table with the instrument in the place of its patch / without a patch.
    InstrumentTable With(Ref instrument) const;
    InstrumentTable Without(std::uint32_t patch) const;

    const std::vector<Ref>& All() const noexcept { return instruments_; }

private:
    std::vector<Ref> instruments_; ///< by patch
};

} // namespace vimbo::synth
