#include "base/host.h"
#include "base/last_error.h"
#include "formats/speech/coded_frames.h"
#include "formats/speech/speech.h"
#include "model/collection.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <vector>

namespace vimbo {

namespace {

constexpr std::uint32_t kTelephonyRateHz = 8000;
constexpr std::uint32_t kWidebandRateHz = 16000;
constexpr std::uint32_t kPlainRateHz = 44100;

/// What is known of a coding beside its variant word.
struct CodingRow {
    SpeechCoding coding;
    std::u16string_view name; ///< for the question that ends the questions
    std::uint32_t rateHz;
    std::u16string_view widthQuestion;
    std::array<std::uint8_t, 4> widths; ///< that the question offers; 0 ends them
    std::uint8_t defaultWidth;          ///< place in `widths` of what is most common
};

constexpr std::array kCodings = {
    CodingRow{SpeechCoding::G721, u"G.721", kTelephonyRateHz, u"", {4}, 0},
    CodingRow{SpeechCoding::G722,
              u"G.722",
              kWidebandRateHz,
              u"Is it 6, 7 or 8-bit codeword (48, 56 or 64 kbps) ADPCM data?",
              {6, 7, 8},
              2},
    CodingRow{SpeechCoding::G723,
              u"G.723",
              kTelephonyRateHz,
              u"Is it 3-bit (24 kpbs) or 5-bit (40 kpbs) ADPCM data?",
              {3, 5},
              0},
    CodingRow{SpeechCoding::G726,
              u"G.726",
              kTelephonyRateHz,
              u"Is it 2, 3, 4, or 5-bit (16, 24, 32, 40 or 64 kbps) ADPCM data?",
              {2, 3, 4, 5},
              2},
    CodingRow{SpeechCoding::Gsm, u"GSM", kTelephonyRateHz, u"", {1}, 0},
    CodingRow{SpeechCoding::UsrGsm, u"GSM", kTelephonyRateHz, u"", {1}, 0},
    CodingRow{SpeechCoding::Dialogic, u"Dialogic", kTelephonyRateHz, u"", {4}, 0},
    CodingRow{SpeechCoding::Rockwell,
              u"Rockwell",
              kTelephonyRateHz,
              u"Is it 2, 3 or 4-bit ADPCM data?",
              {2, 3, 4},
              2},
    CodingRow{SpeechCoding::Yamaha, u"Yamaha", kPlainRateHz, u"", {4}, 0},
};

const CodingRow& RowOf(SpeechCoding coding) noexcept
{
    return kCodings[static_cast<std::size_t>(coding)];
}

SpeechCoding CodingOf(std::uint32_t variant) noexcept
{
    return static_cast<SpeechCoding>(std::min<std::uint32_t>(variant >> 12 & 0xF, kCodings.size() - 1));
}

/// How one stream is coded. Fits into the 8 bits of Waveform::sourceTag.
struct StreamSettings {
    SpeechCoding coding = SpeechCoding::G721;
    unsigned width = 4;   ///< 2 to 8 bits
    bool special = false; ///< little-endian packing; of GSM, frames without their nibble

    std::uint8_t ToTag() const noexcept
    {
        return static_cast<std::uint8_t>(static_cast<unsigned>(coding) << 4 | (special ? 8u : 0u) |
                                         ((width - 1) & 7));
    }
    static StreamSettings FromTag(std::uint8_t tag) noexcept
    {
        return {CodingOf(static_cast<std::uint32_t>(tag >> 4) << 12), (tag & 7u) + 1, (tag & 8) != 0};
    }
};

bool HasPacking(SpeechCoding coding) noexcept
{
    return coding <= SpeechCoding::G726;
}

std::unique_ptr<StreamDecoder> MakeDecoder(const StreamSettings& settings)
{
    const BitPacking packing = settings.special ? BitPacking::LittleEndian : BitPacking::BigEndian;
    switch (settings.coding) {
    case SpeechCoding::G722:
        return MakeG722Decoder(settings.width, packing);
    case SpeechCoding::Gsm:
        return MakeGsmDecoder(settings.special ? GsmFraming::ByteAligned : GsmFraming::Raw, 0);
    case SpeechCoding::UsrGsm:
        return MakeUsrGsmDecoder();
    case SpeechCoding::Dialogic:
        return MakeDialogicDecoder();
    case SpeechCoding::Rockwell:
        return MakeRockwellDecoder(settings.width);
    case SpeechCoding::Yamaha:
        return MakeYamahaDecoder(1);
    default:
        return MakeG726Decoder(settings.width, packing);
    }
}

DataFormat FormatOf(const StreamSettings& settings) noexcept
{
    if (settings.coding == SpeechCoding::Gsm || settings.coding == SpeechCoding::UsrGsm)
        return DataFormat::Gsm;
    if (settings.coding == SpeechCoding::G722)
        return DataFormat::Adpcm4;
    constexpr std::array kByWidth = {DataFormat::Adpcm2, DataFormat::Adpcm3, DataFormat::Adpcm4,
                                     DataFormat::Adpcm5};
    return kByWidth[std::clamp(settings.width, 2u, 5u) - 2];
}

/// The questions of one read. An answer that holds for the session is not asked for again.
class Questions {
public:
    Questions(Host& host, const CodingRow& row) : host_(host), row_(row) {}

    bool AskLittleEndian()
    {
        return Ask("bit-packing", u"Is the data stored with 'Big Endian' or 'Little Endian' bit packing?",
                   {u"Big endian", u"Little endian"}, 0) == 1;
    }

    unsigned AskWidth()
    {
        std::vector<std::u16string> buttons;
        for (std::uint8_t width : row_.widths) {
            if (width != 0)
                buttons.push_back({static_cast<char16_t>(u'0' + width), u'-', u'b', u'i', u't'});
        }
        const std::size_t answer = Ask("code-bits", row_.widthQuestion, buttons, row_.defaultWidth);
        return row_.widths[std::min(answer, buttons.size() - 1)];
    }

    /// Asks, once in a session, whether the answers are to be kept.
    void Finish()
    {
        constexpr std::size_t kNo = 1;
        const std::string asked = SessionKey("ask-again");
        if (answers_.empty() || host_.RememberedAnswer(asked))
            return;
        std::u16string text = u"Ask the same again the next time you open a ";
        text.append(row_.name).append(u" file?");
        Question question{"ask-again", std::move(text), std::u16string(row_.name), {u"Yes", u"No"}, 0};
        const std::size_t answer = host_.Ask(question);
        host_.RememberAnswer(asked, answer);
        if (answer != kNo)
            return;
        for (const auto& [key, value] : answers_)
            host_.RememberAnswer(key, value);
    }

private:
    std::string SessionKey(std::string_view key) const
    {
        return std::string(key) + '-' + std::to_string(static_cast<int>(row_.coding));
    }

    std::size_t Ask(std::string_view key, std::u16string_view text, std::vector<std::u16string> buttons,
                    std::size_t defaultButton)
    {
        const std::string sessionKey = SessionKey(key);
        if (const auto remembered = host_.RememberedAnswer(sessionKey))
            return *remembered;
        Question question{key, std::u16string(text), std::u16string(row_.name), std::move(buttons),
                          defaultButton};
        const std::size_t answer = host_.Ask(question);
        answers_.emplace_back(sessionKey, answer);
        return answer;
    }

    Host& host_;
    const CodingRow& row_;
    std::vector<std::pair<std::string, std::size_t>> answers_;
};

/// What the row leaves open is asked. The packing of 8-bit codes is no question.
StreamSettings SettleSettings(Host& host, std::uint32_t variant)
{
    const CodingRow& row = RowOf(CodingOf(variant));
    StreamSettings settings;
    settings.coding = row.coding;
    settings.width = variant & 0xF;
    settings.special = (variant & kSpeechByteAligned) != 0;
    Questions questions(host, row);
    if (HasPacking(row.coding) && settings.width != 8)
        settings.special = questions.AskLittleEndian();
    if (settings.width == 0)
        settings.width = row.widthQuestion.empty() ? row.widths[0] : questions.AskWidth();
    questions.Finish();
    return settings;
}

bool LoadSpeech(Waveform& wave, FileObject& file)
{
    const StreamSettings settings = StreamSettings::FromTag(wave.sourceTag);
    return LoadCodedStream(wave, file, wave.sourceOffset, file.Size(),
                           [settings] { return MakeDecoder(settings); });
}

std::unique_ptr<FrameSource> StreamSpeech(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    if (!file) {
        Fail(u"Reading from file failed");
        return nullptr;
    }
    const StreamSettings settings = StreamSettings::FromTag(wave.sourceTag);
    FileObject& opened = *file;
    return std::make_unique<CodedFrames>(
        wave, wave.sourceOffset, opened.Size(), [settings] { return MakeDecoder(settings); }, opened,
        std::move(file));
}

bool StartsGsmFrame(std::byte first) noexcept
{
    return (first & std::byte{0xF0}) == std::byte{0xD0};
}

constexpr std::size_t kUsrRecordBytes = 38;

} // namespace

const ImportProcedure kSpeechImport{4, LoadSpeech, StreamSpeech};

bool ReadSpeech(Collection& collection, FileObject& file, std::uint32_t variant)
{
    const StreamSettings settings = SettleSettings(collection.GetHost(), variant);
    const std::uint64_t frames = MakeDecoder(settings)->FramesIn(file.Size());
    if (frames == 0)
        return Fail(u"Zero length");
    auto& wave = collection.Create<Waveform>(collection.GetName());
    wave.frames = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(frames, std::numeric_limits<std::uint32_t>::max()));
    wave.rateHz = (variant & kSpeech6000Hz) != 0 ? 6000 : RowOf(settings.coding).rateHz;
    wave.channels = 1;
    wave.sourceWord = FormatBit(FormatOf(settings));
    wave.bits = static_cast<std::uint8_t>(DataFormatBits(FormatOf(settings)));
    wave.saveFormat = SaveFormat::Adpcm4;
    wave.sourceTag = settings.ToTag();
    wave.importProc = &kSpeechImport;
    return true;
}

int DetectGsm(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t fileSize) noexcept
{
    constexpr std::size_t kFramesForACase = 4;
    std::size_t frames = 0;
    for (std::size_t at = 0; at + kGsmFrameBytes <= head.size(); at += kGsmFrameBytes, ++frames) {
        if (!StartsGsmFrame(head[at]))
            return 0;
    }
    return frames >= kFramesForACase && fileSize % kGsmFrameBytes == 0 ? 4 : 2;
}

int DetectUsrGsm(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t fileSize) noexcept
{
    if (head.size() < kUsrRecordBytes || fileSize % kUsrRecordBytes != 0)
        return 0;
    for (std::size_t at = 0; at + kUsrRecordBytes <= head.size(); at += kUsrRecordBytes) {
        if (head[at] != std::byte{254} && head[at] != std::byte{182})
            return 0;
    }
    return 4;
}

int DetectUsrGsmWave(std::span<const std::byte> head, std::uint32_t /*variant*/,
                     std::uint64_t /*fileSize*/) noexcept
{
    const auto isText = [&](std::size_t at, std::string_view text) {
        return std::ranges::equal(head.subspan(at, text.size()), text,
                                  [](std::byte byte, char c) { return byte == static_cast<std::byte>(c); });
    };
    if (head.size() < 22 || !isText(0, "RIFF") || !isText(8, "WAVE") || !isText(12, "fmt "))
        return 0;
    return head[20] == std::byte{0x03} && head[21] == std::byte{0x03} ? 6 : 0; // tag 771
}

} // namespace vimbo
