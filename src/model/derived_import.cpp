// Stereo from two sources, mono from one side of a stereo source: read on demand, joined and split without
// reading.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/collection.h"
#include "model/record_text.h"
#include "model/sample_source.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

namespace vimbo {
namespace {

constexpr std::uint64_t kPairImportId = 5;
constexpr std::uint64_t kChannelImportId = 6;
constexpr std::size_t kPieceFrames = 8192;
constexpr std::u16string_view kBadSource = u"The waveform's source is not what it was made from";

struct SourceRecord {
    U64le procedureId; ///< 0: none
    U32le sourceWord;
    U64le offset, secondOffset, formatOffset, bytes;
    U32le frames, rateHz;
    std::uint8_t channels, bits, tag, channel;
    U32le pathUnits; ///< UTF-16 units that follow
};
static_assert(DiskRecord<SourceRecord> && sizeof(SourceRecord) == 60);

/// True if the part gives exactly one channel.
bool GivesOneChannel(const SampleSource& part) noexcept
{
    return part.channel == SampleSource::kAllChannels ? part.channels == 1
                                                      : part.channels == 2 && part.channel < 2;
}

bool IsSound(const DerivedSource& derived, const ImportProcedure& procedure) noexcept
{
    return derived.parts.size() == (&procedure == &kPairImport ? 2u : 1u) &&
           std::ranges::all_of(derived.parts, GivesOneChannel);
}

/// Makes the waveform read `source` as it stands; name, texts, tuning and loop stay.
void PointAt(Waveform& wave, const SampleSource& source)
{
    wave.FreeSamples();
    wave.derived = nullptr;
    wave.importProc = source.importProc;
    wave.sourceWord = source.sourceWord;
    wave.sourceOffset = source.offset;
    wave.secondOffset = source.secondOffset;
    wave.formatOffset = source.formatOffset;
    wave.sourceBytes = source.bytes;
    wave.sourceTag = source.tag;
    wave.frames = source.frames;
    wave.channels = source.channels;
    wave.bits = source.bits;
    wave.SetText(kTextSourcePath, source.path);
}

/// The widest part: its encoding stands for all.
const SampleSource& Widest(const DerivedSource& derived) noexcept
{
    return *std::ranges::max_element(derived.parts, {}, &SampleSource::bits);
}

std::uint32_t LongestPart(const DerivedSource& derived) noexcept
{
    return std::ranges::max_element(derived.parts, {}, &SampleSource::frames)->frames;
}

/// Makes the waveform read parts. Its own offsets mean nothing then and are cleared.
void DeriveFrom(Waveform& wave, DerivedSource derived)
{
    const SampleSource& widest = Widest(derived);
    const bool isPair = derived.parts.size() == 2;
    SampleSource described;
    described.importProc = isPair ? &kPairImport : &kChannelImport;
    described.sourceWord = widest.sourceWord & ~kSourceSequentialStereo;
    described.frames = LongestPart(derived);
    described.channels = isPair ? 2 : 1;
    described.bits = widest.bits;
    described.path = derived.parts.front().path;
    PointAt(wave, described);
    wave.derived = std::make_shared<const DerivedSource>(std::move(derived));
}

void PointAtPart(Waveform& wave, const SampleSource& part)
{
    if (part.channel == SampleSource::kAllChannels)
        PointAt(wave, part);
    else
        DeriveFrom(wave, {{part}});
}

/// One channel of one part, silent behind its end. Keeps a waveform of its own to read through.
class PartReader {
public:
    /// False with the Last error text if the source cannot be opened.
    bool Open(const SampleSource& part)
    {
        items_ = std::make_unique<Collection>();
        Waveform& wave = items_->Create<Waveform>(u"part");
        SampleSource whole = part;
        whole.channel = SampleSource::kAllChannels;
        PointAt(wave, whole);
        wave.rateHz = part.rateHz;
        source_ = wave.OpenFrames();
        if (source_ == nullptr)
            return false;
        frames_ = std::min(part.frames, source_->Frames());
        channel_ = part.channel == SampleSource::kAllChannels ? 0 : part.channel;
        if (source_->Channels() != part.channels)
            return Fail(kBadSource);
        if (source_->Channels() == 2)
            stereo_.resize(2 * kPieceFrames);
        return true;
    }

    /// At most kPieceFrames frames.
    bool Read(std::uint32_t first, std::span<float> out)
    {
        const std::size_t held = first < frames_ ? std::min<std::size_t>(out.size(), frames_ - first) : 0;
        std::ranges::fill(out.subspan(held), 0.0f);
        if (held == 0)
            return true;
        if (stereo_.empty())
            return source_->Read(first, out.first(held));
        const auto stereo = std::span(stereo_).first(2 * held);
        if (!source_->Read(first, stereo))
            return false;
        for (std::size_t i = 0; i < held; ++i)
            out[i] = stereo[2 * i + channel_];
        return true;
    }

    bool IsMono() const noexcept { return stereo_.empty(); }
    /// The same as stored samples whose silence is zero; for mono sources.
    bool ReadStored(const SampleLayout& layout, std::uint32_t first, std::span<std::byte> out)
    {
        const auto sampleBytes = static_cast<std::size_t>(StoredBytes(layout.coding, 1));
        const std::size_t left = first < frames_ ? frames_ - first : 0;
        const std::size_t held = std::min(out.size() / sampleBytes, left) * sampleBytes;
        std::ranges::fill(out.subspan(held), std::byte{0});
        return held == 0 || source_->ReadStored(layout, first, out.first(held));
    }

private:
    std::unique_ptr<Collection> items_;
    std::unique_ptr<FrameSource> source_; ///< may read through the waveform in items_
    std::vector<float> stereo_;
    std::uint32_t frames_ = 0;
    std::size_t channel_ = 0;
};

/// Samples of 16 bits, whatever their byte order.
void InterleaveWords(std::span<const std::uint16_t> left, std::span<const std::uint16_t> right,
                     std::span<std::uint16_t> out) noexcept
{
    assert(left.size() == right.size() && out.size() == 2 * left.size());
    for (std::size_t i = 0; i < left.size(); ++i) {
        out[2 * i] = left[i];
        out[2 * i + 1] = right[i];
    }
}

class DerivedFrames final : public FrameSource {
public:
    explicit DerivedFrames(const Waveform& wave) : FrameSource(wave.frames, wave.channels) {}

    bool Open(const DerivedSource& derived)
    {
        parts_.resize(derived.parts.size());
        for (std::size_t i = 0; i < parts_.size(); ++i)
            if (!parts_[i].Open(derived.parts[i]))
                return false;
        if (parts_.size() == 2)
            planes_.resize(2 * kPieceFrames);
        return true;
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        assert(out.size() % Channels() == 0 && out.size() / Channels() <= Frames() - first);
        while (!out.empty()) {
            const std::size_t frames = std::min(kPieceFrames, out.size() / Channels());
            if (!ReadPiece(first, out.first(frames * Channels())))
                return false;
            out = out.subspan(frames * Channels());
            first += static_cast<std::uint32_t>(frames);
        }
        return true;
    }

    bool ReadStored(const SampleLayout& layout, std::uint32_t first, std::span<std::byte> out) override
    {
        const bool areWords = layout.coding == SampleCoding::Pcm16 && !layout.isUnsigned;
        if (!areWords || parts_.size() != 2 || !std::ranges::all_of(parts_, &PartReader::IsMono))
            return FrameSource::ReadStored(layout, first, out);
        words_.resize(4 * kPieceFrames);
        while (!out.empty()) {
            const std::size_t frames = std::min(kPieceFrames, out.size() / kPairBytes);
            const auto left = std::span(words_).first(frames);
            const auto right = std::span(words_).subspan(kPieceFrames, frames);
            const auto both = std::span(words_).subspan(2 * kPieceFrames, 2 * frames);
            if (!parts_[0].ReadStored(layout, first, std::as_writable_bytes(left)) ||
                !parts_[1].ReadStored(layout, first, std::as_writable_bytes(right)))
                return false;
            InterleaveWords(left, right, both);
            std::ranges::copy(std::as_bytes(both), out.begin());
            out = out.subspan(both.size_bytes());
            first += static_cast<std::uint32_t>(frames);
        }
        return true;
    }

private:
    static constexpr std::size_t kPairBytes = 2 * sizeof(std::uint16_t);

    bool ReadPiece(std::uint32_t first, std::span<float> out)
    {
        if (parts_.size() == 1)
            return parts_[0].Read(first, out);
        const auto left = std::span(planes_).first(out.size() / 2);
        const auto right = std::span(planes_).subspan(kPieceFrames, out.size() / 2);
        if (!parts_[0].Read(first, left) || !parts_[1].Read(first, right))
            return false;
        Interleave(left, right, out);
        return true;
    }

    std::vector<PartReader> parts_;
    std::vector<float> planes_;
    std::vector<std::uint16_t> words_; ///< left, right, and both
};

std::unique_ptr<FrameSource> StreamDerived(const Waveform& wave, std::unique_ptr<FileObject>)
{
    const bool isSound =
        wave.derived != nullptr && wave.importProc != nullptr && IsSound(*wave.derived, *wave.importProc) &&
        wave.channels == wave.derived->parts.size() && wave.frames <= LongestPart(*wave.derived);
    if (wave.frames == 0 || !isSound) {
        Fail(wave.frames == 0 ? u"Zero length" : kBadSource);
        return nullptr;
    }
    auto frames = std::make_unique<DerivedFrames>(wave);
    return frames->Open(*wave.derived) ? std::move(frames) : nullptr;
}

bool LoadDerived(Waveform& wave, FileObject&)
{
    wave.FreeSamples();
    const std::unique_ptr<FrameSource> source = StreamDerived(wave, nullptr);
    return source != nullptr && LoadFrames(wave, *source);
}

/// True if the two are the left and the right channel of one source.
bool AreBothSides(const SampleSource& left, const SampleSource& right)
{
    SampleSource other = right;
    other.channel = 0;
    return left.channel == 0 && right.channel == 1 && left == other;
}

/// Joins in memory, for samples that have no source to be read from again.
bool JoinLoaded(Waveform& left, Waveform& right)
{
    const std::uint8_t rootKey = left.rootKey;
    const bool hadSamples = right.HasBlock();
    const bool joined = left.ToStereo(StereoMode::LeftAndSecond, &right);
    if (!hadSamples && right.importProc != nullptr)
        right.FreeSamples();
    if (joined)
        left.rootKey = rootKey;
    return joined;
}

void JoinSources(Waveform& left, SampleSource leftSource, SampleSource rightSource)
{
    if (AreBothSides(leftSource, rightSource)) {
        leftSource.channel = SampleSource::kAllChannels;
        PointAt(left, leftSource);
    } else {
        DeriveFrom(left, {{std::move(leftSource), std::move(rightSource)}});
    }
}

} // namespace

const ImportProcedure kPairImport = {kPairImportId, LoadDerived, StreamDerived};
const ImportProcedure kChannelImport = {kChannelImportId, LoadDerived, StreamDerived};

bool DescribeSource(const Waveform& wave, SampleSource& out)
{
    if (wave.importProc == nullptr || wave.channels == 0 || wave.channels > kMaxChannels)
        return false;
    if (IsDerivedImport(wave.importProc)) {
        if (wave.derived == nullptr || wave.derived->parts.size() != 1)
            return false;
        out = wave.derived->parts.front();
        return true;
    }
    out = {};
    out.importProc = wave.importProc;
    out.sourceWord = wave.sourceWord;
    out.offset = wave.sourceOffset;
    out.secondOffset = wave.secondOffset;
    out.formatOffset = wave.formatOffset;
    out.bytes = wave.sourceBytes;
    out.frames = wave.frames;
    out.rateHz = wave.rateHz;
    out.channels = wave.channels;
    out.bits = wave.bits;
    out.tag = wave.sourceTag;
    const std::u16string_view path = wave.GetSourcePath();
    out.path = !path.empty() ? path : wave.Owner().GetText(kTextSourcePath);
    return true;
}

bool HasSameSource(const Waveform& a, const Waveform& b)
{
    if (a.importProc != b.importProc || a.frames != b.frames || a.channels != b.channels)
        return false;
    if (a.importProc == &kPairImport)
        return a.derived != nullptr && b.derived != nullptr && *a.derived == *b.derived;
    SampleSource one, other;
    return DescribeSource(a, one) && DescribeSource(b, other) && one == other;
}

std::vector<std::u16string> SourceFiles(const Waveform& wave)
{
    std::vector<std::u16string> files;
    SampleSource source;
    if (IsDerivedImport(wave.importProc) && wave.derived != nullptr) {
        for (const SampleSource& part : wave.derived->parts)
            files.push_back(part.path);
    } else if (DescribeSource(wave, source)) {
        files.push_back(std::move(source.path));
    }
    return files;
}

bool JoinStereo(Waveform& left, Waveform& right)
{
    if (left.channels != 1 || right.channels != 1)
        return Fail(u"Only mono waveforms can be joined");
    if (left.rateHz != right.rateHz)
        return Fail(u"Waveforms with different sample rates can't be joined");
    const SaveFormat saveFormat = right.bits > left.bits ? right.saveFormat : left.saveFormat;
    SampleSource leftSource, rightSource;
    if (DescribeSource(left, leftSource) && DescribeSource(right, rightSource))
        JoinSources(left, std::move(leftSource), std::move(rightSource));
    else if (!JoinLoaded(left, right))
        return false;
    left.saveFormat = saveFormat;
    return true;
}

Waveform* SplitStereo(Waveform& wave)
{
    if (wave.channels != 2) {
        Fail(u"The waveform is not stereo");
        return nullptr;
    }
    std::array<SampleSource, 2> sides;
    if (wave.importProc == &kPairImport && wave.derived != nullptr && wave.derived->parts.size() == 2) {
        sides = {wave.derived->parts[0], wave.derived->parts[1]};
    } else if (DescribeSource(wave, sides[0]) && sides[0].channels == 2) {
        sides[1] = sides[0];
        sides[0].channel = 0;
        sides[1].channel = 1;
    } else {
        Waveform* right = nullptr;
        return wave.ToMono(MonoMode::Split, &right) ? right : nullptr;
    }
    wave.FreeSamples();
    const std::u16string name(WithoutStereoSuffix(wave.GetName()));
    Waveform& right = wave.Owner().Clone(wave);
    PointAtPart(wave, sides[0]);
    PointAtPart(right, sides[1]);
    wave.SetName(name + u" -L");
    right.SetName(name + u" -R");
    wave.Validate();
    right.Validate();
    return &right;
}

void WriteDerived(ByteWriter& out, const DerivedSource& derived)
{
    out.Write(U16le(static_cast<std::uint16_t>(derived.parts.size())));
    for (const SampleSource& part : derived.parts) {
        SourceRecord record{};
        record.procedureId = part.importProc != nullptr ? part.importProc->id : 0;
        record.sourceWord = part.sourceWord;
        record.offset = part.offset;
        record.secondOffset = part.secondOffset;
        record.formatOffset = part.formatOffset;
        record.bytes = part.bytes;
        record.frames = part.frames;
        record.rateHz = part.rateHz;
        record.channels = part.channels;
        record.bits = part.bits;
        record.tag = part.tag;
        record.channel = part.channel;
        record.pathUnits = static_cast<std::uint32_t>(part.path.size());
        out.Write(record);
        WriteUnits(out, part.path);
    }
}

std::shared_ptr<const DerivedSource> ReadDerived(ByteReader& in, const ImportProcedure& procedure,
                                                 const Collection& owner)
{
    DerivedSource derived;
    U16le count;
    bool isGood = in.Read(count);
    for (unsigned i = 0; isGood && i < count.Get(); ++i) {
        SourceRecord record;
        std::span<const std::byte> path;
        if (!in.Read(record) || !in.Take(2 * std::uint64_t{record.pathUnits.Get()}, path)) {
            isGood = false;
            break;
        }
        const ImportProcedure* const read = owner.FindImportProcedure(record.procedureId.Get());
        derived.parts.push_back({IsDerivedImport(read) ? nullptr : read, record.sourceWord.Get(),
                                 record.offset.Get(), record.secondOffset.Get(), record.formatOffset.Get(),
                                 record.bytes.Get(), record.frames.Get(), record.rateHz.Get(),
                                 record.channels, record.bits, record.tag, record.channel, ReadUnits(path)});
    }
    if (isGood && IsSound(derived, procedure))
        return std::make_shared<const DerivedSource>(std::move(derived));
    Fail(kDamagedRecord);
    return nullptr;
}

} // namespace vimbo
