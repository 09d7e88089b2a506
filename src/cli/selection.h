// Parts of a bank that the user named.
#pragma once

#include "model/collection.h"

#include <string>
#include <vector>

namespace vimbo::cli {

/// Leaves only what was asked for: each word is a name (letter case ignored; "*" and "?" stand for any text
/// and any character) or the number that `vimbo info` shows, from 1. Of a kind that was selected all others
/// are destroyed, with the waveforms that nothing plays any more.
/// @param kind  Instrument, Waveform or Song: what goes into the file. Where waveforms are wanted and a name
/// is that of
///              an instrument, the waveforms that it plays are meant
/// @return the words that match nothing
std::vector<std::string> KeepSelected(Collection& collection, const std::vector<std::string>& words,
                                      ItemKind kind);

} // namespace vimbo::cli
