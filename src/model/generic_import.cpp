// Plain sample data: the encoding stands in the source word, the bytes at one or two places of the source
// file.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/plain_layout.h"
#include "model/waveform.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <optional>

namespace vimbo {
namespace {

constexpr std::uint64_t kGenericImportId = 1;
constexpr std::u16string_view kReadFailed = u"Reading from file failed";
/// Converted at a time: bytes and floats of a piece stay in the cache. Even, as packed samples come in pairs.
constexpr std::size_t kPieceSamples = 16384;

bool IsDelta(SampleCoding coding) noexcept
{
    return coding == SampleCoding::Delta8 || coding == SampleCoding::Delta16;
}

/// Samples that follow one another in the file: all of an interleaved waveform, or one plane.
struct Run {
    SampleLayout layout;
    std::uint64_t offset = 0; ///< in the file
    std::uint64_t bytes = 0;
};

/// What a waveform says about its data, found to be sound and present in the file.
struct PlainData {
    std::uint32_t frames = 0;
    unsigned channels = 1;
    bool planes = false;
    std::array<Run, 2> runs; ///< left and right, or the first alone
};

bool Holds(const FileObject& file, const Run& run) noexcept
{
    const std::uint64_t size = file.Size();
    return run.offset <= size && run.bytes <= size - run.offset;
}

/// Refuses what cannot be read. Nothing is allocated before this has seen that the file holds the bytes.
bool Describe(const Waveform& wave, std::uint64_t offset, const FileObject& file, PlainData& data)
{
    if (wave.frames == 0)
        return Fail(u"Zero length");
    if (wave.channels == 0)
        return Fail(u"No channels");
    if (wave.channels > kMaxChannels)
        return Fail(u"Too many channels");
    const std::optional<SampleLayout> layout = PlainLayout(wave.SourceFormat(), wave.sourceWord);
    if (!layout)
        return Fail(u"Invalid format for generic import function!");

    data.frames = wave.frames;
    data.channels = wave.channels;
    data.planes = wave.channels == 2 && (wave.sourceWord & kSourceSequentialStereo) != 0;
    Run& first = data.runs[0];
    first.layout = *layout;
    first.offset = offset;
    first.bytes = StoredBytes(layout->coding, std::uint64_t{wave.frames} * wave.channels);
    if (data.planes) {
        first.bytes /= 2;
        Run& second = data.runs[1] = first;
        second.offset = wave.secondOffset != 0 ? wave.secondOffset : first.offset + first.bytes;
    }
    const bool isHeld = Holds(file, first) && (!data.planes || Holds(file, data.runs[1]));
    return isHeld || Fail(kReadFailed);
}

/// Reads one run from any place in it.
class RunReader {
public:
    RunReader() = default;
    explicit RunReader(const Run& run) : run_(run)
    {
        const unsigned bits = StoredBits(run.layout.coding);
        isInPlace_ = bits == 32;
        if (!isInPlace_)
            bytes_.resize(static_cast<std::size_t>(StoredBytes(run.layout.coding, kPieceSamples)));
    }

    /// Whether the run's bytes are what its samples would become in this layout.
    bool Holds(const SampleLayout& layout) const noexcept
    {
        return layout == run_.layout && SurvivesFloats(layout.coding);
    }
    bool ReadBytes(FileObject& file, std::uint64_t first, std::span<std::byte> out)
    {
        const std::uint64_t start = StoredBytes(run_.layout.coding, first);
        assert(start <= run_.bytes && out.size() <= run_.bytes - start);
        return (file.Seek(run_.offset + start) && file.ReadExact(out)) || Fail(kReadFailed);
    }

    bool Read(FileObject& file, std::uint64_t first, std::span<float> out)
    {
        if (IsDelta(run_.layout.coding))
            return SkipTo(file, first) && ReadPieces(file, first, out);
        const bool startsInPair = StoredBits(run_.layout.coding) % 8 != 0 && first % 2 != 0;
        if (!startsInPair || out.empty())
            return ReadPieces(file, first, out);
        std::array<float, 2> pair{};
        if (!ReadPieces(file, first - 1, pair))
            return false;
        out[0] = pair[1];
        return ReadPieces(file, first + 1, out.subspan(1));
    }

private:
    /// A delta coding can be entered only where it was left, or at its start.
    bool SkipTo(FileObject& file, std::uint64_t first)
    {
        if (first < next_) {
            next_ = 0;
            state_ = {};
        }
        if (first > next_ && skipped_.empty())
            skipped_.resize(kPieceSamples);
        while (next_ < first) {
            const std::uint64_t samples = std::min<std::uint64_t>(first - next_, kPieceSamples);
            if (!ReadPieces(file, next_, std::span(skipped_).first(static_cast<std::size_t>(samples))))
                return false;
        }
        return true;
    }

    bool ReadPieces(FileObject& file, std::uint64_t first, std::span<float> out)
    {
        while (!out.empty()) {
            const auto piece = out.first(std::min(kPieceSamples, out.size()));
            if (!ReadPiece(file, first, piece))
                return false;
            first += piece.size();
            out = out.subspan(piece.size());
        }
        return true;
    }

    /// Bytes beyond the run's end, where half a total was rounded down, are not read; their samples are
    /// silent.
    bool ReadPiece(FileObject& file, std::uint64_t first, std::span<float> out)
    {
        const std::uint64_t start = StoredBytes(run_.layout.coding, first);
        const std::uint64_t wanted = StoredBytes(run_.layout.coding, out.size());
        const std::uint64_t left = start < run_.bytes ? run_.bytes - start : 0;
        const auto count = static_cast<std::size_t>(std::min(wanted, left));
        const auto room = isInPlace_ ? std::as_writable_bytes(out) : std::span(bytes_);
        if (!file.Seek(run_.offset + start) || !file.ReadExact(room.first(count))) {
            next_ = 0;
            state_ = {};
            return Fail(kReadFailed);
        }
        DecodeSamples(run_.layout, room.first(count), out, state_);
        next_ = first + out.size();
        return true;
    }

    Run run_;
    bool isInPlace_ = false; ///< samples as wide as a float are read straight into their place
    std::vector<std::byte> bytes_;
    std::vector<float> skipped_;
    std::uint64_t next_ = 0; ///< sample that `state_` belongs to
    DeltaState state_;
};

class PlainSource final : public FrameSource {
public:
    /// @param file used by every Read; it must live as long as the source unless it is handed over by `owned`
    PlainSource(const PlainData& data, FileObject& file, std::unique_ptr<FileObject> owned = nullptr)
        : FrameSource(data.frames, data.channels), owned_(std::move(owned)), file_(file), planes_(data.planes)
    {
        readers_[0] = RunReader(data.runs[0]);
        if (!planes_)
            return;
        readers_[1] = RunReader(data.runs[1]);
        left_.resize(kPieceSamples);
        right_.resize(kPieceSamples);
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        assert(out.size() % Channels() == 0 && out.size() / Channels() <= Frames() - first);
        if (!planes_)
            return readers_[0].Read(file_, std::uint64_t{first} * Channels(), out);
        for (std::uint64_t frame = first; !out.empty();) {
            const std::size_t frames = std::min(kPieceSamples, out.size() / 2);
            const auto left = std::span(left_).first(frames);
            const auto right = std::span(right_).first(frames);
            if (!readers_[0].Read(file_, frame, left) || !readers_[1].Read(file_, frame, right))
                return false;
            Interleave(left, right, out.first(2 * frames));
            out = out.subspan(2 * frames);
            frame += frames;
        }
        return true;
    }

    bool ReadStored(const SampleLayout& layout, std::uint32_t first, std::span<std::byte> out) override
    {
        if (planes_ || !readers_[0].Holds(layout))
            return FrameSource::ReadStored(layout, first, out);
        return readers_[0].ReadBytes(file_, std::uint64_t{first} * Channels(), out);
    }

private:
    std::unique_ptr<FileObject> owned_;
    FileObject& file_;
    bool planes_;
    std::array<RunReader, 2> readers_;
    std::vector<float> left_, right_;
};

bool LoadPlain(Waveform& wave, FileObject& file)
{
    wave.FreeSamples();
    PlainData data;
    if (!Describe(wave, file.Position(), file, data))
        return false;
    PlainSource source(data, file);
    return LoadFrames(wave, source);
}

std::unique_ptr<FrameSource> StreamPlain(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    PlainData data;
    if (!Describe(wave, wave.sourceOffset, *file, data))
        return nullptr;
    FileObject& opened = *file;
    return std::make_unique<PlainSource>(data, opened, std::move(file));
}

} // namespace

const ImportProcedure kGenericImport = {kGenericImportId, LoadPlain, StreamPlain};

} // namespace vimbo
