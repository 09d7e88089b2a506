// The sample codecs as stream decoders: units, frame counts and states. No codec's arithmetic is here.
#include "codecs/dialogic.h"
#include "codecs/g722.h"
#include "codecs/g726.h"
#include "codecs/ima.h"
#include "codecs/ms_adpcm.h"
#include "codecs/rockwell.h"
#include "codecs/yamaha.h"
#include "formats/speech/coded_frames.h"

#include <algorithm>
#include <array>

namespace vimbo {

namespace {

/// Codecs of independent blocks: each block of a piece by itself, the last one as far as it goes.
class BlockDecoder : public StreamDecoder {
public:
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept final
    {
        const auto rest = static_cast<std::size_t>(bytes % UnitBytes());
        return bytes / UnitBytes() * BlockFrames(UnitBytes()) + BlockFrames(rest);
    }

    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) final
    {
        std::size_t frames = 0;
        while (!in.empty()) {
            const auto block = in.first(std::min(in.size(), UnitBytes()));
            const auto place = out.subspan(frames * Channels());
            frames += DecodeBlock(
                block, place.first(std::min(place.size(), BlockFrames(block.size()) * Channels())));
            in = in.subspan(block.size());
        }
        return frames;
    }

protected:
    /// A block that the file calls empty cannot be walked: everything is then one block.
    BlockDecoder(std::size_t blockBytes, unsigned channels) noexcept
        : StreamDecoder(blockBytes != 0 ? blockBytes : kLargestBlock, channels)
    {
    }
    virtual std::size_t BlockFrames(std::size_t bytes) const noexcept = 0;
    virtual std::size_t DecodeBlock(std::span<const std::byte> block, std::span<float> out) noexcept = 0;

private:
    static constexpr std::size_t kLargestBlock = 65536;
};

class MsAdpcmStream final : public BlockDecoder {
public:
    MsAdpcmStream(std::size_t blockBytes, unsigned channels, std::span<const std::int16_t> coefficients)
        : BlockDecoder(blockBytes, channels)
    {
        for (std::size_t i = 0; i + 1 < coefficients.size(); i += 2)
            pairs_.push_back({coefficients[i], coefficients[i + 1]});
    }

protected:
    std::size_t BlockFrames(std::size_t bytes) const noexcept override
    {
        return MsAdpcmBlockFrames(bytes, Channels());
    }
    std::size_t DecodeBlock(std::span<const std::byte> block, std::span<float> out) noexcept override
    {
        return DecodeMsAdpcmBlock(pairs_, block, Channels(), out);
    }

private:
    std::vector<MsAdpcmCoefficients> pairs_;
};

class ImaStream final : public BlockDecoder {
public:
    ImaStream(std::size_t blockBytes, unsigned channels, unsigned bits, std::size_t blockFrames)
        : BlockDecoder(blockBytes, channels), bits_(bits), blockFrames_(blockFrames)
    {
    }

protected:
    std::size_t BlockFrames(std::size_t bytes) const noexcept override
    {
        const std::size_t frames = ImaBlockFrames(bytes, Channels(), bits_);
        return blockFrames_ != 0 ? std::min(frames, blockFrames_) : frames;
    }
    std::size_t DecodeBlock(std::span<const std::byte> block, std::span<float> out) noexcept override
    {
        return DecodeImaBlock(block, Channels(), bits_, out);
    }

private:
    unsigned bits_;
    std::size_t blockFrames_;
};

class DialogicStream final : public StreamDecoder {
public:
    DialogicStream() noexcept : StreamDecoder(1, 1) {}
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override { return bytes * 2; }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return DecodeDialogic(state_, in, out);
    }

private:
    DialogicState state_;
};

class YamahaStream final : public StreamDecoder {
public:
    explicit YamahaStream(unsigned channels) noexcept : StreamDecoder(1, channels > 1 ? 2 : 1) {}
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override { return bytes * 2 / Channels(); }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return Channels() == 1 ? DecodeYamahaMono(states_[0], in, out) : DecodeYamahaStereo(states_, in, out);
    }

private:
    std::array<YamahaState, 2> states_;
};

class RockwellStream final : public StreamDecoder {
public:
    explicit RockwellStream(unsigned bits) noexcept : StreamDecoder(bits == 3 ? 3 : 1, 1), bits_(bits) {}
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override { return bytes * 8 / bits_; }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return DecodeRockwell(state_, bits_, in, out);
    }

private:
    unsigned bits_;
    RockwellState state_;
};

class G726Stream final : public StreamDecoder {
public:
    G726Stream(unsigned bits, BitPacking packing) noexcept
        : StreamDecoder(bits, 1), bits_(bits), packing_(packing)
    {
    }
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override { return bytes * 8 / bits_; }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return DecodeG726(state_, bits_, packing_, in, out);
    }

private:
    unsigned bits_;
    BitPacking packing_;
    G726State state_;
};

class G722Stream final : public StreamDecoder {
public:
    G722Stream(unsigned bits, BitPacking packing) noexcept
        : StreamDecoder(bits, 1), bits_(bits), packing_(packing)
    {
    }
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override { return bytes * 8 / bits_ * 2; }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        return DecodeG722(state_, bits_, packing_, in, out);
    }

private:
    unsigned bits_;
    BitPacking packing_;
    G722State state_;
};

/// GSM frames; a stream that is cut into slices loses what does not fill a block at a slice's end.
class GsmStream final : public StreamDecoder {
public:
    GsmStream(GsmFraming framing, std::size_t sliceBytes) noexcept
        : StreamDecoder(sliceBytes != 0 ? sliceBytes : BlockBytes(framing), 1), framing_(framing)
    {
    }
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override
    {
        const auto rest = static_cast<std::size_t>(bytes % UnitBytes());
        return bytes / UnitBytes() * GsmDecodedSamples(framing_, UnitBytes()) +
               GsmDecodedSamples(framing_, rest);
    }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        std::size_t samples = 0;
        while (!in.empty() && !state_.corrupted) {
            const auto slice = in.first(std::min(in.size(), UnitBytes()));
            samples += DecodeGsm(state_, framing_, slice, out.subspan(samples));
            in = in.subspan(slice.size());
        }
        return samples;
    }
    bool IsCorrupted() const noexcept override { return state_.corrupted; }

private:
    static std::size_t BlockBytes(GsmFraming framing) noexcept
    {
        return framing == GsmFraming::Wav ? kGsmWavBlockBytes : kGsmFrameBytes;
    }

    GsmFraming framing_;
    GsmDecoder state_;
};

/// Records of 38 bytes. One that begins with 254 or 182, or whose byte 35 is 0, holds its frame behind two
/// bytes; any other is taken for a bare frame of 33 bytes. Each costs 38 bytes of the stream's length, so
/// streams of bare frames end early: that is how the format's own readers count.
class UsrGsmStream final : public StreamDecoder {
public:
    UsrGsmStream() noexcept : StreamDecoder(kRecordBytes, 1) {}
    std::uint64_t FramesIn(std::uint64_t bytes) const noexcept override
    {
        return bytes / kRecordBytes * kGsmFrameSamples;
    }
    std::size_t Decode(std::span<const std::byte> in, std::span<float> out) override
    {
        pending_.insert(pending_.end(), in.begin(), in.end());
        std::size_t samples = 0;
        std::size_t at = 0;
        for (std::size_t records = in.size() / kRecordBytes; records > 0; --records) {
            const auto record = std::span(pending_).subspan(at, kRecordBytes);
            const bool headed = IsHeaded(record);
            const auto frame = record.subspan(headed ? kHeadBytes : 0, kGsmFrameBytes);
            samples += DecodeGsm(state_, GsmFraming::ByteAligned, frame, out.subspan(samples));
            at += headed ? kRecordBytes : kGsmFrameBytes;
        }
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
        return samples;
    }

private:
    static constexpr std::size_t kRecordBytes = 38;
    static constexpr std::size_t kHeadBytes = 2;

    static bool IsHeaded(std::span<const std::byte> record) noexcept
    {
        return record[0] == std::byte{254} || record[0] == std::byte{182} || record[35] == std::byte{0};
    }

    GsmDecoder state_;
    std::vector<std::byte> pending_; ///< bytes that bare frames left over
};

} // namespace

std::unique_ptr<StreamDecoder> MakeMsAdpcmDecoder(std::size_t blockBytes, unsigned channels,
                                                  std::vector<std::int16_t> coefficients)
{
    return std::make_unique<MsAdpcmStream>(blockBytes, channels, coefficients);
}

std::unique_ptr<StreamDecoder> MakeImaDecoder(std::size_t blockBytes, unsigned channels, unsigned bits,
                                              std::size_t blockFrames)
{
    return std::make_unique<ImaStream>(blockBytes, channels, bits, blockFrames);
}

std::unique_ptr<StreamDecoder> MakeDialogicDecoder()
{
    return std::make_unique<DialogicStream>();
}

std::unique_ptr<StreamDecoder> MakeYamahaDecoder(unsigned channels)
{
    return std::make_unique<YamahaStream>(channels);
}

std::unique_ptr<StreamDecoder> MakeRockwellDecoder(unsigned bits)
{
    return std::make_unique<RockwellStream>(bits);
}

std::unique_ptr<StreamDecoder> MakeG726Decoder(unsigned bits, BitPacking packing)
{
    return std::make_unique<G726Stream>(bits, packing);
}

std::unique_ptr<StreamDecoder> MakeG722Decoder(unsigned bits, BitPacking packing)
{
    return std::make_unique<G722Stream>(bits, packing);
}

std::unique_ptr<StreamDecoder> MakeGsmDecoder(GsmFraming framing, std::size_t sliceBytes)
{
    return std::make_unique<GsmStream>(framing, sliceBytes);
}

std::unique_ptr<StreamDecoder> MakeUsrGsmDecoder()
{
    return std::make_unique<UsrGsmStream>();
}

} // namespace vimbo
