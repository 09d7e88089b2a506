#include "formats/sfz/sfz_samples.h"

#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace vimbo::sfz {
namespace {

constexpr std::u16string_view kSampleFilter = u"*.wav;*.flac;*.aif;*.aiff;*.aifc;*.ogg;*.mp3";
constexpr std::size_t kMostListed = 20; ///< names in one message

/// A row whose items are waveforms and nothing else: banks and texts are no samples.
bool IsSampleRow(const FormatRow* row) noexcept
{
    return row != nullptr && row->read != nullptr && (row->kinds & kKindWave) != 0 &&
           (row->kinds & (kKindInstrument | kKindSong | kKindTrack)) == 0;
}

/// The row of the file's extension, if the first bytes are of that format: the others need not be asked then.
/// Null if they are not.
const FormatRow* RowByExtension(std::u16string_view path, FileObject& file)
{
    constexpr std::size_t kHeadBytes = 512; // of the piece that the reader looks at too
    std::array<std::byte, kHeadBytes> head;
    std::uint64_t got = 0;
    if (!file.ReadAll(head, &got) || !file.Seek(0))
        return nullptr;
    std::u16string extension(path.substr(std::min(path.rfind(u'.'), path.size() - 1) + 1));
    std::ranges::transform(extension, extension.begin(), FoldCase);
    constexpr int kFullMatch = 6;
    const auto found = std::ranges::find_if(FormatRows(), [&](const FormatRow& row) {
        return row.extension == extension && IsSampleRow(&row) && row.detect != nullptr &&
               row.detect(std::span(head).first(static_cast<std::size_t>(got)), row.variant, file.Size()) ==
                   kFullMatch;
    });
    return found != FormatRows().end() ? &*found : nullptr;
}

const FormatRow* RowOf(const std::u16string& path, FileObject& file)
{
    if (const FormatRow* row = RowByExtension(path, file))
        return row;
    int confidence = 0;
    const int row = DetectFormat(path, file, confidence);
    return confidence > 0 ? FindRow(row) : nullptr;
}

std::filesystem::path Real(std::u16string_view path)
{
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(WideToPath(path), error);
    return error ? std::filesystem::path(WideToPath(path)) : real;
}

bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    const auto [end, at] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
    return end == folder.end() && at != path.end();
}

std::u16string WithSlashes(std::u16string name)
{
    std::ranges::replace(name, u'\\', u'/');
    return name;
}

std::u16string Listed(const std::vector<std::u16string>& names)
{
    std::u16string text;
    for (std::size_t i = 0; i < std::min(names.size(), kMostListed); ++i)
        text += u"\n" + names[i];
    if (names.size() > kMostListed)
        text += u"\nand " + Utf8ToWide(std::to_string(names.size() - kMostListed)) + u" more";
    return text;
}

void NoteEach(Host& host, const std::vector<std::u16string>& names, std::u16string_view reason)
{
    if (!host.WantsNotes())
        return;
    for (const std::u16string& name : names)
        host.NoteConversion({.fidelity = Fidelity::Lost,
                             .topic = NoteTopic::Waveform,
                             .item = {},
                             .what = u"Sample",
                             .from = name,
                             .to = {},
                             .reason = std::u16string(reason)});
}

} // namespace

SampleFiles::SampleFiles(Collection& items, const Surroundings& place)
    : items_(items), place_(place), search_(items.GetHost(), JoinPath(place.folder, u"*"))
{
}

bool SampleFiles::IsAllowed(std::u16string_view path) const
{
    return !place_.isNowhere && (!place_.stayInside || IsBelow(Real(path), Real(place_.folder)));
}

std::string SampleFiles::IdOf(std::u16string_view path)
{
    return path.empty() ? std::string() : Real(path).string();
}

std::optional<IncludedText> SampleFiles::LoadInclude(std::string_view name, std::string_view includer)
{
    if (place_.isNowhere || name.empty())
        return std::nullopt;
    const std::u16string wanted = WithSlashes(ToWide(name));
    std::u16string path = finder_.Find(JoinPath(place_.folder, wanted));
    if (path.empty() && !includer.empty())
        path = finder_.Find(JoinPath(DirectoryOf(PathToWide(includer)), wanted));
    FileObject file;
    if (path.empty() || !IsFile(path) || !IsAllowed(path) || !file.Open(path, FileMode::Read) ||
        file.Size() > kMaxTextBytes)
        return std::nullopt;
    IncludedText found{IdOf(path), std::string(static_cast<std::size_t>(file.Size()), '\0')};
    if (!file.ReadExact(std::as_writable_bytes(std::span(found.text))))
        return std::nullopt;
    return found;
}

bool SampleFiles::Locate(std::u16string_view name, std::u16string& path)
{
    if (place_.isNowhere)
        return false;
    if (!place_.stayInside)
        return search_.Find(name, kSampleFilter, path);
    path = finder_.Find(JoinPath(place_.folder, name));
    return !path.empty() && IsFile(path);
}

Waveform* SampleFiles::Find(std::string_view name)
{
    if (const auto known = byName_.find(name); known != byName_.end())
        return known->second;
    const std::u16string wanted = WithSlashes(ToWide(name));
    std::u16string path;
    Waveform* wave = nullptr;
    if (!Locate(wanted, path) || !IsAllowed(path)) {
        missing_.push_back(wanted);
    } else {
        path = PathToWide(std::filesystem::path(WideToPath(path)).lexically_normal().string());
        const auto [place, isNew] = byPath_.try_emplace(path, nullptr);
        if (isNew)
            place->second = Load(path);
        wave = place->second;
    }
    return byName_.emplace(name, wave).first->second;
}

Waveform* SampleFiles::Load(const std::u16string& path)
{
    FileObject file;
    if (!file.Open(path, FileMode::Read)) {
        missing_.push_back(path);
        return nullptr;
    }
    const FormatRow* row = RowOf(path, file);
    if (!IsSampleRow(row) || !file.Seek(0)) {
        unsupported_.push_back(path);
        return nullptr;
    }
    Collection loaded;
    loaded.SetHost(items_.GetHost());
    loaded.features = items_.features;
    loaded.SetText(kTextSourcePath, file.Path());
    loaded.SetName(BaseName(path));
    loaded.SetImportProcedures(AllImportProcedures());
    loaded.loading = true;
    const std::vector<Waveform*> waves =
        ReadThroughRow(*row, loaded, file) ? loaded.List<Waveform>() : std::vector<Waveform*>();
    if (waves.empty() || waves.front()->frames == 0) {
        unsupported_.push_back(path);
        return nullptr;
    }
    for (std::size_t i = 1; i < waves.size(); ++i)
        loaded.Destroy(waves[i]->Handle());
    Waveform& wave = *waves.front();
    if (!wave.HasText(kTextSourcePath))
        wave.SetText(kTextSourcePath, file.Path());
    wave.SetName(BaseName(path));
    items_.Merge(loaded);
    return &wave;
}

void SampleFiles::Report() const
{
    Host& host = items_.GetHost();
    NoteEach(host, missing_, u"the file could not be opened");
    NoteEach(host, unsupported_, u"no supported type of sample file");
    if (!missing_.empty())
        host.ShowMessage(u"Couldn't openwave" + Listed(missing_), u"Error!", MessageIcon::Warning);
    if (!unsupported_.empty())
        host.ShowMessage(u"Supported types: wav, flac, aif, aiff, aifc, ogg, mp3. Not one of these:" +
                             Listed(unsupported_),
                         u"Error!", MessageIcon::Warning);
}

} // namespace vimbo::sfz
