// Decoding the samples of AIFF-C files that are coded in packets or streams.
#include "base/last_error.h"
#include "codecs/ima.h"
#include "formats/aiff/aiff.h"
#include "formats/aiff/aiff_coding.h"

#include <algorithm>
#include <vector>

namespace vimbo {
namespace {

class Ima4Stream final : public StreamDecoder {
public:
    explicit Ima4Stream(unsigned channels)
        : StreamDecoder(kIma4PacketBytes * channels, channels), states_(channels)
    {
    }
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override
    {
        return bytes / UnitBytes() * kIma4PacketFrames;
    }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return DecodeIma4(states_, in, out);
    }

private:
    std::vector<ImaState> states_;
};

class MaceStream final : public StreamDecoder {
public:
    MaceStream(MaceRatio ratio, unsigned channels)
        : StreamDecoder(MacePacketBytes(ratio) * channels, channels), ratio_(ratio), states_(channels)
    {
    }
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override
    {
        return bytes / UnitBytes() * kMacePacketFrames;
    }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return DecodeMace(states_, ratio_, in, out);
    }

private:
    MaceRatio ratio_;
    std::vector<MaceState> states_;
};

/// How to start decoding; empty for a tag that this version does not know.
CodedFrames::Restart RestartOf(const Waveform& wave)
{
    const unsigned channels = std::clamp<unsigned>(wave.channels, 1, kMaxChannels);
    const unsigned codeBits = std::clamp(wave.sourceTag & 0xFu, 2u, 5u);
    switch (static_cast<AiffCodec>(wave.sourceTag >> 4)) {
    case AiffCodec::Ima4:
        return [channels] { return MakeIma4Decoder(channels); };
    case AiffCodec::Mace3:
        return [channels] { return MakeMaceDecoder(MaceRatio::Three, channels); };
    case AiffCodec::Mace6:
        return [channels] { return MakeMaceDecoder(MaceRatio::Six, channels); };
    case AiffCodec::Gsm:
        return [] { return MakeGsmDecoder(GsmFraming::ByteAligned, 0); };
    case AiffCodec::G722:
        return [] { return MakeG722Decoder(8, BitPacking::BigEndian); };
    case AiffCodec::G726:
        return [codeBits] { return MakeG726Decoder(codeBits, BitPacking::BigEndian); };
    default:
        return nullptr;
    }
}

bool LoadAiff(Waveform& wave, FileObject& file)
{
    const CodedFrames::Restart restart = RestartOf(wave);
    if (!restart)
        return Fail(u"Unknown sample format or compression");
    return LoadCodedStream(wave, file, wave.sourceOffset, wave.sourceBytes, restart);
}

std::unique_ptr<FrameSource> StreamAiff(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    CodedFrames::Restart restart = RestartOf(wave);
    if (file == nullptr || !restart) {
        Fail(u"Unknown sample format or compression");
        return nullptr;
    }
    FileObject& opened = *file;
    return std::make_unique<CodedFrames>(wave, wave.sourceOffset, wave.sourceBytes, std::move(restart),
                                         opened, std::move(file));
}

} // namespace

std::unique_ptr<StreamDecoder> MakeIma4Decoder(unsigned channels)
{
    return std::make_unique<Ima4Stream>(channels);
}

std::unique_ptr<StreamDecoder> MakeMaceDecoder(MaceRatio ratio, unsigned channels)
{
    return std::make_unique<MaceStream>(ratio, channels);
}

const ImportProcedure kAiffImport{10, LoadAiff, StreamAiff};

} // namespace vimbo
