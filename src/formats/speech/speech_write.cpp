#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/format_choice.h"
#include "formats/speech/speech.h"
#include "formats/speech/stream_encoders.h"
#include "formats/wave/wave_records.h"

#include <limits>
#include <string>

namespace vimbo {

namespace {

/// Width for rows that leave it to the data format.
unsigned WidthOf(DataFormat format) noexcept
{
    switch (format) {
    case DataFormat::Adpcm2:
        return 2;
    case DataFormat::Adpcm3:
        return 3;
    case DataFormat::Adpcm5:
        return 5;
    default:
        return 4;
    }
}

std::unique_ptr<StreamEncoder> MakeEncoder(std::uint32_t variant, DataFormat format)
{
    const auto coding = static_cast<SpeechCoding>(variant >> 12 & 0xF);
    const BitPacking packing = (variant & 0x100) != 0 ? BitPacking::LittleEndian : BitPacking::BigEndian;
    const unsigned width = variant & 0xF;
    if (coding == SpeechCoding::Gsm)
        return MakeGsmEncoder(GsmFraming::Raw);
    if (coding == SpeechCoding::G722)
        return MakeG722Encoder(width != 0 ? width : 8, packing);
    return MakeG726Encoder(width != 0 ? width : WidthOf(format), packing);
}

/// The file says nothing of the rate: readers will take the coding's own.
void WarnOfRate(const Waveform& wave, std::uint32_t rateHz)
{
    if (wave.rateHz == rateHz)
        return;
    const std::string text = "The format holds no sample rate: what has " + std::to_string(wave.rateHz) +
                             " Hz now will be played at " + std::to_string(rateHz) + " Hz";
    wave.Owner().GetHost().ShowMessage(NarrowToWide(text), wave.GetName(), MessageIcon::Warning);
}

constexpr std::uint16_t kTagUsrGsm = 771;
constexpr std::uint32_t kUsrRecordBytes = 38;

/// What follows the common part of a `fmt ` chunk here.
struct FmtUsrGsm {
    FmtCommon common;
    U16le bits;
    U16le extraBytes;
    U16le samplesPerBlock;
};
static_assert(DiskRecord<FmtUsrGsm> && sizeof(FmtUsrGsm) == 20);

ByteWriter MakeUsrHead(std::uint32_t rateHz, std::uint32_t frames, std::uint32_t dataBytes)
{
    FmtUsrGsm fmt;
    fmt.common.tag = kTagUsrGsm;
    fmt.common.channels = std::uint16_t{1};
    fmt.common.rateHz = rateHz;
    fmt.common.averageBytes =
        static_cast<std::uint32_t>(std::uint64_t{rateHz} * kUsrRecordBytes / kGsmFrameSamples);
    fmt.common.blockAlign = static_cast<std::uint16_t>(kUsrRecordBytes);
    fmt.extraBytes = static_cast<std::uint16_t>(sizeof(U16le));
    fmt.samplesPerBlock = static_cast<std::uint16_t>(kGsmFrameSamples);

    constexpr std::uint32_t kHeads = sizeof(FourCc) + 3 * sizeof(RiffChunkHead) + sizeof(fmt) + sizeof(U32le);
    ByteWriter head;
    head.Write(RiffChunkHead{FourCc{"RIFF"}, kHeads + dataBytes});
    head.Write(FourCc{"WAVE"});
    head.Write(RiffChunkHead{FourCc{"fmt "}, static_cast<std::uint32_t>(sizeof(fmt))});
    head.Write(fmt);
    head.Write(RiffChunkHead{FourCc{"fact"}, static_cast<std::uint32_t>(sizeof(U32le))});
    head.Write(U32le(frames));
    head.Write(RiffChunkHead{FourCc{"data"}, dataBytes});
    return head;
}

} // namespace

bool WriteUsrGsm(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    const auto source = OpenFramesForWriter(wave, choice);
    if (!source)
        return false;
    const auto encoder = MakeUsrGsmEncoder();
    const std::uint64_t dataBytes = encoder->BytesFor(source->Frames());
    if (dataBytes > std::numeric_limits<std::uint32_t>::max() - kUsrRecordBytes * 4)
        return Fail(u"The waveform is too long for this format");
    const ByteWriter head = MakeUsrHead(wave.rateHz, source->Frames(), static_cast<std::uint32_t>(dataBytes));
    if (!file.WriteAll(head.Bytes()))
        return Fail(u"Writing to file failed");
    return WriteEncoded(file, *source, *encoder, u"Writing to file failed");
}

bool WriteSpeech(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    const auto coding = static_cast<SpeechCoding>(choice.variant >> 12 & 0xF);
    const std::u16string_view error =
        coding == SpeechCoding::G722 ? u"File Write Error" : u"Writing to file failed";
    float kbit = 0;
    const DataFormat format = PickDataFormat(wave, choice, kbit, nullptr);
    const auto source = OpenFramesForWriter(wave, choice);
    if (!source)
        return false;
    WarnOfRate(wave, coding == SpeechCoding::G722 ? 16000 : 8000);
    const auto encoder = MakeEncoder(choice.variant, format);
    return WriteEncoded(file, *source, *encoder, error);
}

} // namespace vimbo
