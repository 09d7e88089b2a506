// Reading Standard MIDI Files: the tracks' bytes go into the song as they are.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/midi/midi.h"
#include "formats/midi/midi_records.h"
#include "model/song_analysis.h"

#include <algorithm>
#include <fmt/format.h>

namespace vimbo {
namespace midi {
namespace {

constexpr std::size_t kShortestTrack = 5;   ///< less cannot even hold an end-of-track event behind an event
constexpr std::size_t kMostTracks = 0xFFFF; ///< what a header can count
constexpr std::size_t kMostSongs = 4096;
constexpr std::uint16_t kSimultaneous = 1, kPatterns = 2; // formats

std::u16string Numbered(std::string_view word, unsigned number)
{
    return Utf8ToWide(fmt::format("{} {:02}", word, number));
}

class SmfReader {
public:
    SmfReader(Collection& items, FileObject& file, std::uint64_t start, std::uint64_t end,
              std::span<const TrackScan> scans) noexcept
        : items_(items), file_(file), next_(start), end_(end), scans_(scans)
    {
    }

    /// The last song; null if there was no header.
    Song* Read()
    {
        while (NextChunk()) {
            if (head_.id == FourCc{"MThd"})
                ReadHeader();
            else if (head_.id == FourCc{"MTrk"} && song_ != nullptr)
                ReadTrack();
        }
        NamePatterns();
        if (left_ != 0)
            TellOfMore();
        return song_;
    }

private:
    /// To the next chunk, which may stand at an odd place.
    bool NextChunk() noexcept
    {
        if (next_ > end_ || end_ - next_ < sizeof(head_) || !file_.Seek(next_) || !file_.Read(head_))
            return false;
        body_ = next_ + sizeof(head_);
        next_ = body_ + head_.size.Get();
        return true;
    }

    void ReadHeader()
    {
        SmfHeader header;
        if (++songs_ > kMostSongs) {
            next_ = end_;
            return;
        }
        if (end_ - body_ < sizeof(header) || !file_.Read(header))
            return;
        NamePatterns();
        song_ = &items_.Create<Song>(items_.GetName());
        song_->format = header.format.Get();
        song_->division = header.division.Get();
        tracks_.clear();
        index_ = 0;
    }

    void ReadTrack()
    {
        const unsigned index = index_++;
        std::vector<std::byte> body(
            static_cast<std::size_t>(std::min<std::uint64_t>(head_.size.Get(), end_ - body_)));
        if (body.size() < kShortestTrack || !file_.ReadExact(body))
            return;
        if (tracks_.size() == kMostTracks) {
            ++left_;
            return;
        }
        Track& track = items_.Create<Track>(DefaultName(index));
        track.SetParent(song_->Handle());
        song_->AddChild(track.Handle());
        tracks_.push_back({&track, index});
        if (song_->format == kPatterns)
            track.sequence = static_cast<std::uint16_t>(index);
        track.SetData(body);
        Describe(track, index);
        for (const TrackScan scan : scans_)
            scan(items_, track);
    }

    std::u16string DefaultName(unsigned index) const
    {
        if (song_->format == 0)
            return u"Master Track";
        if (song_->format == kSimultaneous && index == 0)
            return u"Control Track";
        // Behind a first track with music, which is "Track 01" itself, the numbers are the plain indices.
        const bool isBehindControl =
            !tracks_.empty() && tracks_.front().track->channel == Track::kControlTrack;
        return Numbered("Track", isBehindControl ? index + 1 : index);
    }

    void Describe(Track& track, unsigned index)
    {
        const bool isFirst = song_->format == kSimultaneous && index == 0;
        const bool isControl = isFirst && !HasNotes(track);
        if (isControl)
            track.channel = Track::kControlTrack;
        else if (isFirst)
            track.SetName(Numbered("Track", 1));
        const bool takesChannel = song_->format == kSimultaneous && !isControl;
        AnalyseTrack(track, isControl ? song_ : nullptr, takesChannel ? TakeChannel::Yes : TakeChannel::No);
    }

    /// Patterns that the file does not name get the names of their numbers.
    void NamePatterns()
    {
        if (song_ == nullptr || song_->format != kPatterns)
            return;
        const auto unnumbered =
            std::ranges::count_if(tracks_, [](const Loaded& loaded) { return loaded.track->sequence == 0; });
        unsigned count = 0;
        for (const auto& [track, index] : tracks_) {
            if (track->GetName() != Numbered("Track", index))
                continue;
            if (track->sequence == 0 && unnumbered > 1)
                track->SetName(Numbered("Track", ++count));
            else
                track->SetName(Numbered("Pattern", track->sequence));
        }
    }

    void TellOfMore() const
    {
        const std::string text =
            fmt::format("{} tracks were left out: a song can have {}", left_, kMostTracks);
        items_.GetHost().ShowMessage(Utf8ToWide(text), u"Vimbo Studio", MessageIcon::Warning);
    }

    struct Loaded {
        Track* track;
        unsigned index; ///< among all `MTrk` chunks behind the header
    };
    Collection& items_;
    FileObject& file_;
    std::uint64_t next_, end_;
    std::span<const TrackScan> scans_;
    ChunkHead head_{};
    std::uint64_t body_ = 0;
    Song* song_ = nullptr;
    std::vector<Loaded> tracks_;
    unsigned index_ = 0;
    std::size_t songs_ = 0, left_ = 0;
};

} // namespace

std::span<const TrackScan> AllTrackScans() noexcept
{
    return {}; // FIXME: no driver of dumps in system exclusive messages exists
}

bool ReadSmfRange(Collection& collection, FileObject& file, std::uint64_t start, std::uint64_t length,
                  Song*& song, std::span<const TrackScan> scans)
{
    const std::uint64_t size = file.Size();
    start = std::min(start, size);
    song = SmfReader(collection, file, start, start + std::min(length, size - start), scans).Read();
    return song != nullptr || Fail(u"Invalid or corrupt Midi file");
}

} // namespace midi

bool ReadSmf(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    Song* song = nullptr;
    return midi::ReadSmfRange(collection, file, 0, file.Size(), song);
}

int DetectSmf(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/)
{
    midi::ChunkHead first;
    return ByteReader(head).Read(first) && first.id == FourCc{"MThd"} ? 6 : 0;
}

} // namespace vimbo
