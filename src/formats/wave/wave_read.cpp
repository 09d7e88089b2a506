// Reading a WAV image into one waveform: its chunks are walked, the samples stay in the file until they are
// needed.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "formats/texts/id3.h"
#include "formats/wave/wave.h"
#include "formats/wave/wave_chunks.h"
#include "formats/wave/wave_format.h"
#include "formats/wave/wave_texts.h"
#include "formats/wave/wave_units.h"

#include <algorithm>
#include <optional>

namespace vimbo {
namespace {

constexpr std::uint32_t kAkaiManufacturer = 0x47;
constexpr std::uint32_t kAkaiProduct = 94;

/// True for a form's size field that was never filled in, as recorders that stream leave it.
bool IsOpenSize(std::uint32_t claimed) noexcept
{
    constexpr std::uint32_t kSmallest = 12; // the form type and one empty chunk
    return claimed < kSmallest || claimed == kSizeInDs64;
}

class WaveReader {
public:
    /// @param end at most the file's size
    WaveReader(Waveform& wave, FileObject& file, std::uint64_t start, std::uint64_t end)
        : wave_(wave), file_(file), start_(start), limit_(end), nameBefore_(wave.GetName())
    {
    }

    bool Run();

private:
    struct ChunkRow {
        FourCc id;
        std::uint64_t minBytes;
        bool (WaveReader::*read)(ChunkCursor& chunk);
    };
    static const ChunkRow kChunks[];

    bool ReadForm();
    std::uint64_t FormEnd(std::uint32_t claimed) const noexcept;
    void SettleDataSize(ChunkCursor& chunk);
    bool ReadFormat(ChunkCursor& chunk);
    bool ReadFact(ChunkCursor& chunk);
    bool ReadData(ChunkCursor& chunk);
    bool ReadSmpl(ChunkCursor& chunk);
    bool ReadInst(ChunkCursor& chunk);
    bool ReadWsmp(ChunkCursor& chunk);
    bool ReadCue(ChunkCursor& chunk);
    bool ReadList(ChunkCursor& chunk);
    bool ReadMesa(ChunkCursor& chunk);
    bool ReadAtem(ChunkCursor& chunk);
    bool ReadDs64(ChunkCursor& chunk);
    bool ReadId3(ChunkCursor& chunk);
    void ReadCreamware(ChunkCursor& chunk, bool hasLoop);
    void ReadAkai(ChunkCursor& chunk);
    void ApplyAkai(const AkaiData& akai);
    void Trim();
    bool Finish();

    Waveform& wave_;
    FileObject& file_;
    std::uint64_t start_; ///< of the form
    std::uint64_t limit_; ///< no byte at or behind this place belongs to the image
    std::uint64_t end_ = 0;
    std::endian order_ = std::endian::little;
    bool isRf64_ = false;
    std::u16string nameBefore_;
    std::uint32_t claimedForm_ = 0; ///< the form's size field

    std::optional<WaveFormat> format_;
    std::optional<Ds64> ds64_;
    bool hasData_ = false;
    bool hasSmpl_ = false;
    std::uint32_t factFrames_ = 0;
    std::uint32_t trimStart_ = 0; ///< frames [trimStart_, trimEnd_) are the sample; both 0: all of them
    std::uint32_t trimEnd_ = 0;
    CueTexts cues_;
    std::vector<std::byte> id3_;
};

const WaveReader::ChunkRow WaveReader::kChunks[] = {
    {FourCc{"fmt "}, kFmtBytesMin, &WaveReader::ReadFormat},
    {FourCc{"fact"}, 4, &WaveReader::ReadFact},
    {FourCc{"data"}, 0, &WaveReader::ReadData},
    {FourCc{"smpl"}, sizeof(SmplHead), &WaveReader::ReadSmpl},
    {FourCc{"inst"}, sizeof(InstBody), &WaveReader::ReadInst},
    {FourCc{"wsmp"}, sizeof(WsmpHead), &WaveReader::ReadWsmp},
    {FourCc{"cue "}, 4, &WaveReader::ReadCue},
    {FourCc{"LIST"}, 4, &WaveReader::ReadList},
    {FourCc{"mesa"}, sizeof(MesaHead), &WaveReader::ReadMesa},
    {FourCc{"atem"}, 0, &WaveReader::ReadAtem},
    {FourCc{"ds64"}, sizeof(Ds64), &WaveReader::ReadDs64},
    {FourCc{"ID3 "}, kId3HeadBytes, &WaveReader::ReadId3},
    {FourCc{"id3 "}, kId3HeadBytes, &WaveReader::ReadId3},
};

bool WaveReader::Run()
{
    if (!ReadForm())
        return Fail(u"Not a RIFF-WAVE file");
    ChunkCursor chunk(file_, start_ + sizeof(RiffFormHead), end_, order_);
    while (chunk.Next()) {
        const auto* row = std::ranges::find(kChunks, chunk.Id(), &ChunkRow::id);
        if (row == std::end(kChunks) || chunk.Size() < row->minBytes)
            continue;
        if (!(this->*row->read)(chunk))
            return false;
    }
    return Finish();
}

bool WaveReader::ReadForm()
{
    RiffFormHead form;
    if (start_ > limit_ || limit_ - start_ < sizeof(form) || !file_.Seek(start_) || !file_.Read(form))
        return false;
    const FourCc& id = form.chunk.id;
    isRf64_ = id == FourCc{"RF64"} || id == FourCc{"BW64"};
    if (id == FourCc{"RIFX"}) {
        order_ = std::endian::big;
        ReverseFields(std::as_writable_bytes(std::span(&form.chunk.size, 1)), kWordField);
    }
    claimedForm_ = form.chunk.size.Get();
    end_ = FormEnd(claimedForm_);
    if (id == FourCc{"LIST"})
        return form.type == FourCc{"wave"};
    const bool isRiff = id == FourCc{"RIFF"} || id == FourCc{"SDSS"} || order_ == std::endian::big || isRf64_;
    return isRiff && form.type == FourCc{"WAVE"};
}

std::uint64_t WaveReader::FormEnd(std::uint32_t claimed) const noexcept
{
    const std::uint64_t room = limit_ - start_ - sizeof(RiffChunkHead);
    return IsOpenSize(claimed) || claimed >= room ? limit_ : start_ + sizeof(RiffChunkHead) + claimed;
}

bool WaveReader::ReadFormat(ChunkCursor& chunk)
{
    if (format_)
        return true;
    wave_.formatOffset = chunk.Start();
    const std::vector<std::byte> body = chunk.ReadRest(kFmtBytesRead);
    if (body.empty())
        return true;
    WaveFormat format;
    if (!ParseWaveFormat(body, order_, format))
        return false;
    format_ = format;
    DescribeWaveSource(format, order_, wave_);
    return true;
}

bool WaveReader::ReadFact(ChunkCursor& chunk)
{
    U32le frames;
    if (chunk.Read(frames, kWordField) && frames.Get() != 0)
        factFrames_ = frames.Get();
    return true;
}

void WaveReader::SettleDataSize(ChunkCursor& chunk)
{
    const std::uint32_t claimed = chunk.ClaimedSize();
    const std::uint64_t dataBytes = ds64_ ? ds64_->dataBytes.Get() : 0;
    const bool isFormOpen = IsOpenSize(claimedForm_) && !ds64_;
    std::uint64_t bytes = claimed;
    if (isRf64_ && claimed == kSizeInDs64 && dataBytes != 0)
        bytes = dataBytes;
    else if (isFormOpen ? claimed == 0 || claimed == kSizeInDs64 : claimed == 0 && chunk.Start() >= end_)
        bytes = limit_; // a recorder that never came back to fill in its sizes: take what the file holds
    if (bytes > end_ - std::min(end_, chunk.Start())) {
        // Samples that run past the form prove its size wrong: some writers forget to count a chunk.
        end_ = limit_;
        chunk.SetEnd(end_);
    }
    chunk.SetSize(bytes);
}

bool WaveReader::ReadData(ChunkCursor& chunk)
{
    if (hasData_)
        return true;
    SettleDataSize(chunk);
    wave_.sourceOffset = chunk.Start();
    wave_.sourceBytes = chunk.Size();
    hasData_ = true;
    return true;
}

bool WaveReader::ReadSmpl(ChunkCursor& chunk)
{
    SmplHead head;
    if (hasSmpl_ || !chunk.Read(head, kSmplHeadFields))
        return true;
    hasSmpl_ = true;
    const KeyTuning tuning = TuningFromSmpl({head.unityNote.Get(), head.pitchFraction.Get()}, wave_.rootKey);
    wave_.rootKey = tuning.rootKey;
    wave_.fineTune = tuning.cents;
    SmplLoop loop;
    const std::uint32_t loopCount = head.loopCount.Get();
    const bool hasLoop = loopCount != 0 && chunk.Read(loop, kSmplLoopFields);
    if (hasLoop) {
        wave_.loop = LoopFromSmpl(loop);
        chunk.Skip((std::uint64_t{loopCount} - 1) * sizeof(SmplLoop));
    }
    const std::uint32_t extra = head.extraBytes.Get();
    if (extra == sizeof(CreamwareData))
        ReadCreamware(chunk, hasLoop);
    const bool isAkai =
        (head.manufacturer.Get() & 0xFFFFFF) == kAkaiManufacturer && head.product.Get() == kAkaiProduct;
    if (isAkai && extra == sizeof(AkaiData))
        ReadAkai(chunk);
    return true;
}

/// Creamware STS: the loop's end word is one higher than usual, and there is a loop record even without a
/// loop.
void WaveReader::ReadCreamware(ChunkCursor& chunk, bool hasLoop)
{
    constexpr std::uint32_t kUntilRelease = 1;
    constexpr std::uint32_t kNoLoop = 2;
    CreamwareData data;
    if (!chunk.Read(data, "1111444444") || data.id != FourCc{"CWDT"})
        return;
    wave_.loop.pitch = static_cast<float>(data.loopPitch.Get()) * 0.01f;
    if (!hasLoop)
        return;
    wave_.loop.end -= 1;
    if (data.loopMode.Get() == kNoLoop)
        wave_.loop.type = LoopType::Off;
    wave_.loop.breakOnRelease = data.loopMode.Get() == kUntilRelease;
}

void WaveReader::ReadAkai(ChunkCursor& chunk)
{
    const std::vector<std::byte> bytes = chunk.ReadRest(10 + sizeof(AkaiData));
    ByteReader in(bytes);
    FourCc id;
    if (ByteReader(bytes).Read(id) && id == FourCc{"loop"})
        static_cast<void>(in.Skip(10));
    AkaiData akai;
    if (in.Read(akai) && akai.kind.Get() < 3 && akai.zero.Get() == 0)
        ApplyAkai(akai);
}

void WaveReader::ApplyAkai(const AkaiData& akai)
{
    wave_.rootKey = static_cast<std::uint8_t>(std::clamp(akai.pitch.Get() - akai.semitones.Get(), 0, 127));
    wave_.fineTune = std::clamp<std::int8_t>(akai.cents.Get(), -100, 100);
    switch (akai.loopMode.Get()) {
    case 0:
        wave_.loop.type = LoopType::Off;
        break;
    case 1:
        wave_.loop.type = LoopType::Off;
        wave_.loop.oneShot = true;
        break;
    case 2:
        wave_.loop.type = LoopType::Forward;
        break;
    case 3:
        wave_.loop.type = LoopType::Forward;
        wave_.loop.breakOnRelease = true;
        break;
    default:
        break;
    }
    trimStart_ = akai.start.Get();
    trimEnd_ = akai.end.Get();
}

bool WaveReader::ReadInst(ChunkCursor& chunk)
{
    InstBody body;
    if (!chunk.Read(body))
        return true;
    if (wave_.rootKey == 60 && wave_.fineTune == 0) {
        if (body.unityNote.Get() < 128)
            wave_.rootKey = body.unityNote.Get();
        wave_.fineTune = std::clamp<std::int8_t>(body.cents.Get(), -100, 100);
    }
    wave_.volume = body.gainDb.Get();
    return true;
}

bool WaveReader::ReadWsmp(ChunkCursor& chunk)
{
    WsmpHead head;
    if (!chunk.Read(head, kWsmpHeadFields))
        return true;
    if (head.bytes.Get() > sizeof(head))
        chunk.Skip(head.bytes.Get() - sizeof(head));
    WsmpLoop loop;
    const bool hasLoop = head.loopCount.Get() != 0 && chunk.Read(loop, kWsmpLoopFields);
    const DlsSample sample = SampleFromWsmp(head, hasLoop ? &loop : nullptr);
    wave_.rootKey = sample.tuning.rootKey;
    wave_.fineTune = sample.tuning.cents;
    wave_.volume = sample.gainDb;
    if (hasLoop)
        wave_.loop = sample.loop;
    return true;
}

bool WaveReader::ReadCue(ChunkCursor& chunk)
{
    cues_.ReadPoints(chunk);
    return true;
}

bool WaveReader::ReadList(ChunkCursor& chunk)
{
    FourCc type;
    if (!chunk.Read(type))
        return true;
    if (type == FourCc{"INFO"})
        ReadInfoTags(chunk.Inner(), wave_);
    else if (type == FourCc{"adtl"})
        cues_.ReadList(chunk.Inner());
    return true;
}

bool WaveReader::ReadMesa(ChunkCursor& chunk)
{
    MesaHead head;
    if (!chunk.Read(head))
        return true;
    wave_.SetNameNarrow(AkaiNameToNarrow(head.name));
    if (head.rateHz.Get() != 0)
        wave_.rateHz = head.rateHz.Get();
    wave_.rootKey = static_cast<std::uint8_t>(std::clamp(head.pitch.Get() - head.semitones.Get(), 0, 127));
    wave_.fineTune = std::clamp<std::int8_t>(head.cents.Get(), -100, 100);
    if (head.activeLoops.Get() == 0)
        return true;
    wave_.loop.type = LoopType::Forward;
    wave_.loop.breakOnRelease = head.loopMode.Get() == 1;
    wave_.loop.start = head.loopStart.Get();
    wave_.loop.end = wave_.loop.start + head.loopLength.Get() + head.loopFraction.Get() / 65536.0;
    wave_.loop.pitch = static_cast<float>(head.loopPitch.Get()) * 0.01f;
    return true;
}

/// Files with this chunk have a form size that is too small.
bool WaveReader::ReadAtem(ChunkCursor& chunk)
{
    end_ = limit_;
    chunk.SetEnd(end_);
    chunk.SetSize(chunk.ClaimedSize());
    return true;
}

bool WaveReader::ReadDs64(ChunkCursor& chunk)
{
    Ds64 sizes;
    if (!chunk.Read(sizes))
        return true;
    ds64_ = sizes;
    const std::uint64_t formBytes = sizes.riffBytes.Get();
    if (claimedForm_ == kSizeInDs64 && formBytes != 0) {
        const std::uint64_t room = limit_ - start_ - sizeof(RiffChunkHead);
        end_ = start_ + sizeof(RiffChunkHead) + std::min(formBytes, room);
        chunk.SetEnd(end_);
    }
    return true;
}

/// Kept for the end: the texts of INFO come first.
bool WaveReader::ReadId3(ChunkCursor& chunk)
{
    if (id3_.empty())
        id3_ = chunk.ReadRest(kId3BytesRead);
    return true;
}

/// Akai trimming: only frames [trimStart_, trimEnd_) of the data are the sample.
void WaveReader::Trim()
{
    if (trimEnd_ <= trimStart_ || trimEnd_ - trimStart_ >= wave_.frames)
        return;
    const std::uint64_t codedBytes = (std::uint64_t{format_->bits} * format_->channels + 7) / 8;
    const std::uint64_t frameBytes = format_->IsLinear() ? format_->FrameBytes() : codedBytes;
    const std::uint64_t skipped = trimStart_ * frameBytes;
    if (skipped >= wave_.sourceBytes)
        return;
    wave_.sourceOffset += skipped;
    wave_.sourceBytes -= skipped;
    const std::uint32_t held = WaveFrameCount(*format_, wave_.sourceBytes, 0);
    wave_.frames = std::min(trimEnd_ - trimStart_, held);
}

bool WaveReader::Finish()
{
    if (!hasData_ || !format_)
        return Fail(u"No wave data found!");
    wave_.frames = WaveFrameCount(*format_, wave_.sourceBytes, factFrames_);
    Trim();
    cues_.Apply(wave_, !hasSmpl_ && wave_.loop.type == LoopType::Off);
    ReadId3Texts(id3_, nameBefore_, wave_);
    return true;
}

} // namespace

bool ReadWaveRange(Waveform& wave, FileObject& file, std::uint64_t start, std::uint64_t length)
{
    const std::uint64_t size = file.Size();
    const std::uint64_t end = start <= size ? start + std::min(length, size - start) : size;
    return WaveReader(wave, file, start, end).Run();
}

bool ReadWave(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    auto& wave = collection.Create<Waveform>(collection.GetName());
    if (ReadWaveRange(wave, file, 0, file.Size()))
        return true;
    collection.Destroy(wave.Handle());
    return false;
}

} // namespace vimbo
