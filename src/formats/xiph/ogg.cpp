// Ogg Vorbis files (RFC 3533, Vorbis I): reading takes the length and the comments, no samples.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/format_choice.h"
#include "formats/xiph/comments.h"
#include "formats/xiph/xiph.h"

#include <algorithm>
#include <array>

namespace vimbo {
namespace {

struct PageHead {
    FourCc marker; ///< "OggS"
    std::uint8_t version = 0;
    std::uint8_t flags = 0;
    U64le granule;
    U32le serial, sequence, checksum;
    std::uint8_t segments = 0; ///< lengths that follow, one byte each
};
static_assert(DiskRecord<PageHead> && sizeof(PageHead) == 27);
constexpr std::uint8_t kFirstPage = 2;
constexpr FourCc kPageMarker{"OggS"};

/// The first packet of a Vorbis stream begins with its type, 1, and "vorbis".
constexpr std::array<std::uint8_t, 7> kVorbisStart = {1, 'v', 'o', 'r', 'b', 'i', 's'};

/// What Ogg files have no place for.
void NoteLosses(const Waveform& wave)
{
    Host& host = wave.Owner().GetHost();
    if (!host.WantsNotes())
        return;
    const auto note = [&](Fidelity fidelity, NoteTopic topic, std::u16string what) {
        host.NoteConversion({.fidelity = fidelity,
                             .topic = topic,
                             .item = std::u16string(wave.GetName()),
                             .what = std::move(what),
                             .from = {},
                             .to = {},
                             .reason = u"Ogg Vorbis files have no place for it"});
    };
    if (wave.rootKey != 60 || wave.fineTune != 0)
        note(Fidelity::Lost, NoteTopic::Waveform, u"Root key and tuning");
    if (!wave.markers.empty())
        note(Fidelity::Lost, NoteTopic::Waveform, u"Markers");
    if (wave.loop.type == LoopType::Reverse || wave.loop.breakOnRelease)
        note(Fidelity::Approximated, NoteTopic::Loop, u"Loop mode");
}

VorbisSettings SettingsOf(const Waveform& wave, unsigned channels, float kbit)
{
    VorbisSettings settings;
    settings.rateHz = wave.rateHz;
    settings.kbit = NearestVorbisKbit(channels, wave.rateHz, kbit);
    settings.comments = MakeComments(wave);
    if (!wave.GetImage().empty())
        settings.comments.push_back(MakePictureComment(wave.GetImage()));
    return settings;
}

} // namespace

int DetectOgg(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/) noexcept
{
    constexpr int kSure = 6;
    constexpr int kClue = 4;
    PageHead page;
    std::span<const std::byte> lengths;
    std::array<std::uint8_t, 7> start;
    ByteReader in(head);
    // All streams of a file begin before any goes on.
    for (bool isFirst = true; in.Read(page) && page.marker == kPageMarker; isFirst = false) {
        if ((page.flags & kFirstPage) == 0)
            return isFirst ? kClue : 0;
        if (!in.Take(page.segments, lengths))
            return kClue;
        if (ByteReader(in).Read(start) && start == kVorbisStart)
            return kSure;
        std::uint64_t body = 0;
        for (const std::byte length : lengths)
            body += std::to_integer<std::uint64_t>(length);
        if (!in.Skip(body))
            return kClue;
    }
    return 0;
}

bool ReadOgg(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    FourCc marker;
    if (!file.Seek(0) || !file.Read(marker) || marker != kPageMarker)
        return Fail(u"Could not open Ogg file");
    auto& wave = collection.Create<Waveform>(collection.GetName());
    std::vector<std::string> comments;
    if (!DescribeVorbis(wave, file, 0, 0, &comments)) {
        collection.Destroy(wave.Handle());
        return false;
    }
    CoverPicker cover;
    ApplyComments(comments, cover, wave);
    return true;
}

bool WriteOgg(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    float kbit = 0;
    static_cast<void>(PickDataFormat(wave, choice, kbit, OggSubFormats, choice.variant));
    const unsigned channels = PickChannels(wave, choice);
    const VorbisSettings settings = SettingsOf(wave, channels, kbit);
    if (!(settings.kbit > 0))
        return Fail(u"Could not initialize Ogg encoder with the selected format");
    NoteLosses(wave);
    const std::unique_ptr<FrameSource> source = OpenFramesOrNone(wave, choice);
    return source != nullptr && EncodeVorbis(*source, settings, file);
}

float OggSubFormats(std::uint32_t index, std::uint32_t /*variant*/, std::u16string* name)
{
    // The classes that waveforms keep their rate in, and the encoder's highest rate at 44100 Hz in stereo.
    static constexpr std::array<int, 14> kKbit = {32,  48,  64,  80,  96,  112, 128,
                                                  144, 160, 192, 224, 256, 320, 500};
    if (index >= kKbit.size())
        return 0;
    if (name != nullptr)
        *name = u"Vorbis " + NarrowToWide(std::to_string(kKbit[index])) + u" kbit/s";
    return static_cast<float>(kKbit[index]);
}

} // namespace vimbo
