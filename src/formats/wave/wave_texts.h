// Texts and places in WAV files: INFO tags, and cue points with their labels and lengths.
#pragma once

#include "formats/wave/wave_chunks.h"
#include "model/waveform.h"

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace vimbo {

/// A text property and the INFO tag that carries it.
struct InfoTag {
    FourCc id;
    std::uint16_t text;
};
/// In the order in which they are written.
inline constexpr std::array kInfoTags = {
    InfoTag{FourCc{"INAM"}, kTextName},     InfoTag{FourCc{"IART"}, kTextArtist},
    InfoTag{FourCc{"ICMT"}, kTextComments}, InfoTag{FourCc{"ICOP"}, kTextCopyright},
    InfoTag{FourCc{"IENG"}, kTextEngineer}, InfoTag{FourCc{"IPRD"}, kTextProduct},
};

/// Sets the texts of the tags that `tags` stands before; other tags are passed over.
void ReadInfoTags(ChunkCursor tags, TextItem& item);

/// 8-bit text up to its first NUL.
std::string NarrowTextOf(std::span<const std::byte> bytes);

/// The 12 characters of a name in Akai samplers' own code.
std::string AkaiNameToNarrow(std::span<const std::uint8_t, 12> name);

/// Cue points and what `adtl` lists say of them, gathered while the file is read; either may come first.
class CueTexts {
public:
    /// Body of a `cue ` chunk. One that is shorter than its count says gives no points.
    void ReadPoints(ChunkCursor& chunk);
    /// The sub-chunks of an `adtl` list.
    void ReadList(ChunkCursor list);
    /// Adds the markers. Points named "Loop Range", "Loop Start" and "Loop End" make no markers; they set the
    /// loop if the file has said nothing else about it.
    void Apply(Waveform& wave, bool mayHoldLoop) const;

private:
    struct NamedLoop {
        bool isOpen = false;
        bool hasStart = false;
        bool hasEnd = false;
    };
    bool ApplyLoopPoint(Waveform& wave, NamedLoop& loop, const CuePoint& point,
                        std::u16string_view label) const;
    std::uint32_t LengthOf(std::uint32_t id) const;

    std::vector<CuePoint> points_;
    std::unordered_map<std::uint32_t, std::u16string> labels_; ///< the first one of each id holds
    std::unordered_map<std::uint32_t, std::uint32_t> lengths_;
};

} // namespace vimbo
