#include "formats/sfz/sfz_sample_files.h"

#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "formats/format_choice.h"
#include "formats/open.h"
#include "formats/sfz/sfz.h"
#include "model/sample_source.h"

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>

namespace vimbo::sfz {
namespace {

constexpr std::size_t kMaxNameUnits = 120;
constexpr std::u16string_view kCannotCreate = u"Could not create file";
constexpr std::size_t kPieceBytes = 65536;

std::u16string RealPath(std::u16string_view path)
{
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(WideToPath(path), error);
    return error ? std::u16string(path) : PathToWide(real.string());
}

std::u16string Folded(std::u16string_view path)
{
    std::u16string folded(path);
    std::ranges::transform(folded, folded.begin(), FoldCase);
    return folded;
}

bool Exists(std::u16string_view path)
{
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(WideToPath(path), error));
}

void Remove(std::u16string_view path) noexcept
{
    std::error_code error;
    std::filesystem::remove(WideToPath(path), error);
}

bool HoldSame(std::u16string_view a, std::u16string_view b)
{
    FileObject first, second;
    if (!IsFile(a) || !IsFile(b) || !first.Open(a, FileMode::Read) || !second.Open(b, FileMode::Read) ||
        first.Size() != second.Size())
        return false;
    std::vector<std::byte> left(kPieceBytes), right(kPieceBytes);
    for (std::uint64_t rest = first.Size(); rest > 0;) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(rest, kPieceBytes));
        const auto leftPart = std::span(left).first(size), rightPart = std::span(right).first(size);
        if (!first.ReadExact(leftPart) || !second.ReadExact(rightPart) ||
            !std::ranges::equal(leftPart, rightPart))
            return false;
        rest -= size;
    }
    return true;
}

/// True for names that need no change; what fits names into a length also moves their endings apart.
bool IsFileName(std::u16string_view name) noexcept
{
    constexpr std::u16string_view kReserved = u"*./:?\\\x7F\"|<>=";
    const auto isPlain = [=](char16_t c) {
        return c >= u' ' && kReserved.find(c) == std::u16string_view::npos;
    };
    return !name.empty() && name.size() <= kMaxNameUnits && name.front() != u' ' && name.back() != u' ' &&
           std::ranges::all_of(name, isPlain);
}

/// Names that opcodes can hold.
std::u16string FileNameOf(std::u16string_view name)
{
    if (IsFileName(name))
        return std::u16string(name);
    std::u16string legal = SanitizeFileName(name, kMaxNameUnits);
    std::ranges::replace(legal, u'=', u'-');
    while (!legal.empty() && legal.back() == u' ')
        legal.pop_back();
    legal.erase(0, std::min(legal.find_first_not_of(u' '), legal.size()));
    return legal.empty() ? u"noname" : legal;
}

/// A copy that is only made once a file is in the way.
class Scratch {
public:
    Scratch() = default;
    ~Scratch()
    {
        if (!path_.empty())
            Remove(path_);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    /// Null with the Last error text if the copy can't be made.
    template <class Content>
    const std::u16string* Path(Content& content)
    {
        if (!path_.empty())
            return &path_;
        FileObject file;
        if (!MakeTempPath(path_, u".tmp") || !file.Open(path_, FileMode::Create)) {
            Fail(kCannotCreate);
            return nullptr;
        }
        return content.Write(file) ? &path_ : nullptr;
    }

private:
    std::u16string path_;
};

/// True if the sample file has a loop of its own.
bool HoldsLoop(const std::u16string& path)
{
    FileObject file;
    Collection read;
    int confidence = 0;
    if (!file.Open(path, FileMode::Read))
        return false;
    const FormatRow* row = FindRow(DetectFormat(path, file, confidence));
    if (row == nullptr || row->read == nullptr || !ReadThroughRow(*row, read, file))
        return true; // who knows
    const auto waves = read.All<Waveform>();
    return std::ranges::any_of(waves.begin(), waves.end(),
                               [](const Waveform& wave) { return wave.loop.type != LoopType::Off; });
}

} // namespace

SampleFileWriter::SampleFileWriter(Collection& items, const FormatChoice& choice)
    : items_(items), host_(items.GetHost()), choice_(choice)
{
    std::set<std::u16string> files;
    for (const Waveform& wave : items.All<Waveform>())
        for (const std::u16string& file : SourceFiles(wave))
            files.insert(file);
    for (const std::u16string& file : files)
        sources_.insert(RealPath(file));
}

SampleFileWriter::~SampleFileWriter()
{
    staged_ = {}; // the hidden files leave their folders first
    for (const std::u16string& folder : folders_)
        Remove(folder); // does nothing to one that holds files
}

bool SampleFileWriter::Commit()
{
    if (!staged_.Commit())
        return Fail(kCannotCreate);
    folders_.clear();
    return true;
}

bool SampleFileWriter::MakeFolder(const std::u16string& folder)
{
    if (folder.empty() || IsDirectory(folder))
        return true;
    if (!MakeDirectories(folder))
        return Fail(kCannotCreate);
    folders_.push_back(folder);
    return true;
}

SampleFileWriter::Coding SampleFileWriter::CodingOf(const Waveform& wave) const
{
    constexpr float kFlac = 1;
    const std::uint32_t channels = choice_.caps & kCapsChannels;
    float kbit = 0;
    Coding coding;
    coding.format = PickDataFormat(wave, choice_, kbit, SfzSubFormats);
    coding.choice.caps = FormatBit(coding.format) | channels;
    coding.choice.kbit = kbit;
    std::u16string_view extension = u"wav";
    if (coding.format == DataFormat::Compressed && kbit == kFlac) {
        extension = u"flac";
        coding.choice.caps = FormatBit(DataFormat::Pcm16) | FormatBit(DataFormat::Pcm24) | channels;
        coding.choice.kbit = 0;
        coding.format = PickDataFormat(wave, coding.choice, kbit, nullptr);
    } else if (coding.format == DataFormat::Compressed) {
        extension = u"ogg";
    }
    coding.row = FindRow(FindRowByExtension(extension, kKindWave));
    return coding;
}

/// Unchanged samples that are to stay as they are need not be written again.
bool SampleFileWriter::IsOriginalOf(const Waveform& wave, const std::u16string& path) const
{
    SampleSource source;
    return !std::has_single_bit(choice_.caps & kDataFormatMask) && wave.derived == nullptr &&
           DescribeSource(wave, source) && source.channel == SampleSource::kAllChannels &&
           source.frames == wave.frames && RealPath(source.path) == RealPath(path);
}

bool SampleFileWriter::MayReplace(const std::u16string& path, bool& isCancelled)
{
    constexpr int kReplace = 0, kCancel = 2;
    if (sources_.contains(RealPath(path)))
        return false;
    if (replaceAnswer_ < 0)
        replaceAnswer_ = static_cast<int>(
            host_.Ask({"sfz-replace",
                       u"There are files of the samples' names already, which hold something else:\n" + path +
                           u"\nReplace such files?",
                       u"Save",
                       {u"Replace", u"Write under new names", u"Cancel"},
                       1}));
    isCancelled = replaceAnswer_ == kCancel;
    return replaceAnswer_ == kReplace;
}

std::u16string SampleFileWriter::Free(const std::u16string& folder, const std::u16string& base,
                                      std::u16string_view extension, unsigned number) const
{
    std::u16string name = base;
    if (number > 1)
        name += u" (" + Utf8ToWide(std::to_string(number)) + u")";
    name += u'.';
    name += extension;
    return taken_.contains(Folded(JoinPath(folder, name))) ? std::u16string() : name;
}

void SampleFileWriter::Reserve(const std::u16string& folder, std::u16string_view fileName)
{
    taken_.insert(Folded(JoinPath(folder, fileName)));
}

template <class Content>
bool SampleFileWriter::Stage(const std::u16string& path, Content& content)
{
    auto file = std::make_unique<GuardedFile>();
    if (!file->Create(path))
        return Fail(kCannotCreate);
    if (!content.Write(file->File()))
        return false;
    return staged_.Take(std::move(file)) || Fail(u"Couldn't write to file!");
}

/// @param content  writes itself to a file; may say that a file is its own
template <class Content>
bool SampleFileWriter::Place(const std::u16string& folder, const std::u16string& base,
                             std::u16string_view extension, Content& content, std::u16string& name)
{
    constexpr unsigned kMostNames = 100000;
    Scratch scratch;
    for (unsigned number = 1; number < kMostNames; ++number) {
        name = Free(folder, base, extension, number);
        if (name.empty())
            continue;
        const std::u16string path = JoinPath(folder, name);
        if (!Exists(path)) {
            Reserve(folder, name);
            return Stage(path, content);
        }
        const std::u16string* copy = scratch.Path(content);
        if (copy == nullptr)
            return false;
        bool isCancelled = false;
        const bool isSame = HoldSame(path, *copy) || content.IsOriginal(path);
        if (isSame || (IsFile(path) && MayReplace(path, isCancelled))) {
            Reserve(folder, name);
            return isSame || Stage(path, content);
        }
        if (isCancelled)
            return Fail(u"Save aborted!");
    }
    return Fail(kCannotCreate);
}

const SampleFileWriter::Sample* SampleFileWriter::Write(Waveform& wave, const std::u16string& folder)
{
    const auto [place, isNew] = written_.try_emplace({folder, &wave});
    if (!isNew)
        return &place->second;
    struct Content {
        SampleFileWriter& writer;
        Waveform& wave;
        const Coding& coding;
        bool isOriginal = false;
        bool Write(FileObject& file) const
        {
            FormatChoice choice = coding.choice;
            choice.variant = coding.row->variant;
            return WriteThroughRow(*coding.row, wave, file, choice);
        }
        bool IsOriginal(const std::u16string& path) { return isOriginal = writer.IsOriginalOf(wave, path); }
    };
    const Coding coding = CodingOf(wave);
    Content content{*this, wave, coding};
    Sample& sample = place->second;
    if (host_.IsCancelled()) {
        Fail(u"Save aborted!");
        written_.erase(place);
        return nullptr;
    }
    if (!MakeFolder(folder) ||
        !Place(folder, FileNameOf(wave.GetName()), coding.row->extension, content, sample.name)) {
        written_.erase(place);
        return nullptr;
    }
    sample.format = coding.format;
    sample.mayLoop = content.isOriginal && HoldsLoop(JoinPath(folder, sample.name));
    return &sample;
}

bool SampleFileWriter::WriteText(const std::u16string& folder, std::u16string_view name,
                                 std::string_view text, std::u16string* written)
{
    struct Content {
        std::string_view text;
        bool Write(FileObject& file) const
        {
            return file.WriteAll(std::as_bytes(std::span(text))) || Fail(u"Couldn't write to file!");
        }
        static bool IsOriginal(const std::u16string&) { return false; }
    };
    Content content{text};
    std::u16string fileName;
    if (!Place(folder, FileNameOf(name), u"sfz", content, fileName))
        return false;
    if (written != nullptr)
        *written = fileName;
    return true;
}

} // namespace vimbo::sfz
