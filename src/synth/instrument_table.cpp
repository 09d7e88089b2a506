#include "synth/instrument_table.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

auto Place(const std::vector<InstrumentTable::Ref>& instruments, std::uint32_t patch)
{
    return std::lower_bound(instruments.begin(), instruments.end(), patch,
                            [](const InstrumentTable::Ref& a, std::uint32_t b) { return a->patch < b; });
}

} // namespace

const SynthInstrument* InstrumentTable::Find(std::uint32_t patch) const noexcept
{
    const auto place = Place(instruments_, patch);
    return place != instruments_.end() && (*place)->patch == patch ? place->get() : nullptr;
}

const SynthInstrument* InstrumentTable::FindNearest(MidiLocation location) const noexcept
{
    return FindFallingBack(location, [this](std::uint32_t patch) { return Find(patch); });
}

InstrumentTable InstrumentTable::With(Ref instrument) const
{
    InstrumentTable table = Without(instrument->patch);
    table.instruments_.insert(Place(table.instruments_, instrument->patch), std::move(instrument));
    return table;
}

InstrumentTable InstrumentTable::Without(std::uint32_t patch) const
{
    InstrumentTable table = *this;
    std::erase_if(table.instruments_, [patch](const Ref& ref) { return ref->patch == patch; });
    return table;
}

} // namespace vimbo::synth
