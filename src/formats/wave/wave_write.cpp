// Writing one waveform as a WAV file. All sizes are known before the first byte is written, so the samples go
// from their source to the file in pieces, and memory stays small however long the waveform is.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/format_choice.h"
#include "formats/mpeg/mpeg.h"
#include "formats/speech/stream_encoders.h"
#include "formats/wave/wave.h"
#include "formats/wave/wave_records.h"
#include "formats/wave/wave_texts.h"
#include "formats/wave/wave_units.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace vimbo {
namespace {

constexpr std::size_t kPieceBytes = 0x100000;
constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";
constexpr std::string_view kSoftware = "Vimbo Studio v12.7";
constexpr std::size_t kSoftwareBytes = 20;
constexpr std::size_t kMaxLabelBytes = 256;

/// What a coding's `fmt ` says. Samples of the linear ones are written one by one; the others go through an
/// encoder.
struct CodingRow {
    DataFormat format;
    SampleCoding coding; ///< linear codings only
    std::uint16_t tag;
    std::uint16_t bits;
    std::uint32_t fmtBytes;
    bool isLinear = true;
};

constexpr std::array kCodings = {
    CodingRow{DataFormat::Pcm8, SampleCoding::Pcm8, 1, 8, 16},
    CodingRow{DataFormat::Pcm16, SampleCoding::Pcm16, 1, 16, 16},
    CodingRow{DataFormat::Pcm24, SampleCoding::Pcm24, 1, 24, 16},
    CodingRow{DataFormat::Pcm32, SampleCoding::Pcm32, 1, 32, 16},
    CodingRow{DataFormat::Float32, SampleCoding::Float32, 3, 32, 16},
    CodingRow{DataFormat::MuLaw, SampleCoding::MuLaw, 7, 8, 18},
    CodingRow{DataFormat::ALaw, SampleCoding::ALaw, 6, 8, 18},
    CodingRow{DataFormat::Gsm, {}, 49, 0, 20, false},
    CodingRow{DataFormat::Adpcm2, {}, 100, 2, 16, false},
    CodingRow{DataFormat::Adpcm3, {}, 20, 3, 20, false},
    CodingRow{DataFormat::Adpcm4, {}, 64, 4, 20, false},
    CodingRow{DataFormat::Adpcm5, {}, 20, 5, 20, false},
    CodingRow{DataFormat::Compressed, {}, 85, 0, 30, false},
};
constexpr std::uint16_t kTagPcm = 1;
constexpr std::uint16_t kTagExtensible = 65534;

/// Everything about the file that is settled before it is written.
struct WavePlan {
    const CodingRow& coding;
    std::uint32_t variant;
    std::uint32_t frames;
    std::uint16_t channels;
    Mp3Stream mp3 = {}; ///< the samples, where they are compressed

    bool IsExtensible() const noexcept { return variant == kWaveVariantExtensible; }
    bool IsSmplFirst() const noexcept { return variant == kWaveVariantSmplFirst; }
    bool IsCreamware() const noexcept { return variant == kWaveVariantCreamware; }
    bool IsGsm() const noexcept { return coding.format == DataFormat::Gsm; }
    bool IsMp3() const noexcept { return coding.format == DataFormat::Compressed; }
    std::uint16_t FrameBytes() const noexcept
    {
        return static_cast<std::uint16_t>(channels * coding.bits / 8);
    }
    /// G.726 counts blocks of 128 samples.
    std::uint16_t BlockAlign() const noexcept
    {
        if (coding.isLinear)
            return FrameBytes();
        if (IsMp3())
            return 1;
        return static_cast<std::uint16_t>(IsGsm() ? kGsmWavBlockBytes : coding.bits * 16u);
    }
    std::uint32_t AverageBytes(std::uint32_t rateHz) const noexcept
    {
        if (coding.isLinear)
            return rateHz * FrameBytes();
        if (IsMp3())
            return mp3.kbit * 1000 / 8;
        if (IsGsm())
            return static_cast<std::uint32_t>(rateHz * 0.203125); // 65 bytes for 320 samples
        return (coding.bits * rateHz + 7) / 8;
    }
    std::uint64_t DataBytes() const noexcept
    {
        if (coding.isLinear)
            return std::uint64_t{frames} * FrameBytes();
        if (IsMp3())
            return mp3.bytes;
        return IsGsm() ? GsmBlocks() * kGsmWavBlockBytes : (std::uint64_t{coding.bits} * frames + 7) / 8;
    }
    /// GSM fills up its last block, and says so.
    std::uint32_t FactFrames() const noexcept
    {
        const std::uint64_t whole = IsGsm() ? GsmBlocks() * kGsmWavBlockSamples : frames;
        return static_cast<std::uint32_t>(
            std::min<std::uint64_t>(whole, std::numeric_limits<std::uint32_t>::max()));
    }
    std::uint64_t GsmBlocks() const noexcept
    {
        return (std::uint64_t{frames} + kGsmWavBlockSamples - 1) / kGsmWavBlockSamples;
    }
    std::uint64_t PaddedBytes() const noexcept { return DataBytes() + (DataBytes() & 1); }
};

std::uint32_t ToSizeField(std::uint64_t bytes) noexcept
{
    return bytes < kSizeInDs64 ? static_cast<std::uint32_t>(bytes) : kSizeInDs64;
}

void WriteHead(ByteWriter& out, FourCc id, std::uint64_t bytes)
{
    out.Write(RiffChunkHead{id, ToSizeField(bytes)});
}

/// The size of what follows, and that: samples per block of GSM, an empty auxiliary block of G.726.
void WriteFmtExtra(ByteWriter& out, const WavePlan& plan)
{
    constexpr std::uint32_t kPlainBytes = sizeof(FmtCommon) + sizeof(U16le);
    if (plan.coding.fmtBytes == kPlainBytes)
        return;
    const bool hasWord = plan.coding.fmtBytes > kPlainBytes + sizeof(U16le);
    out.Write(U16le(hasWord ? std::uint16_t{sizeof(U16le)} : std::uint16_t{0}));
    if (hasWord)
        out.Write(U16le(plan.IsGsm() ? std::uint16_t{kGsmWavBlockSamples} : std::uint16_t{0}));
}

void WriteFmt(ByteWriter& out, const WavePlan& plan, std::uint32_t rateHz)
{
    const bool isExtensible = plan.IsExtensible();
    const CodingRow& coding = plan.coding;
    WriteHead(out, FourCc{"fmt "}, isExtensible ? 40 : coding.fmtBytes);
    FmtCommon common;
    common.tag = isExtensible ? kTagExtensible : coding.tag;
    common.channels = plan.channels;
    common.rateHz = rateHz;
    common.averageBytes = plan.AverageBytes(rateHz);
    common.blockAlign = plan.BlockAlign();
    out.Write(common);
    if (plan.IsMp3()) {
        out.Write(Mp3FieldsOf(rateHz, plan.mp3.kbit));
        return;
    }
    if (!isExtensible) {
        out.Write(U16le(coding.bits));
        WriteFmtExtra(out, plan);
        return;
    }
    constexpr std::uint32_t kFrontCenter = 4;
    constexpr std::uint32_t kFrontLeftRight = 3;
    FmtExtensible extensible;
    extensible.containerBits = coding.bits;
    extensible.extraBytes = static_cast<std::uint16_t>(sizeof(FmtExtensible) - 2 * sizeof(U16le));
    extensible.validBits = coding.bits;
    extensible.speakerMask = plan.channels == 1 ? kFrontCenter : kFrontLeftRight;
    extensible.subTag = coding.tag;
    extensible.guidRest = kWaveGuidRest;
    out.Write(extensible);
}

void WriteFact(ByteWriter& out, const WavePlan& plan)
{
    if (plan.coding.tag == kTagPcm && !plan.IsExtensible())
        return;
    WriteHead(out, FourCc{"fact"}, sizeof(U32le));
    out.Write(U32le(plan.FactFrames()));
}

CreamwareData CreamwareDataOf(const Waveform& wave, std::uint32_t frames)
{
    const LoopInfo& loop = wave.loop;
    CreamwareData data;
    data.id = FourCc{"CWDT"};
    const double cents = std::isfinite(loop.pitch) ? std::round(loop.pitch * 100.0) : 0;
    data.loopPitch = static_cast<std::int8_t>(std::clamp(cents, -50.0, 50.0));
    data.constant = {0x1B, 0xDA, 0x08};
    data.loopMode = loop.type == LoopType::Off ? 2 : loop.breakOnRelease ? 1 : 0;
    data.frames = frames;
    data.rootKey = wave.rootKey;
    return data;
}

void WriteSmpl(ByteWriter& out, const WavePlan& plan, const Waveform& wave)
{
    const bool isCreamware = plan.IsCreamware();
    const bool isLooped = wave.loop.type != LoopType::Off;
    const SmplTuning tuning = TuningToSmpl({wave.rootKey, wave.fineTune});
    SmplHead head;
    head.samplePeriod = isCreamware ? 0 : SamplePeriod(wave.rateHz);
    head.unityNote = tuning.unityNote;
    head.pitchFraction = tuning.pitchFraction;
    head.loopCount = isLooped || isCreamware ? 1 : 0;
    head.extraBytes = isCreamware ? static_cast<std::uint32_t>(sizeof(CreamwareData)) : 0;
    WriteHead(out, FourCc{"smpl"},
              sizeof(head) + head.loopCount.Get() * sizeof(SmplLoop) + head.extraBytes.Get());
    out.Write(head);
    if (head.loopCount.Get() == 0)
        return;
    SmplLoop loop = LoopToSmpl(wave.loop);
    if (isCreamware && isLooped)
        loop.end = loop.end.Get() + 1;
    out.Write(loop);
    if (isCreamware)
        out.Write(CreamwareDataOf(wave, plan.frames));
}

void WriteInfoTag(ByteWriter& out, FourCc id, std::string_view text, std::size_t bytes)
{
    WriteHead(out, id, bytes);
    out.Append(text);
    out.Fill(bytes - text.size());
}

void WriteInfo(ByteWriter& out, const WavePlan& plan, const Waveform& wave)
{
    ByteWriter tags;
    for (const InfoTag& tag : kInfoTags) {
        const std::string& text = wave.GetTextNarrow(tag.text);
        if (!text.empty())
            WriteInfoTag(tags, tag.id, text, (text.size() + 2) & ~std::size_t{1});
        if (tag.text == kTextName && !plan.IsCreamware())
            WriteInfoTag(tags, FourCc{"ISFT"}, kSoftware, kSoftwareBytes);
    }
    if (tags.Size() == 0)
        return;
    WriteHead(out, FourCc{"LIST"}, sizeof(FourCc) + tags.Size());
    out.Write(FourCc{"INFO"});
    out.Append(tags.Bytes());
}

void WriteCuePoints(ByteWriter& out, const std::vector<Marker>& markers)
{
    WriteHead(out, FourCc{"cue "}, sizeof(U32le) + markers.size() * sizeof(CuePoint));
    out.Write(U32le(static_cast<std::uint32_t>(markers.size())));
    for (std::uint32_t i = 0; i < markers.size(); ++i) {
        CuePoint point;
        point.id = i;
        point.position = i; // the place in the list, which is what other software has come to expect
        point.chunk = FourCc{"data"};
        point.frame = markers[i].position;
        out.Write(point);
    }
}

void WriteCueTexts(ByteWriter& out, const std::vector<Marker>& markers)
{
    ByteWriter texts;
    for (std::uint32_t i = 0; i < markers.size(); ++i) {
        const Marker& marker = markers[i];
        const std::string name = WideToNarrow(marker.name).substr(0, kMaxLabelBytes);
        if (!name.empty()) {
            const std::size_t bytes = sizeof(U32le) + name.size() + 1;
            WriteHead(texts, FourCc{"labl"}, bytes);
            texts.Write(U32le(i));
            texts.Append(name);
            texts.Fill(1 + (bytes & 1));
        }
        if (marker.isRange) {
            CueLength length;
            length.id = i;
            length.frames = marker.end > marker.position ? marker.end - marker.position : 0;
            length.purpose = FourCc{"rgn "};
            WriteHead(texts, FourCc{"ltxt"}, sizeof(length));
            texts.Write(length);
        }
    }
    WriteHead(out, FourCc{"LIST"}, sizeof(FourCc) + texts.Size());
    out.Write(FourCc{"adtl"});
    out.Append(texts.Bytes());
}

/// What stands behind the samples.
ByteWriter MakeTail(const WavePlan& plan, const Waveform& wave)
{
    ByteWriter tail;
    if (plan.IsSmplFirst())
        return tail;
    WriteInfo(tail, plan, wave);
    if (!wave.markers.empty()) {
        WriteCuePoints(tail, wave.markers);
        WriteCueTexts(tail, wave.markers);
    }
    WriteSmpl(tail, plan, wave);
    return tail;
}

/// What stands between the form's head (or `ds64`) and the samples.
ByteWriter MakeFront(const WavePlan& plan, const Waveform& wave)
{
    ByteWriter front;
    WriteFmt(front, plan, wave.rateHz);
    WriteFact(front, plan);
    if (plan.IsSmplFirst())
        WriteSmpl(front, plan, wave);
    WriteHead(front, FourCc{"data"}, plan.PaddedBytes()); // the pad byte is counted
    return front;
}

/// "RIFF" or, if 32 bits cannot hold the sizes, "RF64" with its `ds64`.
/// @param innerBytes everything behind the form type but for `ds64`
ByteWriter MakeForm(const WavePlan& plan, std::uint64_t innerBytes)
{
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t formBytes = sizeof(FourCc) + innerBytes;
    const bool isRf64 = plan.DataBytes() + 48 > kMost || formBytes >= kMost;
    ByteWriter form;
    if (!isRf64) {
        WriteHead(form, FourCc{"RIFF"}, formBytes);
        form.Write(FourCc{"WAVE"});
        return form;
    }
    form.Write(RiffChunkHead{FourCc{"RF64"}, kSizeInDs64});
    form.Write(FourCc{"WAVE"});
    Ds64 sizes;
    sizes.riffBytes = formBytes + sizeof(RiffChunkHead) + sizeof(Ds64);
    sizes.dataBytes = plan.DataBytes();
    sizes.frames = plan.frames;
    WriteHead(form, FourCc{"ds64"}, sizeof(sizes));
    form.Write(sizes);
    return form;
}

bool Put(FileObject& file, std::span<const std::byte> bytes)
{
    return file.WriteAll(bytes) || Fail(kCannotWrite);
}

/// What stands behind the samples, and before that the byte that makes their length even.
void AppendEnd(std::vector<std::byte>& bytes, const WavePlan& plan, const ByteWriter& tail)
{
    if ((plan.DataBytes() & 1) != 0)
        bytes.push_back(plan.coding.format == DataFormat::Pcm8 ? std::byte{128} : std::byte{0});
    bytes.insert(bytes.end(), tail.Bytes().begin(), tail.Bytes().end());
}

/// The whole file in large steps; a short one in a single step.
/// @param bytes  what stands before the samples
bool PutLinear(FileObject& file, FrameSource& source, const WavePlan& plan, std::vector<std::byte> bytes,
               const ByteWriter& tail)
{
    const SampleLayout layout{plan.coding.coding, plan.coding.format == DataFormat::Pcm8,
                              std::endian::little};
    const std::size_t most = kPieceBytes / plan.FrameBytes();
    const std::uint64_t rest = plan.PaddedBytes() + tail.Size();
    file.Reserve(bytes.size() + rest);
    bytes.reserve(bytes.size() + static_cast<std::size_t>(std::min<std::uint64_t>(rest, kPieceBytes)));
    for (std::uint32_t first = 0; first < plan.frames;) {
        const std::size_t frames = std::min<std::size_t>(most, plan.frames - first);
        const std::size_t held = bytes.size();
        bytes.resize(held + frames * plan.FrameBytes());
        if (!source.ReadStored(layout, first, std::span(bytes).subspan(held)))
            return false;
        first += static_cast<std::uint32_t>(frames);
        if (first == plan.frames)
            break;
        if (!Put(file, bytes))
            return false;
        bytes.clear();
    }
    AppendEnd(bytes, plan, tail);
    return Put(file, bytes);
}

bool PutEncoded(FileObject& file, FrameSource& source, const WavePlan& plan, std::vector<std::byte> bytes,
                const ByteWriter& tail)
{
    const auto encoder = plan.IsGsm() ? MakeGsmEncoder(GsmFraming::Wav)
                                      : MakeG726Encoder(plan.coding.bits, BitPacking::BigEndian);
    if (!Put(file, bytes) || !WriteEncoded(file, source, *encoder, kCannotWrite))
        return false;
    bytes.clear();
    AppendEnd(bytes, plan, tail);
    return Put(file, bytes);
}

/// @param stream  has the bit rate that is wanted
bool Compress(FrameSource& source, std::uint32_t rateHz, ScratchFile& scratch, Mp3Stream& stream)
{
    if (!scratch.Create())
        return Fail(u"Could not create file");
    return EncodeMp3(source, {.rateHz = rateHz, .kbit = stream.kbit}, scratch.File(), stream);
}

/// @param stream  where the compressed samples wait
bool PutCompressed(FileObject& file, FileObject& stream, const WavePlan& plan, std::vector<std::byte> bytes,
                   const ByteWriter& tail)
{
    if (!Put(file, bytes) || !PutMp3(plan.mp3, stream, file))
        return false;
    bytes.clear();
    AppendEnd(bytes, plan, tail);
    return Put(file, bytes);
}

/// The row of the chosen format, or null with the Last error text.
const CodingRow* FindCoding(DataFormat format, std::uint32_t variant)
{
    const auto row = std::ranges::find(kCodings, format, &CodingRow::format);
    const bool isPcmOrFloat =
        row != kCodings.end() && row->isLinear && format != DataFormat::MuLaw && format != DataFormat::ALaw;
    if (row == kCodings.end() || (variant == kWaveVariantExtensible && !isPcmOrFloat)) {
        Fail(u"Unsupported subformat");
        return nullptr;
    }
    return &*row;
}

bool WriteWaveform(Waveform& wave, FileObject& file, FormatChoice choice)
{
    float kbit = 0;
    const DataFormat format = PickDataFormat(wave, choice, kbit, WaveSubFormats, choice.variant);
    const CodingRow* coding = FindCoding(format, choice.variant);
    if (coding == nullptr)
        return false;
    choice = ChoiceForEncoding(choice, format);
    std::unique_ptr<FrameSource> source;
    if (wave.frames != 0) {
        source = OpenFramesForWriter(wave, choice,
                                     format == DataFormat::Compressed ? NearestMp3Rate(wave.rateHz) : 0);
        if (source == nullptr)
            return false;
    }
    const unsigned channels = source != nullptr ? source->Channels() : PickChannels(wave, choice);
    const std::uint32_t frames = source != nullptr ? source->Frames() : 0;
    WavePlan plan{*coding, choice.variant, frames, static_cast<std::uint16_t>(channels)};
    ScratchFile scratch;
    plan.mp3.kbit = Mp3KbitFor(kbit);
    if (plan.IsMp3() && source != nullptr && !Compress(*source, wave.rateHz, scratch, plan.mp3))
        return false;
    const ByteWriter front = MakeFront(plan, wave);
    const ByteWriter tail = MakeTail(plan, wave);
    const ByteWriter form = MakeForm(plan, front.Size() + plan.PaddedBytes() + tail.Size());
    std::vector<std::byte> bytes(form.Bytes().begin(), form.Bytes().end());
    bytes.insert(bytes.end(), front.Bytes().begin(), front.Bytes().end());
    if (source == nullptr) {
        AppendEnd(bytes, plan, tail);
        return Put(file, bytes);
    }
    if (coding->isLinear)
        return PutLinear(file, *source, plan, std::move(bytes), tail);
    return plan.IsMp3() ? PutCompressed(file, scratch.File(), plan, std::move(bytes), tail)
                        : PutEncoded(file, *source, plan, std::move(bytes), tail);
}

} // namespace

bool WriteWave(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    return WriteWaveform(static_cast<Waveform&>(root), file, choice);
}

float WaveSubFormats(std::uint32_t index, std::uint32_t /*variant*/, std::u16string* name)
{
    if (index >= kMp3Kbit.size())
        return 0;
    if (name != nullptr)
        *name = NarrowToWide(std::to_string(kMp3Kbit[index])) + u" kbit/s";
    return static_cast<float>(kMp3Kbit[index]);
}

} // namespace vimbo
