#include "formats/open.h"

#include "base/last_error.h"
#include "base/path.h"
#include "formats/aiff/aiff.h"
#include "formats/mpeg/mpeg.h"
#include "formats/raw/raw.h"
#include "formats/soundfont/soundfont.h"
#include "formats/speech/speech.h"
#include "formats/wave/wave.h"
#include "formats/xiph/xiph.h"
#include "model/fix_up.h"
#include "model/merge.h"

#include <array>
#include <functional>
#include <map>
#include <optional>

namespace vimbo {

namespace {

constexpr int kMaxFolderDepth = 64;

/// Switches a collection's loading flag on for a scope.
class LoadingScope {
public:
    explicit LoadingScope(Collection& collection) noexcept : collection_(collection)
    {
        collection_.loading = true;
    }
    ~LoadingScope() { collection_.loading = false; }
    LoadingScope(const LoadingScope&) = delete;
    LoadingScope& operator=(const LoadingScope&) = delete;

private:
    Collection& collection_;
};

/// Detects the format of an open file; null with the Last error text if it cannot be loaded.
const FormatRow* ChooseRow(std::u16string_view path, FileObject& file, AllowRaw allowRaw, int& row,
                           int& confidence)
{
    if (file.Size() == 0) {
        Fail(u"File is of zero size");
        return nullptr;
    }
    row = DetectFormat(path, file, confidence);
    if (row < 0) {
        Fail(u"Not a supported import file type");
        return nullptr;
    }
    if ((row == 0 || confidence == 0) && allowRaw == AllowRaw::No) {
        Fail(u"Not detected as any supported file type");
        return nullptr;
    }
    return FindRow(row);
}

/// A collection to read a second file into, with the context of the first.
void CopyContext(const Collection& from, Collection& to)
{
    to.SetHost(from.GetHost());
    to.features = from.features;
    to.loadOptions = from.loadOptions;
    to.SetImportProcedures(AllImportProcedures());
}

/// Gives the samples of `from` to `to`, and its loop unless it says nothing.
bool ReplaceSamples(Waveform& to, Waveform& from)
{
    if (!from.EnsureData() || !from.HasBlock())
        return false;
    to.ReplaceBlock(from.Block());
    to.bits = from.bits;
    const bool sameLoop = to.loop.start == from.loop.start && to.loop.end == from.loop.end;
    if (!IsDefaultLoop(from.loop, from.frames) && !sameLoop)
        to.loop = from.loop;
    to.Validate();
    return true;
}

/// Merges files one after another into one collection. Each costs what it holds itself: duplicate waveforms
/// are looked for once behind the last one.
class FileMerger {
public:
    explicit FileMerger(Collection& target) : target_(target), merger_(target) {}

    bool Merge(std::u16string_view path)
    {
        Collection loaded;
        CopyContext(target_, loaded);
        if (!LoadFile(loaded, path, AllowRaw::Yes))
            return false;
        const bool isSingleWave =
            loaded.CountOf(ItemKind::Instrument) == 0 && loaded.CountOf(ItemKind::Waveform) == 1;
        target_.SetImportProcedures(AllImportProcedures());
        const std::size_t before = target_.CountOf(ItemKind::Waveform);
        merger_.Merge(loaded);
        // What comes alone stays, until a bank comes behind it.
        files_.push_back({before, isSingleWave ? MayLeave::No : MayLeave::Yes});
        if (!isSingleWave)
            mayBeDouble_ = target_.CountOf(ItemKind::Waveform);
        return true;
    }
    /// To be called behind the last file.
    void Finish()
    {
        if (mayBeDouble_ != 0)
            FinishMerge(target_, files_, Unplayed::Keep, mayBeDouble_);
        files_.clear();
        mayBeDouble_ = 0;
    }

private:
    Collection& target_;
    CollectionMerger merger_;
    std::vector<FileStart> files_;
    std::size_t mayBeDouble_ = 0; ///< waveforms from the first one on
};

/// Gives samples to the waveforms of one collection, file after file.
class WaveReplacer {
public:
    explicit WaveReplacer(Collection& target) : target_(target)
    {
        for (Waveform& wave : target.All<Waveform>())
            byName_.emplace(wave.GetName(), &wave); // of equal names the first
    }

    bool Replace(std::u16string_view path, int& replaced)
    {
        replaced = 0;
        Collection loaded;
        CopyContext(target_, loaded);
        if (!LoadFile(loaded, path, AllowRaw::Yes))
            return false;
        for (Waveform& wave : loaded.All<Waveform>()) {
            const auto old = byName_.find(wave.GetName());
            if (old != byName_.end() && ReplaceSamples(*old->second, wave))
                ++replaced;
        }
        return true;
    }

private:
    Collection& target_;
    std::map<std::u16string, Waveform*, std::less<>> byName_;
};

/// Opens files one after another; in new collections the others are merged with the first.
class Opener {
public:
    Opener(Collection& target, OpenMode mode) noexcept : target_(target), mode_(mode) {}

    bool Open(std::u16string_view path)
    {
        switch (mode_) {
        case OpenMode::Merge:
            if (!merger_)
                merger_.emplace(target_);
            return merger_->Merge(path);
        case OpenMode::ReplaceWaves: {
            if (!replacer_)
                replacer_.emplace(target_);
            int replaced = 0;
            return replacer_->Replace(path, replaced);
        }
        case OpenMode::New:
            break;
        }
        if (!LoadFile(target_, path, AllowRaw::Yes))
            return false;
        mode_ = OpenMode::Merge;
        return true;
    }
    /// To be called behind the last file.
    void Finish()
    {
        if (merger_)
            merger_->Finish();
    }
    OpenMode Mode() const noexcept { return mode_; }
    Host& GetHost() const noexcept { return target_.GetHost(); }

private:
    Collection& target_;
    OpenMode mode_;
    std::optional<FileMerger> merger_;
    std::optional<WaveReplacer> replacer_;
};

bool OpenBelow(Opener& opener, std::u16string_view path, Announce announce, int& opened, int depth)
{
    if (IsDirectory(path)) {
        std::vector<DirectoryEntry> entries;
        if (depth >= kMaxFolderDepth || !ListDirectory(path, entries))
            return Fail(u"Could not open file");
        for (const DirectoryEntry& entry : entries) {
            if (entry.isDirectory && entry.name.starts_with(u'.'))
                continue;
            if (!OpenBelow(opener, JoinPath(path, entry.name), announce, opened, depth + 1))
                return false;
        }
        return true;
    }
    Host& host = opener.GetHost();
    host.SetStatus(u"Reading data...");
    const OpenMode mode = opener.Mode();
    if (!opener.Open(path)) {
        host.SetStatus(u"");
        return false;
    }
    if (announce == Announce::Yes) {
        std::u16string text = mode == OpenMode::Merge ? u"Merged: " : u"Opened: ";
        text += path;
        host.SetStatus(text);
    }
    ++opened;
    return true;
}

} // namespace

bool LoadFile(Collection& collection, std::u16string_view path, AllowRaw allowRaw, int* confidence)
{
    FileObject file;
    if (!file.Open(path, FileMode::Read))
        return Fail(u"Could not open file");
    int row = -1;
    int percent = 0;
    const FormatRow* entry = ChooseRow(path, file, allowRaw, row, percent);
    if (!entry)
        return false;
    if (confidence)
        *confidence = percent;

    collection.Clear();
    collection.SetImportProcedures(AllImportProcedures());
    collection.SetText(kTextSourcePath, file.Path());
    collection.formatRow = row;
    collection.SetName(BaseName(path));
    {
        const LoadingScope loading(collection);
        if (!ReadThroughRow(*entry, collection, file)) {
            collection.Clear();
            collection.SetName(u"Empty collection");
            return false;
        }
    }
    const bool holdsStereo = (entry->caps & kCapsStereo) != 0;
    FixUpItems(collection, kPruneAll, AfterLoad::Yes,
               holdsStereo ? SourceHoldsStereo::Yes : SourceHoldsStereo::No);
    return true;
}

bool MergeFile(Collection& collection, std::u16string_view path)
{
    FileMerger merger(collection);
    if (!merger.Merge(path))
        return false;
    merger.Finish();
    return true;
}

void FinishMerge(Collection& collection, std::span<const FileStart> files, Unplayed unplayed,
                 std::size_t count)
{
    if (!collection.loadOptions.autoRemoveDupWaves)
        return;
    const std::size_t shared = ShareSources(collection, files, unplayed);
    RemoveDuplicateWaves(collection, count - shared);
}

bool ReplaceWaveforms(Collection& collection, std::u16string_view path, int& replaced)
{
    return WaveReplacer(collection).Replace(path, replaced);
}

bool OpenPath(Collection& collection, std::u16string_view path, OpenMode mode, Announce announce, int* opened)
{
    int count = 0;
    Opener opener(collection, mode);
    const bool good = OpenBelow(opener, path, announce, count, 0);
    const std::u16string error(LastError()); // what went wrong first counts
    opener.Finish();
    if (!good)
        static_cast<void>(Fail(error));
    if (opened)
        *opened = count;
    return good;
}

std::span<const ImportProcedure* const> AllImportProcedures() noexcept
{
    static constexpr std::array kProcedures{&kAiffImport,   &kWaveImport,   &kAsciiImport,
                                            &kSpeechImport, &kFlacImport,   &kVorbisImport,
                                            &kSm24Import,   &kPackedImport, &kMpegImport};
    return kProcedures;
}

} // namespace vimbo
