#include "formats/speech/stream_encoders.h"

#include "base/last_error.h"
#include "codecs/g722.h"
#include "codecs/g726.h"

#include <algorithm>
#include <array>
#include <vector>

namespace vimbo {

namespace {

constexpr std::size_t kPieceFrames = 32768;

class G726Writer final : public StreamEncoder {
public:
    G726Writer(unsigned bits, BitPacking packing) noexcept : StreamEncoder(8), bits_(bits), packing_(packing)
    {
    }
    std::uint64_t BytesFor(std::uint64_t frames) const noexcept override { return (frames * bits_ + 7) / 8; }
    std::size_t Encode(std::span<const float> in, std::span<std::byte> out) override
    {
        return EncodeG726(state_, bits_, packing_, in, out);
    }

private:
    unsigned bits_;
    BitPacking packing_;
    G726State state_;
};

class G722Writer final : public StreamEncoder {
public:
    G722Writer(unsigned bits, BitPacking packing) noexcept : StreamEncoder(16), bits_(bits), packing_(packing)
    {
    }
    std::uint64_t BytesFor(std::uint64_t frames) const noexcept override
    {
        return ((frames + 1) / 2 * bits_ + 7) / 8;
    }
    std::size_t Encode(std::span<const float> in, std::span<std::byte> out) override
    {
        return EncodeG722(state_, bits_, packing_, in, out);
    }

private:
    unsigned bits_;
    BitPacking packing_;
    G722State state_;
};

class GsmWriter final : public StreamEncoder {
public:
    explicit GsmWriter(GsmFraming framing) noexcept
        : StreamEncoder(framing == GsmFraming::Wav ? kGsmWavBlockSamples : kGsmFrameSamples),
          framing_(framing)
    {
    }
    std::uint64_t BytesFor(std::uint64_t frames) const noexcept override
    {
        return GsmEncodedBytes(framing_, static_cast<std::size_t>(frames));
    }
    std::size_t Encode(std::span<const float> in, std::span<std::byte> out) override
    {
        return EncodeGsm(state_, framing_, in, out);
    }

private:
    GsmFraming framing_;
    GsmEncoder state_;
};

class UsrGsmWriter final : public StreamEncoder {
public:
    UsrGsmWriter() noexcept : StreamEncoder(kGsmFrameSamples) {}
    std::uint64_t BytesFor(std::uint64_t frames) const noexcept override
    {
        return (frames + kGsmFrameSamples - 1) / kGsmFrameSamples * kRecordBytes;
    }
    std::size_t Encode(std::span<const float> in, std::span<std::byte> out) override
    {
        std::size_t written = 0;
        while (!in.empty() && out.size() - written >= kRecordBytes) {
            const auto frame = in.first(std::min(in.size(), kGsmFrameSamples));
            const auto record = out.subspan(written, kRecordBytes);
            std::ranges::fill(record, std::byte{0});
            record[0] = record[1] = std::byte{254};
            EncodeGsm(state_, GsmFraming::ByteAligned, frame, record.subspan(2, kGsmFrameBytes));
            in = in.subspan(frame.size());
            written += kRecordBytes;
        }
        return written;
    }

private:
    static constexpr std::size_t kRecordBytes = 38;
    GsmEncoder state_;
};

} // namespace

std::unique_ptr<StreamEncoder> MakeG726Encoder(unsigned bits, BitPacking packing)
{
    return std::make_unique<G726Writer>(bits, packing);
}

std::unique_ptr<StreamEncoder> MakeG722Encoder(unsigned bits, BitPacking packing)
{
    return std::make_unique<G722Writer>(bits, packing);
}

std::unique_ptr<StreamEncoder> MakeGsmEncoder(GsmFraming framing)
{
    return std::make_unique<GsmWriter>(framing);
}

std::unique_ptr<StreamEncoder> MakeUsrGsmEncoder()
{
    return std::make_unique<UsrGsmWriter>();
}

bool WriteEncoded(FileObject& file, FrameSource& source, StreamEncoder& encoder,
                  std::u16string_view writeError)
{
    const std::size_t most =
        std::max<std::size_t>(kPieceFrames / encoder.UnitFrames(), 1) * encoder.UnitFrames();
    std::vector<float> samples(std::min<std::size_t>(most, source.Frames()));
    std::vector<std::byte> bytes(static_cast<std::size_t>(encoder.BytesFor(samples.size())));
    for (std::uint64_t first = 0; first < source.Frames(); first += most) {
        const auto piece = std::span(samples).first(
            static_cast<std::size_t>(std::min<std::uint64_t>(most, source.Frames() - first)));
        if (!source.Read(static_cast<std::uint32_t>(first), piece))
            return false;
        const std::size_t encoded = encoder.Encode(piece, bytes);
        if (!file.WriteAll(std::span<const std::byte>(bytes).first(encoded)))
            return Fail(writeError);
    }
    return true;
}

} // namespace vimbo
