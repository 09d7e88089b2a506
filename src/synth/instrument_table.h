// The instruments of an engine, by patch.
#pragma once

#include "synth/synth_instrument.h"

#include <vector>

namespace vimbo::synth {

/// What a program change finds: find(word) of the patch itself, else without bank LSB, else without bank MSB,
/// else for drums program 0. The first that is not null.
template <class Find>
auto FindFallingBack(MidiLocation location, Find find) -> decltype(find(std::uint32_t{}))
{
    if (auto* found = find(location.word))
        return found;
    location.SetBankLsb(0);
    if (auto* found = find(location.word))
        return found;
    location.SetBankMsb(0);
    if (auto* found = find(location.word))
        return found;
    if (!location.IsDrum() || location.Program() == 0)
        return nullptr;
    location.SetProgram(0);
    return find(location.word);
}

/// A patch's instrument. Tables are made off the rendering thread and exchanged as a whole, so looking one up
/// needs no lock.
class InstrumentTable {
public:
    using Ref = std::shared_ptr<const SynthInstrument>;

    /// The instrument of exactly this patch, or null.
    const SynthInstrument* Find(std::uint32_t patch) const noexcept;
    /// As a program change finds it.
    const SynthInstrument* FindNearest(MidiLocation location) const noexcept;

    /// This table with the instrument in the place of its patch / without a patch.
    InstrumentTable With(Ref instrument) const;
    InstrumentTable Without(std::uint32_t patch) const;

    const std::vector<Ref>& All() const noexcept { return instruments_; }

private:
    std::vector<Ref> instruments_; ///< by patch
};

} // namespace vimbo::synth
