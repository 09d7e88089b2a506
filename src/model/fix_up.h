// The pass that brings a collection into the form that the rest of the program relies on: after every load,
// before every save, and when the feature mask changed.
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

/// Whether the source of a load can hold stereo waveforms; if it cannot, pairs of mono ones are joined.
enum class SourceHoldsStereo : bool { No, Yes };

/// In this order: validates and normalises every item; destroys empty items of the kinds in the mask; after a
/// load, unmarks what says nothing; moves articulation to the levels that the feature mask permits; after a
/// load, carries out the collection's load options. Without a load, a second pass changes nothing.
void FixUpItems(Collection& collection, std::uint8_t pruneMask, AfterLoad afterLoad,
                SourceHoldsStereo stereo = SourceHoldsStereo::Yes);

} // namespace vimbo
