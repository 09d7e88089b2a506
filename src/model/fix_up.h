// The pass that brings a collection into the form that the rest of the program relies on: after every load
// and before every save.
#pragma once

#include "model/collection.h"

namespace vimbo {

enum class AfterLoad : bool { No, Yes };

/// Bits of the prune mask: kinds whose empty items are destroyed.
inline constexpr std::uint8_t kPruneAll = 0x7F;
constexpr std::uint8_t PruneBit(ItemKind kind) noexcept
{
    return static_cast<std::uint8_t>(1u << static_cast<unsigned>(kind));
}

/// Validates every item (instruments, layers, regions, synthesis models, waveforms, songs, tracks, the
/// collection last) and destroys empty items of the kinds in the mask: waveforms without frames or with a
/// channel count outside 1..2, synthesis models that lost all their waveforms, regions without a child,
/// layers, instruments and songs without children. After a load, waveforms without a preferred data format
/// get that of their source.
void FixUpItems(Collection& collection, std::uint8_t pruneMask, AfterLoad afterLoad);

} // namespace vimbo
