#include "formats/wave/wave_codecs.h"

#include "base/byte_reader.h"
#include "base/last_error.h"
#include "formats/wave/wave_records.h"
#include "formats/wave/wave_tags.h"

#include <algorithm>
#include <string>

namespace vimbo {
namespace {

constexpr std::uint16_t kTagG723 = 20;
constexpr std::uint16_t kTagG721 = 64;

/// The coefficient pairs behind the block fields of MS ADPCM: a count, then the pairs. As many as the chunk
/// holds.
std::vector<std::int16_t> ReadCoefficients(std::span<const std::byte> fmtBody)
{
    std::vector<std::int16_t> coefficients;
    ByteReader in(fmtBody);
    U16le count;
    if (!in.Skip(sizeof(FmtCommon) + sizeof(FmtBlocks)) || !in.Read(count))
        return coefficients;
    I16le last;
    I16le beforeLast;
    for (unsigned i = 0; i < count.Get() && in.Read(last) && in.Read(beforeLast); ++i) {
        coefficients.push_back(last.Get());
        coefficients.push_back(beforeLast.Get());
    }
    return coefficients;
}

/// Bytes ahead of the codes: files of two of the tags may carry a block of their own there.
std::uint64_t AuxBytes(const WaveFormat& format, std::span<const std::byte> fmtBody)
{
    if (format.tag != kTagG721 && format.tag != kTagG723)
        return 0;
    ByteReader in(fmtBody);
    FmtBlocks fields; // the third word is the size of the auxiliary block here
    if (!in.Skip(sizeof(FmtCommon)) || !in.Read(fields) || fields.extraBytes.Get() < sizeof(U16le))
        return 0;
    return fields.samplesPerBlock.Get();
}

/// Microsoft's framing comes in slices of the block size; a smaller block size means one uncut run.
std::size_t GsmSlice(const WaveFormat& format) noexcept
{
    return format.blockAlign < kGsmWavBlockBytes ? 0 : format.blockAlign;
}

CodedFrames::Restart RestartOf(const WaveFormat& format, std::span<const std::byte> fmtBody)
{
    switch (format.family) {
    case WaveFamily::MsAdpcm:
        return [format, coefficients = ReadCoefficients(fmtBody)] {
            return MakeMsAdpcmDecoder(format.blockAlign, format.channels, coefficients);
        };
    case WaveFamily::ImaAdpcm:
        return [format] {
            return MakeImaDecoder(format.blockAlign, format.channels, format.bits, format.samplesPerBlock);
        };
    case WaveFamily::DialogicAdpcm:
        return [] { return MakeDialogicDecoder(); };
    case WaveFamily::YamahaAdpcm:
        return [format] { return MakeYamahaDecoder(format.channels); };
    case WaveFamily::G72xAdpcm:
        return [format] { return MakeG726Decoder(format.bits, BitPacking::BigEndian); };
    case WaveFamily::Gsm:
        if (format.tag == kTagUsrGsm)
            return [] { return MakeUsrGsmDecoder(); };
        return [format] { return MakeGsmDecoder(GsmFraming::Wav, GsmSlice(format)); };
    case WaveFamily::RockwellAdpcm:
        return [format] { return MakeRockwellDecoder(format.bits); };
    case WaveFamily::G722:
        return [] { return MakeG722Decoder(8, BitPacking::BigEndian); };
    default:
        return nullptr;
    }
}

} // namespace

bool SettleWaveStream(const Waveform& wave, const WaveFormat& format, std::span<const std::byte> fmtBody,
                      WaveStream& out)
{
    out.restart = RestartOf(format, fmtBody);
    if (!out.restart)
        return Fail(u"The decoder for " + std::u16string(WaveFamilyName(format.family)) +
                    u" samples is missing");
    const std::uint64_t skipped = std::min(AuxBytes(format, fmtBody), wave.sourceBytes);
    out.offset = wave.sourceOffset + skipped;
    out.bytes = wave.sourceBytes - skipped;
    return true;
}

} // namespace vimbo
