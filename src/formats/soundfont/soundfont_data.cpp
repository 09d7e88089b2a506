#include "formats/soundfont/soundfont_data.h"

#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/collection.h"
#include "model/sample_source.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <new>
#include <optional>
#include <system_error>
#include <unordered_map>

namespace vimbo::sf2 {
namespace {

constexpr std::size_t kPieceFrames = 65536;
/// Silence behind each sample, for players that read ahead. SoundFont 2.04, section 6.1.
constexpr std::uint32_t kGapFrames = 46;
constexpr std::size_t kWordBytes = 2;
constexpr std::u16string_view kAborted = u"Save aborted!";
/// Between looks at whether the user still wants it.
constexpr std::chrono::milliseconds kLook{50};

/// True for sources whose bytes are those that a bank of 16 bits holds.
bool HoldsWords(const SampleSource& source) noexcept
{
    constexpr std::uint32_t kOtherForms = kSourceUnsigned | kSourceBigEndian;
    return source.importProc == &kGenericImport && source.channels == 1 &&
           FirstFormatOf(source.sourceWord) == DataFormat::Pcm16 && (source.sourceWord & kOtherForms) == 0;
}

/// Where the sample's words lie in a file, if that is where its frames would be read from.
std::optional<SampleSource> WordsOf(const OutSample& sample)
{
    const Waveform& wave = *sample.wave;
    if (wave.HasBlock())
        return std::nullopt;
    SampleSource source;
    const bool isHalf = sample.channel != OutSample::kWhole;
    if (wave.importProc == &kPairImport && isHalf && wave.derived != nullptr &&
        sample.channel < wave.derived->parts.size())
        source = wave.derived->parts[sample.channel];
    else if (isHalf || !DescribeSource(wave, source))
        return std::nullopt;
    return HoldsWords(source) ? std::optional(std::move(source)) : std::nullopt;
}

/// Writes the samples that are not copied.
class DataWriter {
public:
    DataWriter(FileObject& file, const DataPlan& plan, std::uint64_t words, std::uint64_t lowBytes) noexcept
        : file_(file), plan_(plan), words_(words), lowBytes_(lowBytes)
    {
    }

    bool Write(const std::vector<OutSample>& samples, const WordCopy& copied, Streams& streams, Host& host)
    {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (copied.Holds(i))
                continue;
            if (host.IsCancelled())
                return Fail(kAborted);
            host.SetProgress(samples[i].wave->GetName(),
                             static_cast<double>(i) / static_cast<double>(samples.size()));
            const Extent& extent = plan_.extents[i];
            if (extent.isStream ? !CopyStream(extent, streams.places[i], streams.file.File())
                                : !WriteFrames(extent, samples[i]))
                return false;
        }
        host.SetProgress(u"");
        return true;
    }

private:
    bool Put(std::uint64_t place, std::span<const std::byte> bytes)
    {
        return (file_.Seek(place) && file_.WriteAll(bytes)) || Fail(kCannotWrite);
    }

    bool CopyStream(const Extent& extent, const StreamPlace& from, FileObject& streams)
    {
        if (!streams.Seek(from.offset))
            return Fail(kCannotWrite);
        std::uint64_t place = words_ + extent.offset;
        for (std::uint64_t left = from.bytes; left != 0;) {
            bytes_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(left, 2 * kPieceFrames)));
            if (!streams.ReadExact(bytes_) || !Put(place, bytes_))
                return Fail(kCannotWrite);
            place += bytes_.size();
            left -= bytes_.size();
        }
        bytes_.assign(static_cast<std::size_t>(extent.bytes - from.bytes), std::byte{0});
        return Put(place, bytes_);
    }

    bool WriteFrames(const Extent& extent, const OutSample& sample)
    {
        const std::unique_ptr<FrameSource> source = OpenSample(sample);
        if (source == nullptr)
            return false;
        const SampleCoding coding = plan_.is24 ? SampleCoding::Pcm24 : SampleCoding::Pcm16;
        std::uint64_t frame = extent.offset / 2;
        for (std::uint32_t first = 0; first < source->Frames();) {
            const std::size_t frames = std::min<std::size_t>(kPieceFrames, source->Frames() - first);
            bytes_.resize(static_cast<std::size_t>(StoredBytes(coding, frames)));
            if (!source->ReadStored({coding, false, std::endian::little}, first, bytes_) || !PutFrames(frame))
                return false;
            first += static_cast<std::uint32_t>(frames);
            frame += frames;
        }
        bytes_.assign(static_cast<std::size_t>(StoredBytes(coding, kGapFrames)), std::byte{0});
        return PutFrames(frame);
    }

    bool PutFrames(std::uint64_t frame)
    {
        if (!plan_.is24)
            return Put(words_ + frame * 2, bytes_);
        const std::size_t frames = bytes_.size() / 3;
        high_.resize(frames * 2);
        low_.resize(frames);
        for (std::size_t i = 0; i < frames; ++i) {
            low_[i] = bytes_[3 * i];
            high_[2 * i] = bytes_[3 * i + 1];
            high_[2 * i + 1] = bytes_[3 * i + 2];
        }
        return Put(words_ + frame * 2, high_) && Put(lowBytes_ + frame, low_);
    }

    FileObject& file_;
    const DataPlan& plan_;
    std::uint64_t words_;    ///< place of the words in the file
    std::uint64_t lowBytes_; ///< likewise
    std::vector<std::byte> bytes_, high_, low_;
};

} // namespace

DataPlan PlanData(const std::vector<OutSample>& samples, const Streams& streams, bool is24)
{
    DataPlan plan;
    plan.is24 = is24;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const std::uint64_t stream = streams.places.empty() ? 0 : streams.places[i].bytes;
        Extent extent{plan.bytes, stream + (stream & 1), stream != 0}; // samples beside it count in words
        if (!extent.isStream)
            extent.bytes = (std::uint64_t{samples[i].wave->frames} + kGapFrames) * 2;
        plan.bytes += extent.bytes;
        plan.extents.push_back(extent);
    }
    return plan;
}

WordCopy::WordCopy(FileObject& file, const DataPlan& plan, std::uint64_t words,
                   const std::vector<OutSample>& samples)
    : names_(samples), rangeOf_(samples.size(), kNone)
{
    std::unordered_map<std::u16string, std::size_t> places;
    std::vector<std::u16string> paths;
    std::vector<RangeCopy::Range> ranges;
    for (std::size_t i = 0; i < samples.size() && !plan.is24; ++i) {
        const Extent& extent = plan.extents[i];
        std::optional<SampleSource> source = extent.isStream ? std::nullopt : WordsOf(samples[i]);
        if (!source)
            continue;
        const auto [place, isNew] = places.try_emplace(source->path, paths.size());
        if (isNew)
            paths.push_back(std::move(source->path));
        const std::uint64_t held =
            std::min<std::uint64_t>(source->frames, samples[i].wave->frames) * kWordBytes;
        rangeOf_[i] = ranges.size();
        sampleOf_.push_back(i);
        ranges.push_back({place->second, source->offset, held, words + extent.offset, extent.bytes});
    }
    if (ranges.empty())
        return;
    copy_.emplace(file, std::move(paths), std::move(ranges));
    try {
        isDone_ = false;
        thread_ = std::jthread([this] { Run(); });
    } catch (const std::system_error&) {
        isDone_ = true; // no thread to be had: all is done at the end
    }
}

WordCopy::~WordCopy()
{
    if (copy_)
        copy_->Stop();
}

/// Runs without the items, so that these can be looked at meanwhile.
void WordCopy::Run() noexcept
{
    try {
        RangeCopy::Helper helper(*copy_);
        while (helper.Step()) {
        }
    } catch (const std::bad_alloc&) {
        // What is not copied goes the usual way.
    }
    const std::lock_guard lock(mutex_);
    isDone_ = true;
    done_.notify_all();
}

bool WordCopy::GoesOn(Host& host) const
{
    if (host.IsCancelled())
        return Fail(kAborted);
    const std::size_t at = sampleOf_[copy_->At()];
    host.SetProgress(names_[at].wave->GetName(),
                     static_cast<double>(at) / static_cast<double>(names_.size()));
    return true;
}

bool WordCopy::Help(Host& host)
{
    using Clock = std::chrono::steady_clock;
    RangeCopy::Helper helper(*copy_);
    auto looked = Clock::now();
    while (helper.Step())
        if (Clock::now() - looked >= kLook) {
            looked = Clock::now();
            if (!GoesOn(host))
                return false;
        }
    return true;
}

bool WordCopy::Finish(Host& host)
{
    if (!copy_)
        return true;
    if (!GoesOn(host) || !Help(host))
        return false;
    std::unique_lock lock(mutex_);
    while (!done_.wait_for(lock, kLook, [this] { return isDone_; }))
        if (!GoesOn(host))
            return false;
    return copy_->IsWritten() || Fail(kCannotWrite);
}

bool WriteRest(FileObject& file, const DataPlan& plan, std::uint64_t words, std::uint64_t lowBytes,
               const std::vector<OutSample>& samples, const WordCopy& copied, Streams& streams, Host& host)
{
    return DataWriter(file, plan, words, lowBytes).Write(samples, copied, streams, host);
}

} // namespace vimbo::sf2
