// What readings and writings of DLS banks could not hold.
#pragma once

#include "formats/dls/dls_build.h"

namespace vimbo::dls {

/// Counted while a bank is read.
struct ReadLosses {
    std::uint64_t missingCues = 0, missingWaves = 0; ///< of regions
    std::uint64_t stackedTooHigh = 0;
    std::uint64_t sends = 0;       ///< to effects that found no slot
    std::uint64_t connections = 0; ///< without a place
    std::uint64_t loops = 0;       ///< records of several
    std::uint64_t conditions = 0;  ///< for some devices only
    std::uint64_t songs = 0;       ///< unreadable, or in a bank in another file
    std::uint64_t waves = 0;       ///< that can't be described
};
void TellLosses(Host& host, const ReadLosses& losses);

// What a bank cannot hold.
void NoteWaves(ConversionNotes& notes, const ExportSet& set, const WaveList& waves);
/// @param level  of the bank's records
void NoteInstrument(ConversionNotes& notes, const OutInstrument& out, const WaveList& waves,
                    std::uint32_t level);
/// Texts of the collection, and instruments that do not reach the bank.
void NoteBank(ConversionNotes& notes, const Item& root, const ExportSet& set,
              const std::vector<OutInstrument>& instruments);
/// Where a bank has no place for songs.
void NoteSongs(ConversionNotes& notes, const Item& root);

} // namespace vimbo::dls
