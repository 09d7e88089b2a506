#include "formats/midi/midi_losses.h"

#include "base/path.h"
#include "base/text.h"
#include "formats/export_set.h"
#include "model/song.h"

namespace vimbo::midi {
namespace {

void CompareNumber(ConversionNotes& notes, const Song& song, std::u16string_view what, std::size_t wanted,
                   std::size_t held)
{
    ConversionNote note;
    note.topic = NoteTopic::Song;
    note.what = what;
    if (wanted != held) {
        note.fidelity = Fidelity::Approximated;
        note.item = song.GetName();
        note.from = Utf8ToWide(std::to_string(wanted));
        note.to = Utf8ToWide(std::to_string(held));
    }
    notes.Add(std::move(note));
}

/// Songs and instruments that did not reach the file.
void NoteRest(ConversionNotes& notes, const Item& root, const Song& song, const Collection& again)
{
    const Collection& owner = root.Owner();
    if (root.Kind() == ItemKind::Collection)
        for (const Song& other : owner.All<Song>())
            if (&other != &song)
                notes.Dropped(other, u"the format holds one song");
    if (again.CountOf(ItemKind::Instrument) == 0)
        for (const Instrument& instrument : owner.All<Instrument>())
            notes.Dropped(instrument, u"the format holds no instruments");
}

void CompareTracks(ConversionNotes& notes, const Song& song, const Song& held)
{
    const std::size_t count = song.Children().size();
    CompareNumber(notes, song, u"Tracks", count, held.Children().size());
    if (held.Children().size() != count)
        return;
    for (std::size_t i = 0; i < count; ++i) {
        const Track *from = song.TrackAt(i), *to = held.TrackAt(i);
        if (from != nullptr && to != nullptr)
            notes.Name(*from, to->GetName());
    }
}

} // namespace

void NoteLosses(const Item& root, const Song& song, FileObject& file, ReadFn read)
{
    ConversionNotes notes(root.Owner().GetHost());
    if (!notes.IsWanted())
        return;
    Collection again;
    again.SetName(BaseName(file.Path()));
    if (!file.Seek(0) || !read(again, file, 0) || again.CountOf(ItemKind::Song) == 0)
        return;
    NoteRest(notes, root, song, again);
    const Song& held = *again.All<Song>().begin();
    for (ParamId id = kTextName; id <= kTextProduct; ++id)
        notes.Text(song, id, held.GetText(id));
    notes.Text(song, kTextImage, {});
    CompareNumber(notes, song, u"MIDI format", song.format, held.format);
    CompareNumber(notes, song, u"Division", song.division, held.division);
    CompareTracks(notes, song, held);
}

} // namespace vimbo::midi
