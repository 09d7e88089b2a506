#include "formats/soundfont/soundfont_data.h"

#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/collection.h"
#include "model/sample_source.h"

#include <algorithm>
#include <bit>

namespace vimbo::sf2 {
namespace {

constexpr std::size_t kPieceFrames = 65536;
/// Silence behind each sample, for players that read ahead. SoundFont 2.04, section 6.1.
constexpr std::uint32_t kGapFrames = 46;
constexpr std::size_t kWordBytes = 2;

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

/// Writes the samples to their places.
class DataWriter {
public:
    DataWriter(FileObject& file, const DataPlan& plan, std::uint64_t words, std::uint64_t lowBytes) noexcept
        : file_(file), plan_(plan), words_(words), lowBytes_(lowBytes)
    {
    }

    bool Write(const std::vector<OutSample>& samples, Streams& streams, Host& host)
    {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (host.IsCancelled())
                return Fail(u"Save aborted!");
            host.SetProgress(samples[i].wave->GetName(),
                             static_cast<double>(i) / static_cast<double>(samples.size()));
            const Extent& extent = plan_.extents[i];
            if (extent.isStream ? !CopyStream(extent, streams.places[i], streams.file.File())
                                : !CopyWords(extent, samples[i]) && !WriteFrames(extent, samples[i]))
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

    bool OpenSource(std::u16string_view path)
    {
        if (source_.IsOpen() && source_.Path() == path)
            return true;
        if (!source_.Open(path, FileMode::Read))
            return false;
        sourceBytes_ = source_.Size();
        return true;
    }

    /// The words as they lie in a file, which is quick. Shorter ones are followed by silence, as all samples
    /// are. @return false if the sample has to go the usual way; what is wrong with the file is told there
    bool CopyWords(const Extent& extent, const OutSample& sample)
    {
        const std::optional<SampleSource> source = plan_.is24 ? std::nullopt : WordsOf(sample);
        if (!source || !OpenSource(source->path))
            return false;
        const std::uint64_t held = std::min<std::uint64_t>(source->frames, sample.wave->frames) * kWordBytes;
        if (source->offset > sourceBytes_ || held > sourceBytes_ - source->offset ||
            !source_.Seek(source->offset))
            return false;
        bytes_.resize(kPieceFrames * kWordBytes);
        for (std::uint64_t done = 0; done < extent.bytes;) {
            const auto piece = std::span(bytes_).first(
                static_cast<std::size_t>(std::min<std::uint64_t>(extent.bytes - done, bytes_.size())));
            const auto words = piece.first(
                static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), held - std::min(held, done))));
            if (!source_.ReadExact(words))
                return false;
            std::ranges::fill(piece.subspan(words.size()), std::byte{0});
            if (!Put(words_ + extent.offset + done, piece))
                return false;
            done += piece.size();
        }
        return true;
    }

    bool WriteFrames(const Extent& extent, const OutSample& sample)
    {
        const std::unique_ptr<FrameSource> source = OpenSample(sample);
        if (source == nullptr)
            return false;
        std::uint64_t frame = extent.offset / 2;
        for (std::uint32_t first = 0; first < source->Frames();) {
            samples_.resize(std::min<std::size_t>(kPieceFrames, source->Frames() - first));
            if (!source->Read(first, samples_) || !PutFrames(frame))
                return false;
            first += static_cast<std::uint32_t>(samples_.size());
            frame += samples_.size();
        }
        samples_.assign(kGapFrames, 0.0f);
        return PutFrames(frame);
    }

    bool PutFrames(std::uint64_t frame)
    {
        const SampleCoding coding = plan_.is24 ? SampleCoding::Pcm24 : SampleCoding::Pcm16;
        bytes_.resize(static_cast<std::size_t>(StoredBytes(coding, samples_.size())));
        DeltaState none;
        EncodeSamples({coding, false, std::endian::little}, samples_, bytes_, none);
        if (!plan_.is24)
            return Put(words_ + frame * 2, bytes_);
        high_.resize(samples_.size() * 2);
        low_.resize(samples_.size());
        for (std::size_t i = 0; i < samples_.size(); ++i) {
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
    FileObject source_;      ///< where words were copied from last
    std::uint64_t sourceBytes_ = 0;
    std::vector<float> samples_;
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

bool WriteData(FileObject& file, const DataPlan& plan, std::uint64_t words, std::uint64_t lowBytes,
               const std::vector<OutSample>& samples, Streams& streams, Host& host)
{
    return DataWriter(file, plan, words, lowBytes).Write(samples, streams, host);
}

} // namespace vimbo::sf2
