// Writing SoundFont banks. All tables and sizes are settled before the first byte is written; the samples
// then go from their sources to the file in pieces.
#include "base/last_error.h"
#include "base/text.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_chunks.h"
#include "formats/wave/wave_records.h"
#include "model/collection.h"

#include <limits>
#include <utility>

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
    BankWriter(const TextItem& root, const SampleList& samples, const OutTables& tables, Streams& streams,
               bool is24, bool version1)
        : samples_(samples.samples), streams_(streams), plan_(PlanData(samples_, streams, is24))
    {
        const bool isCompressed = !streams.places.empty();
        const std::uint16_t major = version1 ? kVersion1 : isCompressed ? 3 : 2;
        const std::uint16_t minor = version1 || isCompressed ? 0 : is24 ? 4 : 1;
        WriteList(front_, FourCc{"INFO"}, MakeInfo(root, major, minor));
        ByteWriter names;
        if (version1)
            names = MakeNames(samples_);
        WriteChunkHead(front_, FourCc{"LIST"}, DataListBytes() + names.Size());
        front_.Write(FourCc{"sdta"});
        front_.Append(names.Bytes());
        WriteChunkHead(front_, FourCc{"smpl"}, plan_.bytes);
        WriteList(tables_, FourCc{"pdta"}, MakeTables(tables, HeadersOf(samples_, plan_, streams), major));
    }

    bool Fits() const noexcept { return FormBytes() <= std::numeric_limits<std::uint32_t>::max(); }

    bool Write(FileObject& file, Host& host)
    {
        ByteWriter form;
        WriteChunkHead(form, FourCc{"RIFF"}, FormBytes());
        form.Write(FourCc{"sfbk"});
        if (!file.WriteAll(form.Bytes()) || !file.WriteAll(front_.Bytes()))
            return Fail(kCannotWrite);
        const std::uint64_t words = file.Position();
        const std::uint64_t lowHead = words + plan_.bytes;
        return WriteData(file, plan_, words, lowHead + sizeof(RiffChunkHead), samples_, streams_, host) &&
               WriteLowHead(file, lowHead) && (file.WriteAll(tables_.Bytes()) || Fail(kCannotWrite));
    }

private:
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
    ByteWriter front_;  ///< from INFO to the head of `smpl`
    ByteWriter tables_; ///< `pdta`
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

/// @param countAll  goes on when the tables are too small, to find how much there is
/// @return false if the tables are too small
bool Pack(const std::vector<OutPreset>& presets, const SampleList& samples, unsigned major, ZoneCache& cache,
          TablePacker& packer, ConversionNotes* notes, bool countAll)
{
    const auto isDone = [&] { return countAll ? packer.IsBeyondCounting() : packer.IsFull(); };
    for (const OutPreset& preset : presets) {
        if (notes == nullptr && isDone())
            return false;
        std::vector<OutLayer> layers = LayersOf(*preset.instrument, samples, major, cache);
        if (notes != nullptr)
            NotePreset(*notes, preset, layers, samples);
        if (!isDone())
            packer.Add(preset, std::move(layers));
    }
    return packer.Finish();
}

/// All tables, null with the Last error text if they do not fit. As much of the layers is kept as the tables
/// have room for.
std::unique_ptr<TablePacker> PackTables(const ExportSet& set, const SampleList& samples, const Item& root,
                                        unsigned major)
{
    if (samples.samples.size() > kMaxSamples) {
        FailFull(major, Utf8ToWide(std::to_string(samples.samples.size())) + u" samples");
        return nullptr;
    }
    ConversionNotes notes(root.Owner().GetHost());
    const std::vector<OutPreset> presets = ListPresets(set);
    NoteSamples(notes, samples, set, major);
    NoteRest(notes, root, set, presets);
    if (root.Kind() == ItemKind::Collection)
        NoteBankTexts(notes, static_cast<const TextItem&>(root));
    ZoneCache cache;
    ConversionNotes* told = notes.IsWanted() ? &notes : nullptr;
    for (const Packing packing : {Packing::Layers, Packing::Bands, Packing::Tightest}) {
        const bool isLast = packing == Packing::Tightest;
        auto packer = std::make_unique<TablePacker>(packing, major);
        if (Pack(presets, samples, major, cache, *packer, std::exchange(told, nullptr), isLast))
            return packer;
        if (isLast)
            FailFull(major, packer->Excess());
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
    const sf2::SampleList samples = sf2::ListSamples(set);
    if (version1 && samples.samples.empty())
        return Fail(u"A SoundFont v1 bank needs at least one waveform");
    const std::unique_ptr<sf2::TablePacker> packer =
        sf2::PackTables(set, samples, root, version1 ? sf2::kVersion1 : 2);
    if (packer == nullptr)
        return false;
    Host& host = root.Owner().GetHost();
    sf2::Coding coding = sf2::CodingOf(samples, choice);
    sf2::Streams streams;
    if (coding.compress && !sf2::CompressSamples(samples.samples, sf2::CompressionOf(choice), host, streams))
        return false;
    const Item& titled = root.Kind() == ItemKind::Waveform || root.Kind() == ItemKind::Instrument ||
                                 root.Kind() == ItemKind::Collection
                             ? root
                             : static_cast<const Item&>(root.Owner());
    sf2::NoteWidths(host, samples, streams, coding.is24);
    sf2::BankWriter bank(static_cast<const TextItem&>(titled), samples, packer->Tables(), streams,
                         coding.is24, version1);
    if (!bank.Fits())
        return Fail(u"The samples are too long for a SoundFont bank, which can have 4 GB");
    return bank.Write(file, host);
}

} // namespace vimbo
