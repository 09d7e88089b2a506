#include "formats/save.h"

#include "base/fit_name.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/export_set.h"
#include "model/fix_up.h"
#include "model/sample_source.h"
#include "model/song.h"
#include "model/song_analysis.h"
#include "model/stereo_pairs.h"
#include "model/synth_model.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <new>
#include <optional>
#include <sys/stat.h>
#include <unordered_map>

namespace vimbo {

namespace {

constexpr std::size_t kMaxNameUnits = 259;
constexpr std::u16string_view kEmptyItem = u"Empty item - nothing to save";
constexpr std::u16string_view kNoFormat = u"Invalid export format selected";

class SavingScope {
public:
    explicit SavingScope(Collection& collection) noexcept
        : collection_(collection), before_(collection.saving)
    {
        collection_.saving = true;
    }
    ~SavingScope() { collection_.saving = before_; }
    SavingScope(const SavingScope&) = delete;
    SavingScope& operator=(const SavingScope&) = delete;

private:
    Collection& collection_;
    bool before_;
};

/// What an item is written as: parts of instruments and songs get one of their own.
ItemKind WrittenKind(ItemKind kind) noexcept
{
    switch (kind) {
    case ItemKind::SynthModel:
    case ItemKind::Region:
    case ItemKind::Layer:
        return ItemKind::Instrument;
    case ItemKind::Track:
        return ItemKind::Song;
    default:
        return kind;
    }
}

template <class Visit>
bool AnyBelow(const Item& item, const Visit& visit)
{
    if (visit(item))
        return true;
    for (std::size_t i = 0; i < item.Children().size(); ++i)
        if (const Item* child = item.Child(i); child != nullptr && AnyBelow(*child, visit))
            return true;
    return false;
}

bool HoldsSynthModel(const Item& root)
{
    if (root.Kind() == ItemKind::Collection)
        return root.Owner().CountOf(ItemKind::SynthModel) > 0;
    return AnyBelow(root, [](const Item& item) { return item.Kind() == ItemKind::SynthModel; });
}

bool IsStereo(const Item& item) noexcept
{
    return item.Kind() == ItemKind::Waveform && static_cast<const Waveform&>(item).channels > 1;
}

bool HoldsStereo(const Item& root)
{
    if (root.Kind() != ItemKind::Collection)
        return AnyBelow(root, IsStereo);
    const auto waves = root.Owner().All<Waveform>();
    return std::any_of(waves.begin(), waves.end(), IsStereo);
}

/// What has to be done to an item before a row's writer can have it.
struct SavePlan {
    SavePlan(const Item& root, const FormatRow& row, const FormatChoice& choice)
        : kind(WrittenKind(root.Kind())), wrap(kind != root.Kind()), holdsSynth(HoldsSynthModel(root)),
          render(kind == ItemKind::Song && (row.caps & FormatBit(DataFormat::Midi)) == 0),
          // Whoever wants mono gets mixed waveforms instead of pairs.
          split((kind == ItemKind::Collection || kind == ItemKind::Instrument) &&
                (choice.caps & kCapsDualMono) != 0 && HoldsStereo(root))
    {
    }
    bool ChangesItems() const noexcept { return wrap || holdsSynth || render || split; }

    ItemKind kind;
    bool wrap, holdsSynth, render, split;
};

/// True if the row could find something of its kinds in the item.
bool HasContentFor(const Item& root, const FormatRow& row, const SavePlan& plan) noexcept
{
    const Collection& owner = root.Owner();
    const bool isCollection = root.Kind() == ItemKind::Collection;
    const bool holdsSongs = (row.caps & FormatBit(DataFormat::Midi)) != 0;
    if (holdsSongs || (isCollection && (row.kinds & kKindSong) != 0)) {
        if (plan.kind == ItemKind::Song || (isCollection && owner.CountOf(ItemKind::Song) > 0))
            return true;
    }
    if (holdsSongs)
        return false;
    if (root.Kind() == ItemKind::Waveform || plan.wrap || plan.holdsSynth || plan.render)
        return true;
    return isCollection ? owner.CountOf(ItemKind::Waveform) > 0 : !root.Children().empty();
}

enum class WithTempo : bool { No, Yes };

/// @param tempo  whether the tempos that the other tracks of its song set come along
Song& WrapInSong(const Track& track, WithTempo tempo)
{
    Collection& owner = track.Owner();
    const auto* from = static_cast<const Song*>(track.ParentItem());
    Song& song = owner.Create<Song>(from != nullptr ? from->GetName() : track.GetName());
    if (from != nullptr) {
        song.format = from->format;
        song.division = from->division;
    }
    Track& copy = owner.Clone(track);
    copy.SetParent(song.Handle());
    song.AddChild(copy.Handle());
    constexpr std::uint16_t kPatterns = 2; // these have tempos of their own
    if (tempo == WithTempo::No || from == nullptr || from->format == kPatterns)
        return song;
    for (std::size_t i = 0; i < from->Children().size(); ++i)
        if (const Track* other = from->TrackAt(i); other != nullptr && other != &track) {
            const std::vector<std::byte> map = ExtractTempoMap(other->Data());
            TrackEvent event;
            if (EventWalk walk(map); !walk.Next(event) || event.IsMeta(kMetaEndOfTrack))
                continue; // sets nothing
            Track& tempos = owner.Create<Track>(other->GetName());
            tempos.SetData(map);
            tempos.SetParent(song.Handle());
            song.AddChild(tempos.Handle());
        }
    return song;
}

/// The item that the writer gets in place of the user's, in a copy of the collection if that may not be
/// changed. What was made beside goes with it.
class PreparedRoot {
public:
    explicit PreparedRoot(Item& root) noexcept : owner_(&root.Owner()), root_(&root) {}
    ~PreparedRoot()
    {
        for (const ItemHandle handle : temporary_)
            owner_->Destroy(handle);
    }
    PreparedRoot(const PreparedRoot&) = delete;
    PreparedRoot& operator=(const PreparedRoot&) = delete;

    Item& Get() const noexcept { return *root_; }

    void WorkOnCopy()
    {
        const bool isCollection = root_->Kind() == ItemKind::Collection;
        const ItemHandle handle = root_->Handle();
        copy_.CopyFrom(*owner_);
        owner_ = &copy_;
        root_ = isCollection ? &copy_ : copy_.FindItem(handle);
    }

    [[nodiscard]] bool Prepare(const SavePlan& plan, const SaveServices* services)
    {
        if (plan.wrap && plan.kind == ItemKind::Instrument)
            Replace(WrapInInstrument(*root_));
        else if (plan.wrap)
            Replace(
                WrapInSong(static_cast<const Track&>(*root_), plan.render ? WithTempo::Yes : WithTempo::No));
        if (plan.render && !Render(services))
            return Fail(u"Save aborted!");
        if (plan.holdsSynth && !ConvertSynths(services))
            return Fail(u"Failed to render synth to wave");
        if (plan.split && root_->Kind() == ItemKind::Collection)
            SplitStereoToLayers(*owner_);
        else if (plan.split)
            SplitStereoToLayers(static_cast<Instrument&>(*root_));
        return true;
    }

private:
    void Replace(Item& made)
    {
        temporary_.push_back(made.Handle());
        root_ = &made;
    }
    bool Render(const SaveServices* services)
    {
        Waveform* wave = services != nullptr && services->renderSong
                             ? services->renderSong(static_cast<Song&>(*root_))
                             : nullptr;
        if (wave != nullptr)
            Replace(*wave);
        return wave != nullptr;
    }
    bool ConvertSynths(const SaveServices* services) const
    {
        return services != nullptr && services->convertSynthModels && services->convertSynthModels(*root_);
    }

    Collection copy_;
    Collection* owner_; ///< where the root lies
    Item* root_;
    std::vector<ItemHandle> temporary_;
};

bool Write(Item& root, const FormatRow& row, std::u16string_view path, FormatChoice choice,
           const SaveOptions& options, Collection& owner)
{
    Host& host = root.Owner().GetHost();
    const SavingScope saving(root.Owner());
    GuardedFile file;
    if (!file.Create(path))
        return Fail(u"Could not create file");
    host.SetStatus(std::u16string(u"Writing: ").append(path));
    if (!WriteThroughRow(row, root, file.File(), choice))
        return false;
    if (!options.lastUse) {
        const std::u16string_view replaced = file.File().Path();
        if (options.keeper != nullptr ? !options.keeper->DetachFrom(replaced, owner)
                                      : !SampleKeeper(owner).DetachFrom(replaced))
            return false;
    }
    return file.Commit() || Fail(u"Couldn't write to file!");
}

bool SaveSteps(Item& item, const FormatRow& row, std::u16string_view path, FormatChoice choice,
               const SaveOptions& options)
{
    if (row.write == nullptr)
        return Fail(kNoFormat);
    choice.variant = row.variant;
    Collection& owner = item.Owner();
    const ItemHandle handle = item.Handle();
    if (!options.isFixedUp)
        FixUpItems(owner, SavePruneMask(item.Kind()), AfterLoad::No);
    Item* root = owner.FindItem(handle);
    if (root == nullptr) // it was empty, or covered by its neighbours
        return Fail(kEmptyItem);

    const SavingScope saving(owner);
    const SavePlan plan(*root, row, choice);
    if (!options.force && !HasContentFor(*root, row, plan))
        return Fail(kEmptyItem);
    PreparedRoot prepared(*root);
    if (plan.ChangesItems() && !options.lastUse && !options.isPrivateCopy)
        prepared.WorkOnCopy();
    return prepared.Prepare(plan, options.services) &&
           Write(prepared.Get(), row, path, choice, options, owner);
}

std::string SizeText(std::u16string_view path)
{
    constexpr double kKilobyte = 1024, kMegabyte = 0x100000;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(WideToPath(path), error);
    const auto bytes = error ? 0.0 : static_cast<double>(size);
    if (bytes < kKilobyte)
        return fmt::format("({:.0f} Bytes)", bytes);
    if (bytes < kMegabyte)
        return fmt::format("({:.1f} KB)", bytes / kKilobyte);
    return fmt::format("({:.1f} MB)", bytes / kMegabyte);
}

/// Characters that are dropped at the start of a name and become "_" elsewhere.
constexpr bool IsReserved(char16_t unit) noexcept
{
    return std::u16string_view(u"*./:?\\\x7F").find(unit) != std::u16string_view::npos;
}

constexpr char16_t LegalUnit(char16_t unit) noexcept
{
    switch (unit) {
    case u'"':
        return u'\'';
    case u'|':
        return u',';
    case u'<':
        return u'(';
    case u'>':
        return u')';
    default:
        return unit < u' ' ? u'_' : unit;
    }
}

constexpr char LegalChar(char c) noexcept
{
    if (c == '"')
        return '\'';
    return static_cast<unsigned char>(c) < ' ' ? '_' : c;
}

/// Windows-1252.
constexpr char UpperChar(char c) noexcept
{
    const auto code = static_cast<unsigned char>(c);
    const bool isLower = (code >= 'a' && code <= 'z') || (code >= 0xE0 && code <= 0xFE && code != 0xF7);
    if (c == ' ' || c == '.')
        return '_';
    return isLower ? static_cast<char>(code - 0x20) : c;
}

template <class Text, class Reserved, class Legal>
Text MakeLegal(const Text& name, Reserved isReserved, Legal legal)
{
    Text out;
    for (const auto unit : name.substr(0, kMaxNameUnits)) {
        if (!isReserved(unit))
            out += legal(unit);
        else if (!out.empty())
            out += '_';
    }
    if (out.empty())
        for (const char c : {'n', 'o', 'n', 'a', 'm', 'e'})
            out += static_cast<typename Text::value_type>(c);
    return out;
}

/// The name in a field of `size` characters.
template <class Text>
Text Fitted(const Text& name, std::size_t size)
{
    Text field(std::min(size, kMaxNameUnits) + 1, 0);
    field.resize(FitName(field, name, KeepTags::Yes, PadName::No, EndName::Yes));
    return field;
}

} // namespace

std::uint8_t SavePruneMask(ItemKind kind) noexcept
{
    const auto written = static_cast<unsigned>(WrittenKind(kind));
    return static_cast<std::uint8_t>(((1u << written) - 1) & kPruneAll);
}

bool SampleKeeper::Identify(std::u16string_view path, FileId& id)
{
    struct stat info {};
    if (::stat(WideToPath(path).c_str(), &info) != 0)
        return false;
    id = {info.st_dev, info.st_ino};
    return true;
}

void SampleKeeper::FindSources()
{
    std::unordered_map<std::u16string, std::optional<FileId>> files; // each is looked at once
    for (const Waveform& wave : collection_.All<Waveform>()) {
        if (wave.importProc == nullptr || wave.frames == 0)
            continue;
        for (const std::u16string& file : SourceFiles(wave)) {
            const auto [known, isNew] = files.try_emplace(file);
            if (FileId id; isNew && Identify(file, id))
                known->second = id;
            if (known->second)
                wavesIn_[*known->second].push_back(wave.Handle());
        }
    }
    isKnown_ = true;
}

SampleKeeper::Waves::const_iterator SampleKeeper::WavesIn(std::u16string_view path)
{
    FileId id;
    if (!Identify(path, id))
        return wavesIn_.end();
    if (!isKnown_)
        FindSources();
    return wavesIn_.find(id);
}

bool SampleKeeper::Detach(Waves::const_iterator file)
{
    for (const ItemHandle handle : file->second) {
        auto* wave = static_cast<Waveform*>(collection_.FindItem(handle));
        if (wave == nullptr || wave->importProc == nullptr)
            continue;
        collection_.GetHost().SetStatus(u"Reading waveforms...");
        if (wave->LockSamplesForWrite().empty())
            return false;
    }
    wavesIn_.erase(file);
    return true;
}

bool SampleKeeper::DetachFrom(std::u16string_view path)
{
    const auto file = WavesIn(path);
    return file == wavesIn_.end() || Detach(file);
}

bool SampleKeeper::DetachFrom(std::u16string_view path, Collection& copy)
{
    const auto file = WavesIn(path);
    if (file == wavesIn_.end()) // nor do waveforms of the copy lie there
        return true;
    return Detach(file) && (&copy == &collection_ || SampleKeeper(copy).DetachFrom(path));
}

bool SaveThroughRow(Item& root, const FormatRow& row, std::u16string_view path, FormatChoice choice,
                    const SaveOptions& options)
{
    try {
        return SaveSteps(root, row, path, choice, options);
    } catch (const std::bad_alloc&) {
        return Fail(u"Out of memory");
    }
}

bool SaveItem(Item* root, int row, std::u16string_view path, FormatChoice choice, const SaveOptions& options)
{
    if (root == nullptr)
        return Fail(u"No item selected");
    const FormatRow* entry = FindRow(row);
    if (entry == nullptr)
        return Fail(kNoFormat);
    return SaveThroughRow(*root, *entry, path, choice, options);
}

bool SaveToPath(Item* root, std::u16string_view path, int row, FormatChoice choice, SaveOptions options)
{
    if (root == nullptr || !options.interactive)
        return SaveItem(root, row, path, choice, options);
    Collection& owner = root->Owner();
    const bool isCollection = root->Kind() == ItemKind::Collection;
    owner.GetHost().SetStatus(u"Saving...");
    if (!SaveItem(root, row, path, choice, options)) {
        owner.GetHost().SetStatus(u"Failed to Save.");
        return false;
    }
    if (isCollection) {
        owner.SetText(kTextSourcePath, path);
        owner.formatRow = row;
    }
    const std::string size = SizeText(path);
    owner.GetHost().SetStatus(std::u16string(u"Saved: ").append(path).append(u" ") + Utf8ToWide(size));
    return true;
}

FormatChoice AutoChoice(int row) noexcept
{
    FormatChoice choice;
    choice.caps = GetRowCaps(row, choice.variant);
    return choice;
}

std::u16string SanitizeFileName(std::u16string_view name, std::size_t size, PlainLatin plainLatin)
{
    const std::u16string wanted =
        plainLatin == PlainLatin::Yes ? NarrowToWide(WideToNarrow(name)) : std::u16string(name);
    return Fitted(MakeLegal(wanted, IsReserved, LegalUnit), size);
}

std::string SanitizeFileNameNarrow(std::string_view name, std::size_t size, UpperCase upperCase)
{
    const auto isReserved = [](char c) {
        return c == '<' || c == '>' || IsReserved(static_cast<unsigned char>(c));
    };
    std::string fitted = Fitted(MakeLegal(std::string(name), isReserved, LegalChar), size);
    if (upperCase == UpperCase::Yes)
        std::transform(fitted.begin(), fitted.end(), fitted.begin(), UpperChar);
    return fitted;
}

} // namespace vimbo
