// What the encoders of MPEG audio share.
#pragma once

#include "codecs/packet_stream.h"

namespace vimbo {

/// An encoder that was started with a sink.
class MpegEncoder {
public:
    virtual ~MpegEncoder() = default;
    MpegEncoder(const MpegEncoder&) = delete;
    MpegEncoder& operator=(const MpegEncoder&) = delete;

    /// Bit rate of the stream in kbit/s; the mean or a lower bound where it varies.
    virtual unsigned Kbit() const noexcept = 0;
    /// Interleaved samples, nominal range [-1, 1]. Errors: "Stream error", "Couldn't write to file!".
    [[nodiscard]] virtual bool Put(std::span<const float> samples) = 0;
    /// Writes what is left. Errors: as Put.
    [[nodiscard]] virtual bool Finish() = 0;

protected:
    MpegEncoder() noexcept = default;
};

} // namespace vimbo
