// Work on many instruments side by side.
#pragma once

#include "model/collection.h"

#include <functional>
#include <span>

namespace vimbo {

class Instrument;

/// Calls `work` for every instrument, in order, or for big collections on as many threads as there are cores.
/// `work` changes and destroys only what is nested in its instrument, reads waveforms at most, and creates
/// nothing. What it throws is thrown again when all threads are done.
void ForEachInstrument(Collection& collection, const std::function<void(Instrument&)>& work);
/// The same for some of a collection's instruments, with their places among them.
void ForEachInstrument(std::span<Instrument* const> instruments,
                       const std::function<void(Instrument&, std::size_t)>& work);

/// True if some layer belongs to no instrument, or some region to no layer of one.
bool HasStrays(const Collection& collection);

} // namespace vimbo
