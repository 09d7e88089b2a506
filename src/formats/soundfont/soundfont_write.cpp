// Writing SoundFont banks. The samples' places are settled first; most then go from their sources to the file
// while the tables are made.
#include "base/last_error.h"
#include "base/text.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_chunks.h"
#include "formats/wave/wave_records.h"
#include "model/collection.h"

#include <cassert>
#include <limits>
#include <optional>

namespace vimbo {
namespace sf2 {
namespace {

constexpr std::size_t kMaxSamples = 65535;
constexpr std::u16string_view kTooManyValues =
    u"Save failed - Too much data!\n\nThe SF2 file format is by its construction limited to storing a "
    u"maximum "
    u"of 65536 parameter values... Remove some instruments then try saving again.\n";

constexpr std::u16string_view kTooManyValues1 =
    u"Save failed - Too many 'parameter' values!\nThe SBK format can handle a maximum of 65536 parameter "
    u"values...\n";

constexpr std::u16string_view kTooLong =
    u"The samples are too long for a SoundFont bank, which can have 4 GB";

/// @param excess  what there is too much of, and how many
bool FailFull(unsigned major, const std::u16string& excess)
{
    const std::u16string_view limit = major == kVersion1 ? kTooManyValues1 : kTooManyValues;
    return Fail(std::u16string(limit) + u"This bank would take " + excess + u".\n");
}

/// Puts the parts of the file together around the data.
class BankWriter {
public:
    /// @param version1  false: version 2, or 3 if there are streams
    BankWriter(const TextItem& root, const SampleList& samples, Streams& streams, bool is24, bool version1)
        : samples_(samples.samples), streams_(streams), plan_(PlanData(samples_, streams, is24)),
          major_(MajorOf(streams, version1))
    {
        const std::uint16_t minor = major_ == 2 ? (is24 ? 4 : 1) : 0;
        WriteList(front_, FourCc{"INFO"}, MakeInfo(root, major_, minor));
        ByteWriter names;
        if (version1)
            names = MakeNames(samples_);
        WriteChunkHead(front_, FourCc{"LIST"}, DataListBytes() + names.Size());
        front_.Write(FourCc{"sdta"});
        front_.Append(names.Bytes());
        WriteChunkHead(front_, FourCc{"smpl"}, plan_.bytes);
    }

    /// What has been settled so far fits.
    bool Fits() const noexcept { return FormBytes() <= std::numeric_limits<std::uint32_t>::max(); }

    /// Begins with the samples, which takes until Write ends.
    void BeginData(FileObject& file)
    {
        file.Reserve(LowHead() + (plan_.is24 ? sizeof(RiffChunkHead) + plan_.LowBytes() : 0));
        copy_.emplace(file, plan_, Words(), samples_);
    }

    void SetTables(const OutTables& tables)
    {
        WriteList(tables_, FourCc{"pdta"}, MakeTables(tables, HeadersOf(samples_, plan_, streams_), major_));
    }

    bool Write(FileObject& file, Host& host)
    {
        if (!copy_->Finish(host))
            return false;
        ByteWriter form;
        WriteChunkHead(form, FourCc{"RIFF"}, FormBytes());
        form.Write(FourCc{"sfbk"});
        if (!file.Seek(0) || !file.WriteAll(form.Bytes()) || !file.WriteAll(front_.Bytes()))
            return Fail(kCannotWrite);
        assert(file.Position() == Words());
        return WriteRest(file, plan_, Words(), LowHead() + sizeof(RiffChunkHead), samples_, *copy_, streams_,
                         host) &&
               WriteLowHead(file, LowHead()) && (file.WriteAll(tables_.Bytes()) || Fail(kCannotWrite));
    }

private:
    static std::uint16_t MajorOf(const Streams& streams, bool version1) noexcept
    {
        if (version1)
            return kVersion1;
        return streams.places.empty() ? 2 : 3;
    }

    /// Where the samples begin in the file.
    std::uint64_t Words() const noexcept { return sizeof(RiffChunkHead) + sizeof(FourCc) + front_.Size(); }
    std::uint64_t LowHead() const noexcept { return Words() + plan_.bytes; }

    std::uint64_t DataListBytes() const noexcept
    {
        const std::uint64_t low = plan_.is24 ? sizeof(RiffChunkHead) + plan_.LowBytes() : 0;
        return sizeof(FourCc) + sizeof(RiffChunkHead) + plan_.bytes + low;
    }
    std::uint64_t FormBytes() const noexcept
    {
        const std::uint64_t low = plan_.is24 ? sizeof(RiffChunkHead) + plan_.LowBytes() : 0;
        return sizeof(FourCc) + front_.Size() + plan_.bytes + low + tables_.Size();
    }

    /// The head of `sm24` and the byte that makes its length even; leaves the file standing behind the data.
    bool WriteLowHead(FileObject& file, std::uint64_t place)
    {
        if (!file.Seek(place))
            return Fail(kCannotWrite);
        if (!plan_.is24)
            return true;
        ByteWriter head, pad;
        WriteChunkHead(head, FourCc{"sm24"}, plan_.LowBytes());
        pad.Fill(static_cast<std::size_t>(plan_.LowBytes() - plan_.bytes / 2));
        const std::uint64_t end = place + head.Size() + plan_.bytes / 2;
        return (file.WriteAll(head.Bytes()) && file.Seek(end) && file.WriteAll(pad.Bytes())) ||
               Fail(kCannotWrite);
    }

    const std::vector<OutSample>& samples_;
    Streams& streams_;
    DataPlan plan_;
    std::uint16_t major_;
    ByteWriter front_;  ///< from INFO to the head of `smpl`
    ByteWriter tables_; ///< `pdta`
    std::optional<WordCopy> copy_;
};

/// What the request says about the data.
struct Coding {
    bool compress = false;
    bool is24 = false; ///< of plain samples
};

Coding CodingOf(const SampleList& list, const FormatChoice& choice)
{
    const std::uint32_t formats = choice.caps & kDataFormatMask;
    if (choice.variant == kSoundFont1)
        return {};
    if (choice.variant == kSoundFont3)
        return {formats != FormatBit(DataFormat::Pcm24), formats == FormatBit(DataFormat::Pcm24)};
    std::vector<const Waveform*> waves;
    for (const OutSample& sample : list.samples)
        waves.push_back(sample.wave);
    float kbit = 0;
    return {false, PickDataFormatForSet(waves, choice, kbit, nullptr) == DataFormat::Pcm24};
}

/// Most players know only Vorbis; this quality is hard to tell from the original.
constexpr float kDefaultQuality = 0.6f;

/// Who asks for PCM wants to lose nothing.
float DefaultSetting(const FormatChoice& choice) noexcept
{
    return (choice.caps & FormatBit(DataFormat::Compressed)) != 0 ? kDefaultQuality : CompressSettings::kFlac;
}

CompressSettings CompressionOf(const FormatChoice& choice)
{
    CompressSettings settings;
    settings.choice = choice;
    settings.choice.caps =
        FormatBit(DataFormat::Pcm16) |
        (choice.caps & FormatBit(DataFormat::Compressed) ? FormatBit(DataFormat::Pcm24) : 0);
    settings.setting = choice.kbit != 0 ? choice.kbit : DefaultSetting(choice);
    return settings;
}

void NoteWidths(Host& host, const SampleList& list, const Streams& streams, bool is24)
{
    constexpr unsigned kPlainBits = 16, kWideBits = 24;
    ConversionNotes notes(host);
    for (std::size_t i = 0; i < list.samples.size(); ++i)
        if (streams.places.empty() || streams.places[i].bytes == 0)
            NoteWidth(notes, list.samples[i], is24 ? kWideBits : kPlainBits);
        else if (streams.places[i].bits != 0)
            NoteWidth(notes, list.samples[i], streams.places[i].bits);
}

/// All presets with what they play.
struct BankParts {
    std::vector<OutPreset> presets;
    std::vector<std::vector<OutLayer>> layers; ///< of each
};

/// All tables, null with the Last error text if they do not fit. As much of the layers is kept as the tables
/// have room for.
std::unique_ptr<OutTables> PackTables(const ExportSet& set, const SampleList& samples, const Item& root,
                                      unsigned major)
{
    if (samples.samples.size() > kMaxSamples) {
        FailFull(major, Utf8ToWide(std::to_string(samples.samples.size())) + u" samples");
        return nullptr;
    }
    ConversionNotes notes(root.Owner().GetHost());
    BankParts parts{ListPresets(set), {}};
    NoteSamples(notes, samples, set, major);
    NoteRest(notes, root, set, parts.presets);
    if (root.Kind() == ItemKind::Collection)
        NoteBankTexts(notes, static_cast<const TextItem&>(root));
    ZoneCache cache;
    for (const OutPreset& preset : parts.presets) {
        parts.layers.push_back(LayersOf(*preset.instrument, samples, major, cache));
        NotePreset(notes, preset, parts.layers.back(), samples);
    }
    for (const Packing packing : {Packing::Layers, Packing::Bands, Packing::Tightest}) {
        const bool isLast = packing == Packing::Tightest; // goes on when full, to find how much there is
        TablePacker packer(packing, major);
        const auto isDone = [&] { return isLast ? packer.IsBeyondCounting() : packer.IsFull(); };
        for (std::size_t i = 0; i < parts.presets.size() && !isDone(); ++i)
            packer.Add(parts.presets[i], parts.layers[i]);
        if (packer.Finish())
            return std::make_unique<OutTables>(packer.Tables());
        if (isLast)
            FailFull(major, packer.Excess());
    }
    return nullptr;
}

} // namespace
} // namespace sf2

bool WriteSoundFont(Item& root, FileObject& file, FormatChoice& choice)
{
    const bool version1 = choice.variant == kSoundFont1;
    ExportSet set;
    set.Fill(root, IncludeWaves::Yes);
    sf2::SampleList samples = sf2::ListSamples(set);
    if (version1 && samples.samples.empty())
        return Fail(u"A SoundFont v1 bank needs at least one waveform");
    if (version1) // its names stand before the data
        sf2::NameSamples(samples);
    Host& host = root.Owner().GetHost();
    const sf2::Coding coding = sf2::CodingOf(samples, choice);
    const auto pack = [&] {
        if (!version1)
            sf2::NameSamples(samples);
        return sf2::PackTables(set, samples, root, version1 ? sf2::kVersion1 : 2);
    };
    std::unique_ptr<sf2::OutTables> tables;
    // Much work is not done for tables that do not fit.
    if (coding.compress && (tables = pack()) == nullptr)
        return false;
    sf2::Streams streams;
    if (coding.compress && !sf2::CompressSamples(samples.samples, sf2::CompressionOf(choice), host, streams))
        return false;
    const Item& titled = root.Kind() == ItemKind::Waveform || root.Kind() == ItemKind::Instrument ||
                                 root.Kind() == ItemKind::Collection
                             ? root
                             : static_cast<const Item&>(root.Owner());
    sf2::BankWriter bank(static_cast<const TextItem&>(titled), samples, streams, coding.is24, version1);
    if (!bank.Fits())
        return Fail(sf2::kTooLong);
    bank.BeginData(file);
    if (tables == nullptr && (tables = pack()) == nullptr)
        return false;
    sf2::NoteWidths(host, samples, streams, coding.is24);
    bank.SetTables(*tables);
    return bank.Fits() ? bank.Write(file, host) : Fail(sf2::kTooLong);
}

} // namespace vimbo
