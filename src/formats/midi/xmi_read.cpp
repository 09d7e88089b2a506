// Reading extended MIDI: IFF forms with a stream of events for each sequence, and perhaps a DLS bank (Miles
// Design, AIL 2 developer's reference, 1992; `XDLS`: Miles Sound System 5).
#include "base/last_error.h"
#include "base/text.h"
#include "formats/conversion_notes.h"
#include "formats/dls/dls.h"
#include "formats/midi/midi.h"
#include "formats/midi/midi_records.h"
#include "formats/midi/xmi_events.h"
#include "formats/wave/wave_chunks.h"
#include "model/song_analysis.h"

#include <fmt/format.h>

namespace vimbo {
namespace midi {
namespace {

constexpr int kMaxDepth = 8;
constexpr std::size_t kMostSequences = 4096;

bool IsFront(const FormHead& front) noexcept
{
    const bool isForm =
        front.chunk.id == FourCc{"FORM"} && (front.type == FourCc{"XDIR"} || front.type == FourCc{"XMID"});
    return isForm || (front.chunk.id == FourCc{"CAT "} && front.type == FourCc{"XMID"});
}

class XmiReader {
public:
    XmiReader(Collection& items, FileObject& file) noexcept
        : items_(items), file_(file), notes_(items.GetHost()), name_(items.GetName())
    {
    }

    bool Read()
    {
        FormHead front;
        if (!file_.Seek(0) || !file_.Read(front) || !IsFront(front))
            return Fail(u"Not an extended MIDI file");
        Walk({file_, 0, file_.Size(), std::endian::big}, 0);
        if (songs_.empty() && !hasBank_)
            return Fail(u"The extended MIDI file holds no sequence");
        if (songs_.size() > 1)
            for (std::size_t i = 0; i < songs_.size(); ++i)
                songs_[i]->SetName(name_ + Utf8ToWide(fmt::format(" {:02}", i + 1)));
        return true;
    }

private:
    void Walk(ChunkCursor chunk, int depth)
    {
        while (chunk.Next()) {
            FourCc type;
            if (chunk.Id() == FourCc{"EVNT"})
                ReadSequence(chunk);
            else if ((chunk.Id() == FourCc{"FORM"} || chunk.Id() == FourCc{"CAT "}) && chunk.Read(type)) {
                if (type == FourCc{"XDLS"})
                    ReadBank(chunk);
                else if (depth < kMaxDepth)
                    Walk(chunk.Inner(), depth + 1);
            }
        }
    }

    void ReadSequence(ChunkCursor& chunk)
    {
        if (songs_.size() == kMostSequences)
            return;
        const XmiDecoded decoded = DecodeXmi(chunk.ReadRest(static_cast<std::size_t>(chunk.Left())));
        Song& song = items_.Create<Song>(name_);
        song.format = 0;
        song.division = kXmiDivision;
        Track& track = items_.Create<Track>(u"Master Track");
        track.SetParent(song.Handle());
        song.AddChild(track.Handle());
        track.SetData(decoded.block);
        AnalyseTrack(track, nullptr, TakeChannel::No);
        songs_.push_back(&song);
        Note(song, u"Tempo", decoded.tempos, u"time counts in 120ths of a second in any case");
        Note(song, u"Note-off", decoded.endlessNotes, u"more than 256 notes sound at once");
    }

    void Note(const Song& song, std::u16string_view what, std::uint64_t count, std::u16string_view reason)
    {
        if (count != 0)
            notes_.Add({Fidelity::Lost,
                        NoteTopic::Song,
                        std::u16string(song.GetName()),
                        std::u16string(what),
                        {},
                        {},
                        std::u16string(reason),
                        count});
    }

    void ReadBank(const ChunkCursor& chunk)
    {
        hasBank_ = true;
        constexpr std::uint64_t kType = sizeof(FourCc);
        if (!ReadDlsRange(items_, file_, chunk.Start() + kType, chunk.Left()))
            items_.GetHost().ShowMessage(std::u16string(LastError()), u"Vimbo Studio", MessageIcon::Warning);
    }

    Collection& items_;
    FileObject& file_;
    ConversionNotes notes_;
    std::u16string name_; ///< of the file: a bank may rename the collection
    std::vector<Song*> songs_;
    bool hasBank_ = false;
};

} // namespace
} // namespace midi

bool ReadXmi(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    return midi::XmiReader(collection, file).Read();
}

int DetectXmi(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/)
{
    midi::FormHead front;
    return ByteReader(head).Read(front) && midi::IsFront(front) ? 6 : 0;
}

} // namespace vimbo
