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

#include <array>

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

Waveform* FindWaveByName(const Collection& collection, std::u16string_view name)
{
    for (Waveform& wave : collection.All<Waveform>()) {
        if (wave.GetName() == name)
            return &wave;
    }
    return nullptr;
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

bool OpenOneFile(Collection& collection, std::u16string_view path, OpenMode mode)
{
    switch (mode) {
    case OpenMode::Merge:
        return MergeFile(collection, path);
    case OpenMode::ReplaceWaves: {
        int replaced = 0;
        return ReplaceWaveforms(collection, path, replaced);
    }
    case OpenMode::New:
        break;
    }
    return LoadFile(collection, path, AllowRaw::Yes);
}

bool OpenBelow(Collection& collection, std::u16string_view path, OpenMode& mode, Announce announce,
               int& opened, int depth)
{
    if (IsDirectory(path)) {
        std::vector<DirectoryEntry> entries;
        if (depth >= kMaxFolderDepth || !ListDirectory(path, entries))
            return Fail(u"Could not open file");
        for (const DirectoryEntry& entry : entries) {
            if (entry.isDirectory && entry.name.starts_with(u'.'))
                continue;
            if (!OpenBelow(collection, JoinPath(path, entry.name), mode, announce, opened, depth + 1))
                return false;
        }
        return true;
    }
    Host& host = collection.GetHost();
    host.SetStatus(u"Reading data...");
    if (!OpenOneFile(collection, path, mode)) {
        host.SetStatus(u"");
        return false;
    }
    if (announce == Announce::Yes) {
        std::u16string text = mode == OpenMode::Merge ? u"Merged: " : u"Opened: ";
        text += path;
        host.SetStatus(text);
    }
    if (mode == OpenMode::New)
        mode = OpenMode::Merge;
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
    Collection loaded;
    CopyContext(collection, loaded);
    if (!LoadFile(loaded, path, AllowRaw::Yes))
        return false;
    const bool isSingleWave =
        loaded.CountOf(ItemKind::Instrument) == 0 && loaded.CountOf(ItemKind::Waveform) == 1;
    collection.SetImportProcedures(AllImportProcedures());
    const std::size_t before = collection.CountOf(ItemKind::Waveform);
    collection.Merge(loaded);
    if (!isSingleWave)
        FinishMerge(collection, std::span(&before, 1), Unplayed::Keep);
    return true;
}

void FinishMerge(Collection& collection, std::span<const std::size_t> fileStarts, Unplayed unplayed)
{
    if (!collection.loadOptions.autoRemoveDupWaves)
        return;
    ShareSources(collection, fileStarts, unplayed);
    RemoveDuplicateWaves(collection);
}

bool ReplaceWaveforms(Collection& collection, std::u16string_view path, int& replaced)
{
    replaced = 0;
    Collection loaded;
    CopyContext(collection, loaded);
    if (!LoadFile(loaded, path, AllowRaw::Yes))
        return false;
    for (Waveform& wave : loaded.All<Waveform>()) {
        Waveform* old = FindWaveByName(collection, wave.GetName());
        if (old && ReplaceSamples(*old, wave))
            ++replaced;
    }
    return true;
}

bool OpenPath(Collection& collection, std::u16string_view path, OpenMode mode, Announce announce, int* opened)
{
    int count = 0;
    const bool good = OpenBelow(collection, path, mode, announce, count, 0);
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
