#include "formats/save_all.h"

#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/song.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fmt/format.h>
#include <optional>

namespace vimbo {

namespace {

constexpr std::size_t kMaxPathUnits = 259;
constexpr std::size_t kMaxFileNameBytes = 255;
constexpr std::size_t kMinNameUnits = 16; ///< of an item's name, however deep the folder

std::u16string Widened(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// "07"; three digits and more from 100 on.
std::u16string DigitPair(std::size_t number)
{
    return Widened(fmt::format("{}{}", number / 10, number % 10));
}

struct BasePath {
    explicit BasePath(std::u16string_view path) : folder(DirectoryOf(path))
    {
        const std::size_t slash = path.rfind(u'/');
        const std::size_t dot = GetExtension(path);
        const std::u16string_view file = path.substr(slash == path.npos ? 0 : slash + 1);
        extension = path.substr(dot);
        name = file.substr(0, file.size() - std::min(file.size(), extension.size()));
    }
    std::u16string folder, name, extension;
};

const Item* InstrumentAbove(const Item& item) noexcept
{
    const Item* at = &item;
    while (at != nullptr && at->Kind() != ItemKind::Instrument)
        at = at->ParentItem();
    return at;
}

/// What a file name is made of: a fixed part, then item names joined by ".".
struct NameParts {
    std::u16string fixed;
    std::vector<std::u16string_view> names;

    /// The names get equal shares of the room if they do not fit as they are.
    std::u16string Join(std::size_t room) const
    {
        const auto join = [this](std::size_t size) {
            std::u16string text = fixed;
            for (std::size_t i = 0; i < names.size(); ++i)
                text.append(i > 0 ? u"." : u"").append(SanitizeFileName(names[i], size));
            return text;
        };
        if (names.empty())
            return fixed;
        const std::u16string whole = join(kMaxPathUnits);
        if (whole.size() <= room)
            return whole;
        const std::size_t rest = room > fixed.size() ? room - fixed.size() : 0;
        return join(std::max<std::size_t>(rest / names.size(), 2) - 1);
    }
};

NameParts ProgramParts(const Item& item)
{
    const Item* above = InstrumentAbove(item);
    if (above == nullptr)
        return {{}, {item.GetName()}};
    const MidiLocation location = static_cast<const Instrument&>(*above).location;
    NameParts parts;
    parts.fixed = Widened(fmt::format("{}{}-{}-{} - ", location.IsDrum() ? "d" : "", location.BankMsb(),
                                      location.BankLsb(), location.Program()));
    for (const Item* at = &item; at != nullptr; at = at->ParentItem())
        parts.names.insert(parts.names.begin(), at->GetName());
    return parts;
}

NameParts PartsOf(const Item& item, const std::u16string& base, AutoNaming naming, std::size_t number)
{
    constexpr std::u16string_view kDash = u" - ";
    const std::u16string_view name = item.GetName();
    switch (naming) {
    case AutoNaming::BaseAndNumber:
        return {base + std::u16string(kDash) + DigitPair(number), {}};
    case AutoNaming::NumberAndBase:
        return {DigitPair(number).append(kDash).append(base), {}};
    case AutoNaming::BaseAndName:
        return {base + std::u16string(kDash), {name}};
    case AutoNaming::NumberAndName:
        return {DigitPair(number).append(kDash), {name}};
    case AutoNaming::SourceFile: {
        const std::u16string_view source = item.GetSourcePath();
        const bool isFile = !source.empty() && !source.starts_with(u'<'); // "<Clipboard>" is none
        return isFile ? NameParts{BaseName(source), {}} : NameParts{{}, {name}};
    }
    case AutoNaming::ProgramAndName:
        return ProgramParts(item);
    case AutoNaming::Name:
    case AutoNaming::Prompt:
        break;
    }
    return {{}, {name}};
}

bool Exists(std::u16string_view path)
{
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(WideToPath(path), error));
}

/// The buttons of the question about a name collision.
enum class Collision : std::size_t { Overwrite = 0, Skip = 1, Rename = 2, CancelAll = 3 };

/// Asks about collisions, and remembers an answer that is for all of them.
class CollisionAsker {
public:
    explicit CollisionAsker(Host& host) noexcept : host_(host) {}
    Collision Ask(const Item& item, std::u16string_view path)
    {
        if (forAll_)
            return *forAll_;
        Question question{"save-all-collision",
                          u"The auto-named file \"",
                          std::u16string(item.GetName()),
                          {u"Overwrite", u"Skip this", u"Rename it", u"Cancel all"},
                          static_cast<std::size_t>(Collision::Skip)};
        question.text.append(path).append(u"\" already exists!\nWhat do you want to do with it?");
        const auto answer = static_cast<Collision>(std::min<std::size_t>(host_.Ask(question), 3));
        if (answer != Collision::CancelAll && !wasAsked_ && IsForAll())
            forAll_ = answer;
        wasAsked_ = true;
        return answer;
    }

private:
    bool IsForAll()
    {
        return host_.Ask({"save-all-collisions",
                          u"Do you want to do the same thing for any additional name collisions?",
                          u"Don't ask again?",
                          {u"Yes", u"No"},
                          1}) == 0;
    }
    Host& host_;
    bool wasAsked_ = false;
    std::optional<Collision> forAll_;
};

/// One run over the items of a kind.
class SaveAllRun {
public:
    SaveAllRun(Collection& user, ItemKind kind, const SaveTarget& base, const SaveAllOptions& options)
        : user_(user), host_(user.GetHost()), kind_(kind), base_(base), options_(options), asker_(host_),
          keeper_(user)
    {
        if (GetExtension(base.path) == base.path.size())
            base_.path.append(u".").append(RowExtension(base.row));
    }

    SaveAllResult Run()
    {
        FixUpItems(user_, SavePruneMask(kind_), AfterLoad::No);
        // One copy for all files, where each of them would need one.
        if (NeedsCopy()) {
            copy_.emplace();
            copy_->CopyFrom(user_);
        }
        Collection& source = copy_ ? *copy_ : user_;
        std::size_t number = 0;
        for (const ItemHandle handle : HandlesIn(source)) {
            result_.cancelled = result_.cancelled || host_.IsCancelled();
            if (result_.cancelled)
                break;
            if (Item* item = source.FindItem(handle))
                SaveOne(*item, ++number);
        }
        return result_;
    }

private:
    bool NeedsCopy() const
    {
        const FormatRow& row = *FindRow(base_.row);
        if (kind_ == ItemKind::Song)
            return (row.caps & FormatBit(DataFormat::Midi)) == 0;
        const auto waves = user_.All<Waveform>();
        return kind_ == ItemKind::Instrument &&
               (user_.CountOf(ItemKind::SynthModel) > 0 ||
                ((base_.choice.caps & kCapsDualMono) != 0 &&
                 std::any_of(waves.begin(), waves.end(),
                             [](const Waveform& wave) { return wave.channels > 1; })));
    }

    std::vector<ItemHandle> HandlesIn(const Collection& source) const
    {
        std::vector<ItemHandle> handles;
        const auto add = [&](const auto& items) {
            for (const Item& item : items)
                handles.push_back(item.Handle());
        };
        if (kind_ == ItemKind::Instrument)
            add(source.All<Instrument>());
        else if (kind_ == ItemKind::Waveform)
            add(source.All<Waveform>());
        else
            add(source.All<Song>());
        return handles;
    }

    void SaveOne(Item& item, std::size_t number)
    {
        SaveTarget target = base_;
        target.path = AutoName(base_.path, item, options_.naming, options_.subFolders, number);
        if (options_.naming == AutoNaming::Prompt) {
            if (options_.pickTarget && options_.pickTarget(item, target))
                Save(item, target);
            else
                result_.cancelled = true;
            return;
        }
        if (!Exists(target.path)) {
            Save(item, target);
            return;
        }
        switch (asker_.Ask(item, target.path)) {
        case Collision::Overwrite:
            Save(item, target);
            break;
        case Collision::Rename:
            if (options_.pickTarget && options_.pickTarget(item, target))
                Save(item, target);
            else
                ++result_.skipped;
            break;
        case Collision::Skip:
            ++result_.skipped;
            break;
        case Collision::CancelAll:
            result_.cancelled = true;
        }
    }

    void Save(Item& item, const SaveTarget& target)
    {
        SaveOptions save;
        save.isFixedUp = true;
        save.isPrivateCopy = copy_.has_value();
        save.services = options_.services;
        save.keeper = &keeper_;
        const std::u16string folder = DirectoryOf(target.path);
        const bool isReady = folder.empty() || MakeDirectories(folder) || Fail(u"Could not create file");
        if (isReady && SaveToPath(&item, target.path, target.row, target.choice, save)) {
            ++result_.saved;
            return;
        }
        ++result_.failed;
        host_.ShowMessage(LastError(), u"Error!", MessageIcon::Error);
    }

    Collection& user_;
    Host& host_;
    ItemKind kind_;
    SaveTarget base_;
    const SaveAllOptions& options_;
    CollisionAsker asker_;
    SampleKeeper keeper_;
    std::optional<Collection> copy_;
    SaveAllResult result_;
};

bool SaveCollection(Collection& collection, const SaveTarget& base, const SaveAllOptions& options)
{
    SaveOptions save;
    save.services = options.services;
    if (!SaveToPath(&collection, base.path, base.row, base.choice, save))
        return false;
    collection.GetHost().SetStatus(u"Saved 1 collection!");
    return true;
}

struct SavedKind {
    std::uint8_t bit;
    ItemKind kind;
    std::u16string_view noneText;
};
constexpr SavedKind kSavedKinds[] = {
    {kKindInstrument, ItemKind::Instrument, u"No instruments to save!"},
    {kKindWave, ItemKind::Waveform, u"No waveforms to save!"},
    {kKindSong, ItemKind::Song, u"No songs to save!"},
};

std::u16string EndText(const SaveAllResult& result)
{
    return Widened(fmt::format("{} {} files.", result.cancelled ? "Failed: Cancelled after" : "Done: Saved",
                               result.saved));
}

} // namespace

std::u16string AutoName(std::u16string_view basePath, const Item& item, AutoNaming naming,
                        SubFolders subFolders, std::size_t number)
{
    const BasePath base(basePath);
    const NameParts parts = PartsOf(item, base.name, naming, number);
    const std::size_t times = subFolders == SubFolders::Yes ? 2 : 1;
    const std::size_t taken = base.folder.size() + base.extension.size() + times;
    const std::size_t least = parts.fixed.size() + kMinNameUnits;
    std::size_t room = taken < kMaxPathUnits ? std::max(least, (kMaxPathUnits - taken) / times) : least;
    std::u16string name = parts.Join(room);
    // Letters beyond ASCII take several bytes each.
    while (WideToPath(name + base.extension).size() > kMaxFileNameBytes && room > least)
        name = parts.Join(--room);
    const std::u16string folder = subFolders == SubFolders::Yes ? JoinPath(base.folder, name) : base.folder;
    return JoinPath(folder, name + base.extension);
}

bool HasFilePerInstrument(const FormatRow& row) noexcept
{
    return row.extension == u"sfz";
}

std::optional<MidiLocation> TakeProgram(std::u16string& name)
{
    std::u16string_view rest = name;
    MidiLocation location;
    location.SetDrum(rest.starts_with(u'd'));
    rest.remove_prefix(location.IsDrum() ? 1 : 0);
    constexpr std::size_t kNumbers = 3, kMostDigits = 3;
    constexpr unsigned kHighest = 127;
    std::array<unsigned, kNumbers> numbers{};
    for (std::size_t i = 0; i < kNumbers; ++i) {
        const std::size_t digits = std::min(rest.find_first_not_of(u"0123456789"), rest.size());
        if (digits == 0 || digits > kMostDigits)
            return std::nullopt;
        for (const char16_t digit : rest.substr(0, digits))
            numbers[i] = numbers[i] * 10 + static_cast<unsigned>(digit - u'0');
        rest.remove_prefix(digits);
        const std::u16string_view behind = i + 1 < kNumbers ? u"-" : u" - ";
        if (numbers[i] > kHighest || !rest.starts_with(behind))
            return std::nullopt;
        rest.remove_prefix(behind.size());
    }
    if (rest.empty())
        return std::nullopt;
    location.SetBankMsb(numbers[0]);
    location.SetBankLsb(numbers[1]);
    location.SetProgram(numbers[2]);
    name = std::u16string(rest);
    return location;
}

bool SaveAll(Collection& collection, const SaveTarget& base, const SaveAllOptions& options,
             SaveAllResult* result)
{
    const FormatRow* row = FindRow(base.row);
    if (row == nullptr || row->write == nullptr)
        return Fail(u"Invalid export format selected");
    if ((row->kinds & kKindCollection) != 0) {
        const bool isSaved = SaveCollection(collection, base, options);
        if (result != nullptr)
            *result = {.saved = isSaved ? 1u : 0u, .failed = isSaved ? 0u : 1u};
        return isSaved;
    }
    const auto* kind = std::find_if(std::begin(kSavedKinds), std::end(kSavedKinds),
                                    [row](const SavedKind& each) { return (row->kinds & each.bit) != 0; });
    if (kind == std::end(kSavedKinds))
        return Fail(u"Can't 'Save all...' with this file format!");
    if (collection.CountOf(kind->kind) == 0)
        return Fail(kind->noneText);
    const SaveAllResult end = SaveAllRun(collection, kind->kind, base, options).Run();
    collection.GetHost().SetStatus(EndText(end));
    if (result != nullptr)
        *result = end;
    return true;
}

} // namespace vimbo
