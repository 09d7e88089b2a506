// Rewriting samples so that loops play the same on simpler players.
#pragma once

#include "model/waveform.h"

namespace vimbo {

struct LoopConversions {
    bool alternatingToForward =
        true; ///< the reversed body follows the loop's end; the loop becomes twice as long
    bool reverseToForward = true; ///< the body is reversed in place
    bool atLeast32 = true;        ///< the body is repeated until the loop has 32 frames
    bool append32 = false;        ///< at least 32 frames behind the loop's end, copied from its start on
    bool prepend32 = false;       ///< at least 32 frames ahead of the loop, zeros
};
inline constexpr std::uint32_t kMinLoopFrames = 32;

/// Applies the conversions in the order of their fields; regions that count frames of the waveform follow.
/// The loop as it sounds does not change, except that fractional points of a loop whose body is rewritten
/// become whole frames and its pitch is corrected for that through the loop's pitch where it differs. Markers
/// move with their frames. An alternating loop plays its turning frames twice from then on, and never the
/// frame behind its end. If the loop is left at the key's release, the body follows once more, so that what
/// comes after it is entered forward as before.
/// @param changed  true if the waveform was rewritten; waveforms without a loop are not
/// @return false with the Last error text if the samples cannot be read or memory runs out; nothing changed
/// then
[[nodiscard]] bool ConvertLoop(Waveform& wave, const LoopConversions& conversions, bool& changed);
/// The same for all waveforms, in time that does not grow with waveforms times regions. Those that cannot be
/// read stay as they are, and the host is told; where a region overrides the loop's type, the direction
/// stays.
/// @return the number of waveforms rewritten
std::size_t ConvertLoops(Collection& collection, const LoopConversions& conversions);

struct TrimAfterLoop {
    bool cutAfterEnd = true;
    bool minEndOfRegions = true; ///< regions' loop overrides count: the cut is behind the last of the loops
    bool append32 = true;        ///< 32 frames from the loop's start follow the cut
    bool saveRelease = false;    ///< what is cut off becomes a waveform of its own: name + " Release"
    bool cutBeforeStart = false;
};
/// Cuts what a forward loop never plays. @param release gets the new waveform of the cut-off part, if one was
/// made. @return as ConvertLoop
[[nodiscard]] bool TrimWaveAfterLoop(Waveform& wave, const TrimAfterLoop& options, bool& changed,
                                     Waveform** release = nullptr);

} // namespace vimbo
