// Between pairs of regions with mono waveforms, panned left and right, and single regions with stereo ones.
#pragma once

#include "model/collection.h"

#include <limits>
#include <span>

namespace vimbo {

class Instrument;

enum class DeleteUnused : bool { No, Yes };

struct StereoMergeCounts {
    std::size_t merged = 0;  ///< pairs of regions (MergeStereoWaves: of waveforms) that became one
    std::size_t deleted = 0; ///< mono waveforms that nothing used any more
};

/// Joins pairs of regions in different layers that have equal trigger fields, opposite pans of at least 0.75
/// to each side, and play two mono waveforms. So that nothing changes in sound, they must agree in everything
/// else that sounds: articulation but the pan, overrides, offsets, and the waveforms' rate, root key, tuning,
/// volume and loop. Works on every instrument, or on one.
StereoMergeCounts MergeStereoPairs(Collection& collection, DeleteUnused deleteUnused);
StereoMergeCounts MergeStereoPairs(Instrument& instrument, DeleteUnused deleteUnused);
/// The same instrument by instrument, for passes that have more to do with each.
class StereoPairMerger {
public:
    explicit StereoPairMerger(Collection& collection);
    ~StereoPairMerger();
    StereoPairMerger(const StereoPairMerger&) = delete;
    StereoPairMerger& operator=(const StereoPairMerger&) = delete;
    void Merge(const Instrument& instrument);
    /// In place of Merge: makes the regions that a reader left out.
    void KeepApart();
    /// To be called behind the last instrument.
    StereoMergeCounts Finish(DeleteUnused deleteUnused);

private:
    struct State;
    std::unique_ptr<State> state_;
};
/// Joins mono waveforms of equal frames, rate and root key whose names differ only in their left or right
/// ending. Of two regions of one instrument that use them in the same ranges, the phase master (or the first)
/// plays the stereo waveform, in the middle; its partner goes. Pairs of which regions use only one stay as
/// they are.
StereoMergeCounts MergeStereoWaves(Collection& collection, DeleteUnused deleteUnused);

/// Splits stereo waveforms into mono ones and gives every region that used one a partner in a layer behind
/// its own: left and right, panned to the sides; the middle between them is the pan that the region had. Of a
/// waveform that other instruments use, too, an instrument splits a copy. @return the number of waveforms
/// split
std::size_t SplitStereoToLayers(Collection& collection);
std::size_t SplitStereoToLayers(Instrument& instrument);

/// A name without the ending that marks a side ("Piano -L", "Piano (R)", "Str R2", "C3L"), with its blanks
/// and dashes; the whole name if it has none, or if the letter belongs to a word ("Cell").
std::u16string_view WithoutSideEnding(std::u16string_view name) noexcept;

/// Deletes waveforms that equal an earlier one in name (case ignored), shape, tuning, loop, markers and
/// samples; regions and synthesis models play the earlier one. Samples are read only where all else agrees
/// and the sources differ: O(n log n) comparisons of waveforms for n of them, each of which reads at most the
/// two waveforms' samples. @param count  only the first ones are looked at
/// @return the number of waveforms deleted
std::size_t RemoveDuplicateWaves(Collection& collection,
                                 std::size_t count = std::numeric_limits<std::size_t>::max());

enum class Unplayed : bool { Keep, Drop };
enum class MayLeave : bool { No, Yes };
/// Where the waveforms of one of several files start.
struct FileStart {
    std::size_t firstWave;           ///< its number among all waveforms
    MayLeave leaves = MayLeave::Yes; ///< No: what this file brought stays, also if an earlier one has it
};
/// For items of several files that came together: deletes waveforms whose samples are read from the very
/// place that one of another file has them from; names do not count. Regions play the earlier one, with root
/// key and loop of their own where these differ. Tuning, level and markers must agree. Nothing is read.
/// Takes O(n log n) time for n waveforms.
/// @param files  all but the first, which starts at 0; in their order
/// @param unplayed  Drop: of a waveform that nothing plays only the samples count, and it is the one that
/// goes
/// @return the number of waveforms deleted
std::size_t ShareSources(Collection& collection, std::span<const FileStart> files, Unplayed unplayed);

} // namespace vimbo
