// Chunks of WAV files that FLAC files carry in APPLICATION blocks of id "riff": the form's head, then each
// chunk in a block of its own, of `data` only its head. This is how the `flac` program keeps them
// (--keep-foreign-metadata).
#pragma once

#include "model/waveform.h"

#include <span>
#include <vector>

namespace vimbo {

using RiffBlocks = std::vector<std::vector<std::byte>>;

/// Key, tuning, volume, loop, markers and texts of the chunks, as WAV files have them.
void ApplyRiffBlocks(const RiffBlocks& blocks, Waveform& wave);

/// Blocks from which a WAV file of these frames can be made again; none if the waveform has neither loop nor
/// markers nor tuning, or the file would be over 4 GB.
RiffBlocks MakeRiffBlocks(const Waveform& wave, unsigned channels, unsigned bits, std::uint64_t frames);

} // namespace vimbo
