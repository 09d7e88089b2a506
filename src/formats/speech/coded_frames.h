// Coded sample streams read front to back in pieces: one road from any codec to a waveform's samples.
#pragma once

#include "codecs/bits.h"
#include "codecs/gsm.h"
#include "model/waveform.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace vimbo {

/// A codec with its state, as the reading of a stream sees it.
class StreamDecoder {
public:
    virtual ~StreamDecoder() = default;
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;

    /// Pieces hold a whole number of units, but for the last one of a stream.
    std::size_t UnitBytes() const noexcept { return unitBytes_; }
    /// Channels of the interleaved output.
    unsigned Channels() const noexcept { return channels_; }
    /// Most frames that `bytes` bytes decode to.
    virtual std::uint64_t FramesIn(std::uint64_t bytes) const noexcept = 0;
    /// Decodes a piece. @return frames written, at most FramesIn(in.size())
    virtual std::size_t Decode(std::span<const std::byte> in, std::span<float> out) = 0;
    /// True if the stream is broken at this place and nothing behind it can be decoded.
    virtual bool IsCorrupted() const noexcept { return false; }

protected:
    StreamDecoder(std::size_t unitBytes, unsigned channels) noexcept
        : unitBytes_(unitBytes), channels_(channels)
    {
    }

private:
    std::size_t unitBytes_;
    unsigned channels_;
};

/// Coefficient pairs of MS ADPCM, flat: last, before last, last ...
std::unique_ptr<StreamDecoder> MakeMsAdpcmDecoder(std::size_t blockBytes, unsigned channels,
                                                  std::vector<std::int16_t> coefficients);
/// @param blockFrames most frames that a block gives, 0 if the file does not say
std::unique_ptr<StreamDecoder> MakeImaDecoder(std::size_t blockBytes, unsigned channels, unsigned bits,
                                              std::size_t blockFrames);
std::unique_ptr<StreamDecoder> MakeDialogicDecoder();
std::unique_ptr<StreamDecoder> MakeYamahaDecoder(unsigned channels);
std::unique_ptr<StreamDecoder> MakeRockwellDecoder(unsigned bits);
std::unique_ptr<StreamDecoder> MakeG726Decoder(unsigned bits, BitPacking packing);
std::unique_ptr<StreamDecoder> MakeG722Decoder(unsigned bits, BitPacking packing);
/// @param sliceBytes the stream is cut into slices of this size, of which only whole frames count; 0: it is
/// not cut
std::unique_ptr<StreamDecoder> MakeGsmDecoder(GsmFraming framing, std::size_t sliceBytes);
/// GSM of US Robotics modems: records of 38 bytes with a two-byte head, or bare frames of 33.
std::unique_ptr<StreamDecoder> MakeUsrGsmDecoder();

/// Frames of a coded stream. Reading goes forward; a step back starts the stream again. Frames behind the
/// stream's end are silent. Of more than two channels the first two are kept.
class CodedFrames final : public FrameSource {
public:
    /// Makes a fresh decoder at the start of the stream; called again after a step back.
    using Restart = std::function<std::unique_ptr<StreamDecoder>()>;

    /// @param owned null if the caller keeps the file open as long as this lives
    CodedFrames(const Waveform& wave, std::uint64_t offset, std::uint64_t bytes, Restart restart,
                FileObject& file, std::unique_ptr<FileObject> owned);

    [[nodiscard]] bool Read(std::uint32_t first, std::span<float> out) override;

private:
    void Rewind();
    bool DecodePiece();
    std::size_t TakeDecoded(std::span<float> out) noexcept;

    FileObject& file_;
    std::unique_ptr<FileObject> owned_;
    std::uint64_t offset_;
    std::uint64_t bytes_;
    Restart restart_;
    std::unique_ptr<StreamDecoder> decoder_;
    std::uint64_t read_ = 0;     ///< bytes of the stream that were read
    std::uint64_t position_ = 0; ///< frame that the next decoded sample belongs to
    std::vector<std::byte> raw_;
    std::vector<float> decoded_;
    std::size_t taken_ = 0; ///< frames of decoded_ that were handed out
    std::size_t held_ = 0;  ///< frames in decoded_
};

/// Decodes a whole stream into the waveform's block. Where the waveform claims far more frames than the
/// stream can give, its length is lowered to what is there. Errors: "Zero length", "Out of memory", "Reading
/// from file failed", "Corrupted GSM stream".
[[nodiscard]] bool LoadCodedStream(Waveform& wave, FileObject& file, std::uint64_t offset,
                                   std::uint64_t bytes, const CodedFrames::Restart& restart);

} // namespace vimbo
