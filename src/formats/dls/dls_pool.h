// The waveforms of a DLS bank, and the table through which regions name them.
#pragma once

#include "formats/wave/wave_chunks.h"
#include "formats/wave/wave_units.h"
#include "model/collection.h"
#include "model/waveform.h"

#include <optional>
#include <unordered_map>
#include <vector>

namespace vimbo::dls {

/// `wsmp` as it stands: the region's own gain and tuning are differences to the waveform's.
struct SampleRecord {
    WsmpHead head{};
    std::optional<WsmpLoop> loop;
};
/// None if the chunk is too short.
std::optional<SampleRecord> ReadSampleRecord(ChunkCursor& chunk);

class Pool {
public:
    struct Entry {
        Waveform* wave = nullptr;       ///< null: it could not be read
        std::optional<WsmpHead> record; ///< none: the waveform does not say how it is played
    };

    /// Body of `ptbl`. Errors: "Could not read pool cue table".
    [[nodiscard]] bool ReadTable(ChunkCursor& chunk);
    bool HasTable() const noexcept { return hasTable_; }

    /// Makes the waveforms of the list behind `wvpl`, in the order of the file. Samples stay where they are.
    /// @return how many can't be described
    std::uint64_t ReadWaves(Collection& items, FileObject& file, ChunkCursor list);

    /// Null: no such cue. Without a table, cues are the waveforms in the order of the file.
    Entry* Find(std::uint32_t cue) noexcept;

private:
    bool hasTable_ = false;
    std::vector<std::uint32_t> cues_; ///< offsets from the first list
    std::vector<Entry> entries_;
    Entry unreadable_;
    std::unordered_map<std::uint64_t, std::size_t> byOffset_;
};

} // namespace vimbo::dls
