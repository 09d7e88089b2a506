// Reading RIFF-MIDI: a Standard MIDI File with texts, and perhaps a bank, in one RIFF form (Microsoft and
// IBM, Multimedia Programming Interface and Data Specifications 1.0, 1991; MMA, RP-029: bundling SMF and
// DLS). Some programs put a SoundFont in the place of the DLS bank.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/dls/dls.h"
#include "formats/midi/midi.h"
#include "formats/soundfont/soundfont.h"
#include "formats/wave/wave_texts.h"
#include "model/song.h"

#include <algorithm>

namespace vimbo {
namespace midi {
namespace {

constexpr int kMaxDepth = 8;
constexpr std::size_t kMaxTextBytes = 65536;
constexpr std::uint32_t kTextClip = 1; ///< `DISP`: what follows is plain text
constexpr std::u16string_view kTitle = u"Vimbo Studio";

bool IsForm(const RiffFormHead& form) noexcept
{
    return form.chunk.id == FourCc{"RIFF"} && form.type == FourCc{"RMID"};
}

class RmiReader {
public:
    RmiReader(Collection& items, FileObject& file) noexcept : items_(items), file_(file) {}

    bool Read(std::uint64_t start, std::uint64_t end)
    {
        return Walk({file_, start, end, std::endian::little}, 0);
    }
    Song* LastSong() const noexcept { return song_; }
    bool HasBank() const noexcept { return hasBank_; }

private:
    /// False if a song cannot be read.
    bool Walk(ChunkCursor chunk, int depth)
    {
        while (chunk.Next()) {
            if (chunk.Id() == FourCc{"data"}) {
                if (!ReadSmfRange(items_, file_, chunk.Start(), chunk.Size(), song_))
                    return false;
            } else if (chunk.Id() == FourCc{"LIST"}) {
                chunk.Skip(sizeof(FourCc)); // its type does not matter
                if (depth < kMaxDepth && !Walk(chunk.Inner(), depth + 1))
                    return false;
            } else if (chunk.Id() == FourCc{"RIFF"}) {
                ReadBank(chunk);
            } else if (song_ != nullptr) {
                ReadText(chunk);
            }
        }
        return true;
    }

    /// A bank that cannot be had does not cost the song.
    void ReadBank(ChunkCursor& chunk)
    {
        FourCc type;
        if (!chunk.Read(type))
            return;
        const bool isSoundFont = type == FourCc{"sfbk"};
        if (!isSoundFont && type != FourCc{"DLS "}) {
            Warn(u"The file also holds a form \"" +
                 NarrowToWide(std::string_view(type.text.data(), type.text.size())) +
                 u"\", which was left out: only DLS and SoundFont banks are read from RIFF-MIDI");
            return;
        }
        hasBank_ = true;
        const std::uint64_t start = chunk.Start() - sizeof(RiffChunkHead);
        const std::uint64_t length = sizeof(RiffChunkHead) + chunk.Size();
        if (!(isSoundFont ? ReadSoundFontRange(items_, file_, start, length)
                          : ReadDlsRange(items_, file_, start, length)))
            Warn(LastError());
    }

    void Warn(std::u16string text) const { items_.GetHost().ShowMessage(text, kTitle, MessageIcon::Warning); }

    void ReadText(ChunkCursor& chunk)
    {
        U32le type;
        if (chunk.Id() == FourCc{"DISP"}) {
            if (chunk.Read(type) && type.Get() == kTextClip && chunk.Left() != 0)
                song_->SetTextNarrow(kTextName, NarrowTextOf(chunk.ReadRest(kMaxTextBytes)));
            return;
        }
        const auto tag = std::ranges::find(kInfoTags, chunk.Id(), &InfoTag::id);
        if (tag != kInfoTags.end())
            song_->SetTextNarrow(tag->text, NarrowTextOf(chunk.ReadRest(kMaxTextBytes)));
    }

    Collection& items_;
    FileObject& file_;
    Song* song_ = nullptr;
    bool hasBank_ = false;
};

} // namespace

bool ReadRmiRange(Collection& collection, FileObject& file, std::uint64_t start, std::uint64_t length,
                  Song*& song)
{
    constexpr std::uint32_t kOpen = 0xFFFFFFFF; // like 0, a size that was never filled in
    song = nullptr;
    RiffFormHead form;
    const std::uint64_t size = file.Size();
    if (start > size || !file.Seek(start) || !file.Read(form) || !IsForm(form))
        return Fail(u"Not a RIFF-RMID file");
    std::uint64_t room = std::min(length, size - start);
    if (const std::uint32_t claimed = form.chunk.size.Get(); claimed != 0 && claimed != kOpen)
        room = std::min<std::uint64_t>(room, sizeof(RiffChunkHead) + std::uint64_t{claimed});
    const std::uint64_t end = start + room;
    RmiReader reader(collection, file);
    if (!reader.Read(std::min(start + sizeof(form), end), end))
        return false;
    song = reader.LastSong();
    return song != nullptr || reader.HasBank() || Fail(u"The RIFF-MIDI file holds no song");
}

} // namespace midi

bool ReadRmi(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    Song* song = nullptr;
    return midi::ReadRmiRange(collection, file, 0, file.Size(), song);
}

int DetectRmi(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/)
{
    RiffFormHead form;
    return ByteReader(head).Read(form) && midi::IsForm(form) ? 6 : 0;
}

} // namespace vimbo
