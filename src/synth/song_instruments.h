// Which instruments a song plays, and where they come from.
#pragma once

#include "synth/engine.h"
#include "synth/prepared_song.h"

#include <span>
#include <string>

namespace vimbo {
class Collection;
class Host;
} // namespace vimbo

namespace vimbo::synth {

/// Where instruments are sought, in this order. All collections must have gone through the fix-up pass.
struct InstrumentSources {
    Collection* own = nullptr;          ///< the song's: exactly the patches that it names
    std::span<Collection* const> banks; ///< by the fall-back order of program changes
    std::u16string gmBank;              ///< path of the bank for all the rest; "": the system's
    bool useGmBank = true;
    Host* host = nullptr; ///< status "Loading instruments...", and word of a bank that cannot be opened
};

struct InstrumentChoice {
    std::size_t own = 0, banks = 0, gm = 0; ///< patches by where they were found
    std::u16string gmBank;                  ///< path of the bank that was opened, if it was needed
    std::vector<std::uint32_t> missing;     ///< patches that sound nowhere
};

/// Compiles what the song needs, and nothing else, into the engine. Each instrument stands under the patch
/// that asked for it. A bank that cannot be opened leaves its patches out, with the message "Could not open
/// the default GM/GS collection!\nInstruments will be missing from the song." through the host.
InstrumentChoice PutSongInstruments(SynthEngine& engine, const PreparedSong& song,
                                    const InstrumentSources& sources);

/// The instrument of a collection for a patch by the fall-back order of program changes: the patch itself,
/// without bank LSB, without bank MSB, for drums program 0. Null if there is none.
Instrument* FindNearestInstrument(const Collection& collection, MidiLocation location);

/// The first General MIDI bank in the system's usual folders; "" if there is none.
std::u16string FindSystemGmBank();

} // namespace vimbo::synth
