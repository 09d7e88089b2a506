// Writing extended MIDI: one sequence, and behind it a DLS bank if the collection holds instruments.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "formats/dls/dls.h"
#include "formats/midi/midi.h"
#include "formats/midi/midi_losses.h"
#include "formats/midi/midi_records.h"
#include "formats/midi/xmi_events.h"
#include "model/song_merge.h"

#include <limits>

namespace vimbo {
namespace midi {
namespace {

constexpr std::uint64_t kMostBytes = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kBankCaps =
    FormatBit(DataFormat::Pcm8) | FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsDualMono;

/// The song as a single track, in a collection of its own.
Song& Flattened(const Song& song, Collection& scratch)
{
    Song& copy = scratch.Create<Song>(song.GetName());
    copy.format = song.format;
    copy.division = song.division;
    for (std::size_t i = 0; i < song.Children().size(); ++i) {
        const Track* track = song.TrackAt(i);
        if (track == nullptr)
            continue;
        Track& made = scratch.Clone(*track);
        made.SetParent(copy.Handle());
        copy.AddChild(made.Handle());
    }
    ConvertToFormat0(copy);
    return copy;
}

bool PutSequence(const std::vector<std::byte>& stream, FileObject& file)
{
    constexpr std::size_t kBehindEvents = sizeof(FourCc) + sizeof(ChunkHead);
    constexpr std::size_t kBehindForm = sizeof(FormHead) + kBehindEvents;
    if (stream.size() > kMostBytes - kBehindForm)
        return Fail(u"The song is too long for extended MIDI, which can have 4 GB");
    const auto size = static_cast<std::uint32_t>(stream.size());
    XmiFront front;
    front.directory = {{FourCc{"FORM"}, std::uint32_t{sizeof(FourCc) + sizeof(ChunkHead) + sizeof(U16le)}},
                       FourCc{"XDIR"}};
    front.info = {FourCc{"INFO"}, std::uint32_t{sizeof(U16le)}};
    front.sequences = std::uint16_t{1};
    front.catalog = {{FourCc{"CAT "}, static_cast<std::uint32_t>(size + kBehindForm)}, FourCc{"XMID"}};
    front.form = {{FourCc{"FORM"}, static_cast<std::uint32_t>(size + kBehindEvents)}, FourCc{"XMID"}};
    front.events = {FourCc{"EVNT"}, size};
    return (file.WriteAll(std::as_bytes(std::span(&front, 1))) && file.WriteAll(stream)) ||
           Fail(u"Couldn't write to file!");
}

/// The form is written ahead of its bank, its size afterwards.
bool PutBank(Collection& items, FileObject& file)
{
    if (items.CountOf(ItemKind::Instrument) == 0)
        return true;
    const std::uint64_t start = file.Position();
    FormHead form{{FourCc{"FORM"}, 0u}, FourCc{"XDLS"}};
    std::uint64_t bytes = 0;
    const auto put = [&] { return file.WriteAll(std::as_bytes(std::span(&form, 1))); };
    if (!put())
        return Fail(u"Couldn't write to file!");
    if (!WriteDlsImage(items, file, DlsImage::Level1Mono, kBankCaps, bytes))
        return false;
    if (bytes > kMostBytes - sizeof(FourCc))
        return Fail(u"The bank is too long for extended MIDI, which can have 4 GB");
    form.chunk.size = static_cast<std::uint32_t>(sizeof(FourCc) + bytes);
    const std::uint64_t end = file.Position();
    return (file.Seek(start) && put() && file.Seek(end)) || Fail(u"Couldn't write to file!");
}

void NoteEvents(const Song& song, const XmiEncoded& encoded)
{
    ConversionNotes notes(song.Owner().GetHost());
    const auto note = [&](Fidelity fidelity, std::u16string_view what, std::uint64_t count,
                          std::u16string_view reason) {
        if (count != 0)
            notes.Add({fidelity,
                       NoteTopic::Song,
                       std::u16string(song.GetName()),
                       std::u16string(what),
                       {},
                       {},
                       std::u16string(reason),
                       count});
    };
    constexpr std::u16string_view kHolds = u"the format holds notes and controllers";
    note(Fidelity::Approximated, u"Tempo", encoded.tempos, u"time counts in 120ths of a second");
    note(Fidelity::Lost, u"Meta events", encoded.metas, kHolds);
    note(Fidelity::Lost, u"System events", encoded.systemEvents, kHolds);
    note(Fidelity::Lost, u"Release velocities", encoded.releaseVelocities, u"notes carry their durations");
}

} // namespace
} // namespace midi

bool WriteXmi(Item& root, FileObject& file, FormatChoice& /*choice*/)
{
    const Song* song = midi::SongToWrite(root);
    if (song == nullptr)
        return false;
    Collection scratch;
    const Song& flat = midi::Flattened(*song, scratch);
    const Track* track = flat.TrackAt(0);
    if (track == nullptr)
        return Fail(u"The file format can not save this item");
    midi::XmiEncoded encoded;
    if (!midi::EncodeXmi(flat, *track, encoded) || !midi::PutSequence(encoded.stream, file) ||
        !midi::PutBank(root.Owner(), file))
        return false;
    midi::NoteEvents(*song, encoded);
    midi::NoteLosses(root, *song, file, ReadXmi);
    return true;
}

} // namespace vimbo
