// Reading an AIFF, AIFF-C or MAUD image into one waveform: its chunks are walked, the samples stay in the
// file until they are needed.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/aiff/aiff.h"
#include "formats/aiff/aiff_coding.h"
#include "formats/aiff/aiff_records.h"
#include "formats/aiff/aiff_units.h"
#include "formats/texts/id3.h"
#include "formats/wave/wave_chunks.h"
#include "formats/wave/wave_texts.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

namespace vimbo {
namespace {

constexpr std::size_t kMaxTextBytes = 1048576;

/// True for sizes that a recorder which streams never came back to fill in.
bool IsOpenSize(std::uint32_t claimed) noexcept
{
    return claimed < sizeof(FourCc) || claimed == 0xFFFFFFFF;
}

struct Mark {
    std::uint16_t id = 0;
    std::uint32_t frame = 0;
    std::string name;
};

/// A loop of `INST` whose two marks exist.
struct MarkedLoop {
    const Mark* begin = nullptr;
    const Mark* end = nullptr;
    LoopType type = LoopType::Off;
};

class AiffReader {
public:
    /// @param end at most the file's size
    AiffReader(Waveform& wave, FileObject& file, std::uint64_t start, std::uint64_t end)
        : wave_(wave), file_(file), start_(start), limit_(end), nameBefore_(wave.GetName())
    {
    }

    bool Run();

private:
    struct ChunkRow {
        FourCc id;
        bool (AiffReader::*read)(ChunkCursor& chunk);
    };
    static const ChunkRow kChunks[];

    bool ReadForm();
    bool ReadCommon(ChunkCursor& chunk);
    bool ReadMaudHead(ChunkCursor& chunk);
    bool ReadSound(ChunkCursor& chunk);
    bool ReadMaudData(ChunkCursor& chunk);
    bool ReadMarks(ChunkCursor& chunk);
    bool ReadInst(ChunkCursor& chunk);
    bool ReadText(ChunkCursor& chunk);
    bool ReadId3(ChunkCursor& chunk);

    void SettleDataSize(ChunkCursor& chunk);
    bool SettleFrames();
    const Mark* FindMark(std::uint16_t id) const noexcept;
    std::optional<MarkedLoop> LoopOf(const InstLoop& loop) const noexcept;
    void ApplyInst();
    void ApplyMarks();

    Waveform& wave_;
    FileObject& file_;
    std::uint64_t start_; ///< of the form
    std::uint64_t limit_; ///< no byte at or behind this place belongs to the image
    std::uint64_t end_ = 0;
    bool isOpenForm_ = false;
    bool isCompressed_ = false; ///< AIFF-C: `COMM` holds a tag
    std::u16string nameBefore_;

    std::optional<AiffCoding> coding_;
    int bits_ = 0; ///< as `COMM` gives them
    std::uint32_t claimedFrames_ = 0;
    bool hasData_ = false;
    std::vector<Mark> marks_;
    std::optional<AiffInst> inst_;
    std::vector<std::byte> id3_;
};

const AiffReader::ChunkRow AiffReader::kChunks[] = {
    {FourCc{"COMM"}, &AiffReader::ReadCommon},   {FourCc{"SSND"}, &AiffReader::ReadSound},
    {FourCc{"MHDR"}, &AiffReader::ReadMaudHead}, {FourCc{"MDAT"}, &AiffReader::ReadMaudData},
    {FourCc{"MARK"}, &AiffReader::ReadMarks},    {FourCc{"INST"}, &AiffReader::ReadInst},
    {FourCc{"NAME"}, &AiffReader::ReadText},     {FourCc{"AUTH"}, &AiffReader::ReadText},
    {FourCc{"(c) "}, &AiffReader::ReadText},     {FourCc{"ANNO"}, &AiffReader::ReadText},
    {FourCc{"ID3 "}, &AiffReader::ReadId3},      {FourCc{"id3 "}, &AiffReader::ReadId3},
};

bool AiffReader::Run()
{
    if (!ReadForm())
        return false;
    ChunkCursor chunk(file_, start_ + sizeof(IffFormHead), end_, std::endian::big);
    while (chunk.Next()) {
        const auto* row = std::ranges::find(kChunks, chunk.Id(), &ChunkRow::id);
        if (row != std::end(kChunks) && !(this->*row->read)(chunk))
            return false;
    }
    if (!hasData_)
        return Fail(u"No SSND data");
    if (!SettleFrames())
        return false;
    ApplyInst();
    ApplyMarks();
    ReadId3Texts(id3_, nameBefore_, wave_);
    return true;
}

bool AiffReader::ReadForm()
{
    IffFormHead form;
    const bool isRead = start_ <= limit_ && limit_ - start_ >= sizeof(form) && file_.Seek(start_) &&
                        file_.Read(form) && form.chunk.id == FourCc{"FORM"};
    if (!isRead)
        return Fail(u"No FORM starting IFF file");
    isCompressed_ = form.type == FourCc{"AIFC"};
    if (!isCompressed_ && form.type != FourCc{"AIFF"} && form.type != FourCc{"MAUD"})
        return Fail(u"Not an AIFF, AIFC, MAUD type IFF-FORM");
    const std::uint32_t claimed = form.chunk.size.Get();
    const std::uint64_t room = limit_ - start_ - sizeof(IffChunkHead);
    isOpenForm_ = IsOpenSize(claimed);
    end_ = isOpenForm_ || claimed >= room ? limit_ : start_ + sizeof(IffChunkHead) + claimed;
    return true;
}

bool AiffReader::ReadCommon(ChunkCursor& chunk)
{
    CommBody common;
    if (coding_ || !chunk.Read(common))
        return true;
    if (common.channels.Get() > 2)
        return Fail(u"Can't handle > 2 channel files");
    if (common.channels.Get() < 1)
        return Fail(u"No channels");
    FourCc tag{"NONE"};
    if (isCompressed_ && !chunk.Read(tag))
        tag = FourCc{"NONE"};
    bits_ = common.bits.Get();
    AiffCoding coding;
    if (!SettleAiffCoding(tag, bits_, coding))
        return false;
    coding_ = coding;
    claimedFrames_ = common.frames.Get();
    wave_.channels = static_cast<std::uint8_t>(common.channels.Get());
    wave_.rateHz = RateFromExtended(common.rateHz);
    return true;
}

bool AiffReader::ReadMaudHead(ChunkCursor& chunk)
{
    MhdrBody head;
    if (coding_ || !chunk.Read(head))
        return true;
    AiffCoding coding;
    if (!SettleMaudCoding(head.compression.Get(), head.bits.Get(), coding))
        return false;
    coding_ = coding;
    claimedFrames_ = head.frames.Get();
    wave_.channels = head.channelLayout.Get() == 1 ? 2 : 1;
    const std::uint64_t divisor = head.rateDenominator.Get();
    if (divisor != 0)
        wave_.rateHz = static_cast<std::uint32_t>((head.rateNumerator.Get() + divisor / 2) / divisor);
    return true;
}

/// Samples that run past the form prove its size wrong: some writers forget to count a chunk.
void AiffReader::SettleDataSize(ChunkCursor& chunk)
{
    std::uint64_t bytes = chunk.ClaimedSize();
    if (isOpenForm_ && bytes == 0)
        bytes = limit_;
    if (bytes <= chunk.Size())
        return;
    end_ = limit_;
    chunk.SetEnd(end_);
    chunk.SetSize(bytes);
}

bool AiffReader::ReadSound(ChunkCursor& chunk)
{
    if (hasData_)
        return true;
    SettleDataSize(chunk);
    SsndHead head;
    if (!chunk.Read(head))
        return true;
    chunk.Skip(head.offset.Get());
    wave_.sourceOffset = chunk.Start() + chunk.Size() - chunk.Left();
    wave_.sourceBytes = chunk.Left();
    hasData_ = true;
    return true;
}

bool AiffReader::ReadMaudData(ChunkCursor& chunk)
{
    if (hasData_)
        return true;
    SettleDataSize(chunk);
    wave_.sourceOffset = chunk.Start();
    wave_.sourceBytes = chunk.Size();
    hasData_ = true;
    return true;
}

bool AiffReader::ReadMarks(ChunkCursor& chunk)
{
    U16be count;
    MarkHead head;
    std::uint8_t length = 0;
    if (!marks_.empty() || !chunk.Read(count))
        return true;
    for (unsigned i = 0; i < count.Get() && chunk.Read(head) && chunk.Read(length); ++i) {
        Mark& mark = marks_.emplace_back();
        mark.id = head.id.Get();
        mark.frame = head.frame.Get();
        mark.name = NarrowTextOf(chunk.ReadRest(length));
        chunk.Skip(length % 2 == 0 ? 1 : 0); // with its length byte, the name takes an even number of bytes
    }
    return true;
}

bool AiffReader::ReadInst(ChunkCursor& chunk)
{
    AiffInst inst;
    if (!inst_ && chunk.Read(inst))
        inst_ = inst;
    return true;
}

/// Of several annotations each is a line; of the other texts the first holds.
bool AiffReader::ReadText(ChunkCursor& chunk)
{
    const std::string text = NarrowTextOf(chunk.ReadRest(kMaxTextBytes));
    if (chunk.Id() == FourCc{"NAME"} && wave_.GetName() == nameBefore_ && !text.empty()) {
        wave_.SetNameNarrow(text);
    } else if (chunk.Id() == FourCc{"AUTH"} && !wave_.HasText(kTextArtist)) {
        wave_.SetTextNarrow(kTextArtist, text);
    } else if (chunk.Id() == FourCc{"(c) "} && !wave_.HasText(kTextCopyright)) {
        wave_.SetTextNarrow(kTextCopyright, text);
    } else if (chunk.Id() == FourCc{"ANNO"}) {
        std::u16string comments(wave_.GetText(kTextComments));
        if (comments.size() < kMaxTextBytes)
            wave_.SetText(kTextComments,
                          comments.append(comments.empty() ? u"" : u"\n").append(NarrowToWide(text)));
    }
    return true;
}

/// Kept for the end: the form's own texts come first.
bool AiffReader::ReadId3(ChunkCursor& chunk)
{
    if (id3_.empty())
        id3_ = chunk.ReadRest(kId3BytesRead);
    return true;
}

bool AiffReader::SettleFrames()
{
    if (!coding_)
        return Fail(u"Unknown sample format or compression");
    if (isOpenForm_ && claimedFrames_ == 0)
        claimedFrames_ = 0xFFFFFFFF;
    if (!SettleSpeech(wave_.channels, bits_, claimedFrames_, wave_.sourceBytes, *coding_))
        return false;
    wave_.frames = AiffFrameCount(*coding_, wave_.channels, claimedFrames_, wave_.sourceBytes);
    DescribeAiffSource(*coding_, wave_);
    return true;
}

const Mark* AiffReader::FindMark(std::uint16_t id) const noexcept
{
    const auto mark = std::ranges::find(marks_, id, &Mark::id);
    return mark != marks_.end() ? &*mark : nullptr;
}

std::optional<MarkedLoop> AiffReader::LoopOf(const InstLoop& loop) const noexcept
{
    const MarkedLoop marked{FindMark(loop.beginMark.Get()), FindMark(loop.endMark.Get()),
                            LoopTypeFromMode(loop.mode.Get())};
    if (marked.type == LoopType::Off || marked.begin == nullptr || marked.end == nullptr ||
        marked.begin->frame >= marked.end->frame)
        return std::nullopt;
    return marked;
}

void AiffReader::ApplyInst()
{
    if (!inst_)
        return;
    if (inst_->baseNote >= 0)
        wave_.rootKey = static_cast<std::uint8_t>(inst_->baseNote);
    wave_.fineTune = std::clamp<std::int8_t>(inst_->detune, -100, 100);
    wave_.volume = std::clamp(static_cast<float>(inst_->gainDb.Get()), -96.0f, 96.0f);
}

/// The loops, and markers of all marks that are no ends of loops.
void AiffReader::ApplyMarks()
{
    std::array<std::optional<MarkedLoop>, 2> loops;
    if (inst_)
        loops = {LoopOf(inst_->sustain), LoopOf(inst_->release)};
    if (const auto& main = loops[0] ? loops[0] : loops[1]) {
        wave_.loop.type = main->type;
        wave_.loop.start = main->begin->frame;
        wave_.loop.end = main->end->frame;
    }
    if (loops[0] && loops[1])
        wave_.markers.push_back({.isRange = true,
                                 .position = loops[1]->begin->frame,
                                 .end = loops[1]->end->frame,
                                 .name = std::u16string(kAiffReleaseLoop)});
    const auto isLoopEnd = [&loops](const Mark& mark) {
        return std::ranges::any_of(loops, [&mark](const auto& loop) {
            return loop && (loop->begin == &mark || loop->end == &mark);
        });
    };
    for (const Mark& mark : marks_) {
        if (wave_.markers.size() < kMaxMarkers && !isLoopEnd(mark))
            wave_.markers.push_back(
                {.isRange = false, .position = mark.frame, .end = 0, .name = NarrowToWide(mark.name)});
    }
}

int DetectForm(std::span<const std::byte> head, const FourCc& type) noexcept
{
    IffFormHead form;
    const bool isForm = ByteReader(head).Read(form) && form.chunk.id == FourCc{"FORM"} && form.type == type;
    return isForm ? 6 : 0;
}

} // namespace

bool ReadAiffRange(Waveform& wave, FileObject& file, std::uint64_t start, std::uint64_t length)
{
    const std::uint64_t size = file.Size();
    const std::uint64_t end = start <= size ? start + std::min(length, size - start) : size;
    return AiffReader(wave, file, start, end).Run();
}

bool ReadAiff(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    auto& wave = collection.Create<Waveform>(collection.GetName());
    if (ReadAiffRange(wave, file, 0, file.Size()))
        return true;
    collection.Destroy(wave.Handle());
    return false;
}

int DetectAiff(std::span<const std::byte> head, std::uint32_t /*variant*/,
               std::uint64_t /*fileSize*/) noexcept
{
    return DetectForm(head, FourCc{"AIFF"});
}

int DetectAifc(std::span<const std::byte> head, std::uint32_t /*variant*/,
               std::uint64_t /*fileSize*/) noexcept
{
    return DetectForm(head, FourCc{"AIFC"});
}

int DetectMaud(std::span<const std::byte> head, std::uint32_t /*variant*/,
               std::uint64_t /*fileSize*/) noexcept
{
    return DetectForm(head, FourCc{"MAUD"});
}

} // namespace vimbo
