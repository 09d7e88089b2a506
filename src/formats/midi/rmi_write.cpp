// Writing RIFF-MIDI: the song's Standard MIDI File, its texts, and behind them a DLS bank if one is wanted.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "formats/dls/dls.h"
#include "formats/midi/midi.h"
#include "formats/midi/midi_losses.h"
#include "formats/wave/wave_records.h"
#include "model/song.h"

#include <array>
#include <limits>

namespace vimbo {
namespace midi {
namespace {

constexpr std::string_view kSoftware = "Vimbo Studio v12.7";
constexpr std::size_t kSoftwareBytes = 20;
constexpr std::uint32_t kBankCaps =
    FormatBit(DataFormat::Pcm8) | FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsDualMono;

struct Tag {
    FourCc id;
    ParamId text;
};
constexpr std::array kTags = {
    Tag{FourCc{"IART"}, kTextArtist},    Tag{FourCc{"ICMT"}, kTextComments},
    Tag{FourCc{"ICOP"}, kTextCopyright}, Tag{FourCc{"IENG"}, kTextEngineer},
    Tag{FourCc{"INAM"}, kTextName},      Tag{FourCc{"IPRD"}, kTextProduct},
};

void AddText(ByteWriter& out, FourCc id, std::string_view text, std::size_t bytes)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(bytes)});
    out.Append(text);
    out.Fill(bytes - text.size());
}

/// `LIST` `INFO` with the texts that the song has. Texts end in a NUL; their sizes are even.
ByteWriter InfoOf(const Song& song)
{
    ByteWriter tags, list;
    for (const Tag& tag : kTags)
        if (const std::string& text = song.GetTextNarrow(tag.text); !text.empty())
            AddText(tags, tag.id, text, (text.size() + 2) & ~std::size_t{1});
    AddText(tags, FourCc{"ISFT"}, kSoftware, kSoftwareBytes);
    list.Write(RiffFormHead{{FourCc{"LIST"}, static_cast<std::uint32_t>(sizeof(FourCc) + tags.Size())},
                            FourCc{"INFO"}});
    list.Append(tags.Bytes());
    return list;
}

constexpr std::uint64_t kMostBytes = std::numeric_limits<std::uint32_t>::max();

/// The size of the outer chunk, once what it holds is known.
bool PatchSize(FileObject& file, std::uint64_t start, std::uint64_t bytes)
{
    if (bytes > kMostBytes)
        return Fail(u"Song and bank are too long for RIFF-MIDI, which can have 4 GB");
    const U32le size(static_cast<std::uint32_t>(bytes));
    const std::uint64_t end = file.Position();
    return (file.Seek(start + sizeof(FourCc)) && file.WriteAll(std::as_bytes(std::span(&size, 1))) &&
            file.Seek(end)) ||
           Fail(u"Couldn't write to file!");
}

} // namespace

bool WriteRmiImage(const Song& song, FileObject& file)
{
    const std::uint64_t data = SmfBytes(song), pad = data & 1;
    const ByteWriter info = InfoOf(song);
    const std::uint64_t bytes = sizeof(FourCc) + sizeof(RiffChunkHead) + data + pad + info.Size();
    if (bytes > kMostBytes)
        return Fail(u"The song is too long for RIFF-MIDI, which can have 4 GB");
    ByteWriter front, back;
    front.Write(RiffFormHead{{FourCc{"RIFF"}, static_cast<std::uint32_t>(bytes)}, FourCc{"RMID"}});
    front.Write(RiffChunkHead{FourCc{"data"}, static_cast<std::uint32_t>(data)});
    back.Fill(static_cast<std::size_t>(pad));
    back.Append(info.Bytes());
    if (!file.WriteAll(front.Bytes()))
        return Fail(u"Couldn't write to file!");
    return WriteSmfImage(song, file) && (file.WriteAll(back.Bytes()) || Fail(u"Couldn't write to file!"));
}

} // namespace midi

bool WriteRmi(Item& root, FileObject& file, FormatChoice& choice)
{
    const Song* song = midi::SongToWrite(root);
    const std::uint64_t start = file.Position();
    if (song == nullptr || !midi::WriteRmiImage(*song, file))
        return false;
    if (choice.variant != kRmiPlain) {
        const std::uint64_t songBytes = file.Position() - start - sizeof(RiffChunkHead);
        const DlsImage image = choice.variant == kRmiDlsLevel1 ? DlsImage::Level1 : DlsImage::Level2;
        std::uint64_t bankBytes = 0;
        if (!WriteDlsImage(root.Owner(), file, image, midi::kBankCaps, bankBytes) ||
            !midi::PatchSize(file, start, songBytes + bankBytes))
            return false;
    }
    midi::NoteLosses(root, *song, file, ReadRmi);
    return true;
}

} // namespace vimbo
