// MIDI music: songs and their tracks.
#pragma once

#include "model/text_item.h"

namespace vimbo {

class Track;

/// Its children are tracks, in file order; it owns them.
class Song final : public TextItem {
public:
    static constexpr ItemKind kKind = ItemKind::Song;
    static constexpr std::uint16_t kDefaultDivision = 24;
    Song(ItemKey key, Collection& owner) noexcept;
    Song(ItemKey key, Collection& owner, const Song& source);

    std::uint16_t format = 1; ///< of the Standard MIDI File: 0, 1 or 2
    std::uint16_t division =
        kDefaultDivision; ///< ticks per quarter note, or a file's SMPTE word as it stands

    /// Null for a bad index and for a slot whose track is gone.
    Track* TrackAt(std::size_t index) const noexcept;
    /// A division of 0 becomes 24, an empty name that of the collection.
    void Validate() override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;
};

/// One block of bytes: the body of an MTrk chunk, without its header.
class Track final : public LabelItem {
public:
    static constexpr ItemKind kKind = ItemKind::Track;
    static constexpr std::uint8_t kNoChannelYet = 255;
    static constexpr std::uint8_t kControlTrack = 254;
    Track(ItemKey key, Collection& owner) noexcept;
    Track(ItemKey key, Collection& owner, const Track& source);

    // Summaries of the events, set by whoever analyses the block.
    std::uint8_t port = 0;
    std::uint8_t channel = kNoChannelYet; ///< of the first channel event, kNoChannelYet or kControlTrack
    std::uint16_t sequence = 0;           ///< sequence number; in files of format 2 the pattern

    std::span<const std::byte> Data() const noexcept { return data_; }
    /// Copies the block and recounts its events; the only way to change them. The track is empty afterwards
    /// if memory runs out or the block is 4 GB or longer.
    void SetData(std::span<const std::byte> block) noexcept;
    std::uint32_t EventCount() const noexcept { return eventCount_; }

    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

private:
    std::vector<std::byte> data_;
    std::uint32_t eventCount_ = 0;
};

} // namespace vimbo
