#include "formats/save.h"

#include "base/fit_name.h"
#include "base/last_error.h"
#include "base/text.h"
#include "model/fix_up.h"

#include <filesystem>

namespace vimbo {

namespace {

constexpr std::size_t kMaxNameUnits = 259;

class SavingScope {
public:
    explicit SavingScope(Collection& collection) noexcept : collection_(collection)
    {
        collection_.saving = true;
    }
    ~SavingScope() { collection_.saving = false; }
    SavingScope(const SavingScope&) = delete;
    SavingScope& operator=(const SavingScope&) = delete;

private:
    Collection& collection_;
};

bool IsSongLike(const Item& item) noexcept
{
    return item.Kind() == ItemKind::Song || item.Kind() == ItemKind::Track;
}

/// True if the row could find something of its kinds in the item.
bool HasContentFor(const Item& root, const FormatRow& row) noexcept
{
    const Collection& owner = root.Owner();
    const bool isCollection = root.Kind() == ItemKind::Collection;
    const bool holdsSongs = (row.caps & FormatBit(DataFormat::Midi)) != 0;
    if (holdsSongs || (isCollection && (row.kinds & kKindSong) != 0)) {
        if (IsSongLike(root) || (isCollection && owner.CountOf(ItemKind::Song) > 0))
            return true;
    }
    if (holdsSongs)
        return false;
    if (root.Kind() == ItemKind::Waveform)
        return true;
    return isCollection ? owner.CountOf(ItemKind::Waveform) > 0 : !root.Children().empty();
}

bool IsSameFile(std::u16string_view a, std::u16string_view b)
{
    std::error_code error;
    return std::filesystem::equivalent(WideToPath(a), WideToPath(b), error) && !error;
}

/// Brings the samples that lie in the file about to be replaced into memory: afterwards they can't be fetched
/// there.
bool DetachFromTarget(Collection& owner, std::u16string_view path)
{
    for (Waveform& wave : owner.All<Waveform>()) {
        if (!wave.importProc || wave.frames == 0 || !IsSameFile(wave.GetSourcePath(), path))
            continue;
        owner.GetHost().SetStatus(u"Reading waveforms...");
        if (wave.LockSamplesForWrite().empty())
            return false;
    }
    return true;
}

char16_t LegalUnit(char16_t unit, bool isFirst, bool& drop) noexcept
{
    drop = false;
    switch (unit) {
    case u'*':
    case u'.':
    case u'/':
    case u':':
    case u'?':
    case u'\\':
    case 127:
        drop = isFirst;
        return u'_';
    case u'"':
        return u'\'';
    case u'|':
        return u',';
    case u'<':
        return u'(';
    case u'>':
        return u')';
    default:
        break;
    }
    return unit < 32 ? u'_' : unit;
}

} // namespace

bool SaveToPath(Item* root, std::u16string_view path, int row, FormatChoice choice, SaveOptions options)
{
    if (!root)
        return Fail(u"No item selected");
    const FormatRow* entry = FindRow(row);
    if (!entry || !entry->write)
        return Fail(u"Invalid export format selected");
    Collection& owner = root->Owner();
    const auto kind = static_cast<unsigned>(root->Kind());
    FixUpItems(owner, static_cast<std::uint8_t>(((1u << kind) - 1) & kPruneAll), AfterLoad::No);
    const SavingScope saving(owner);
    if (!options.force && !HasContentFor(*root, *entry))
        return Fail(u"Empty item - nothing to save");

    GuardedFile file;
    if (!file.Create(path))
        return Fail(u"Could not create file");
    std::u16string status = u"Writing: ";
    status += path;
    owner.GetHost().SetStatus(status);
    if (!WriteThroughRow(*entry, *root, file.File(), choice))
        return false;
    if (!options.lastUse && !DetachFromTarget(owner, path))
        return false;
    return file.Commit() || Fail(u"Couldn't write to file!");
}

FormatChoice AutoChoice(int row) noexcept
{
    FormatChoice choice;
    choice.caps = GetRowCaps(row, choice.variant);
    return choice;
}

std::u16string SanitizeFileName(std::u16string_view name, std::size_t size)
{
    std::u16string legal;
    for (char16_t unit : name.substr(0, kMaxNameUnits)) {
        bool drop = false;
        const char16_t kept = LegalUnit(unit, legal.empty(), drop);
        if (!drop)
            legal += kept;
    }
    if (legal.empty())
        legal = u"noname";
    std::u16string fitted(std::min(size, kMaxNameUnits) + 1, u'\0');
    fitted.resize(FitName(fitted, legal, KeepTags::Yes, PadName::No, EndName::Yes));
    return fitted;
}

} // namespace vimbo
