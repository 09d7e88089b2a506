// The sample encoders behind one interface, and the writing of a waveform through one, piece by piece.
#pragma once

#include "codecs/bits.h"
#include "codecs/gsm.h"
#include "model/frame_source.h"

#include "base/file_object.h"

#include <memory>
#include <string_view>

namespace vimbo {

/// A mono encoder with its state.
class StreamEncoder {
public:
    virtual ~StreamEncoder() = default;
    StreamEncoder(const StreamEncoder&) = delete;
    StreamEncoder& operator=(const StreamEncoder&) = delete;

    /// Pieces hold a whole number of units, but for the last one of a stream.
    std::size_t UnitFrames() const noexcept { return unitFrames_; }
    /// Bytes that a stream, or a piece of whole units, of `frames` frames encodes to.
    virtual std::uint64_t BytesFor(std::uint64_t frames) const noexcept = 0;
    /// Encodes a piece. @return bytes written, BytesFor(in.size())
    virtual std::size_t Encode(std::span<const float> in, std::span<std::byte> out) = 0;

protected:
    explicit StreamEncoder(std::size_t unitFrames) noexcept : unitFrames_(unitFrames) {}

private:
    std::size_t unitFrames_;
};

std::unique_ptr<StreamEncoder> MakeG726Encoder(unsigned bits, BitPacking packing);
std::unique_ptr<StreamEncoder> MakeG722Encoder(unsigned bits, BitPacking packing);
std::unique_ptr<StreamEncoder> MakeGsmEncoder(GsmFraming framing);
/// GSM in the records of 38 bytes that US Robotics modems use.
std::unique_ptr<StreamEncoder> MakeUsrGsmEncoder();

/// Encodes all frames of a mono source to the file's position. Errors: those of the source, and `writeError`.
[[nodiscard]] bool WriteEncoded(FileObject& file, FrameSource& source, StreamEncoder& encoder,
                                std::u16string_view writeError);

} // namespace vimbo
