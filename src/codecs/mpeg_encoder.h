// What the encoders of MPEG audio share.
#pragma once

#include "codecs/packet_stream.h"

#include <algorithm>
#include <cstdint>
#include <span>

namespace vimbo {

/// The one of an encoder's sample rates (at least one) that is nearest; of two the first.
inline std::uint32_t NearestRate(std::span<const std::uint32_t> ratesHz, std::uint32_t rateHz) noexcept
{
    const auto distance = [rateHz](std::uint32_t rate) {
        return rate > rateHz ? rate - rateHz : rateHz - rate;
    };
    return *std::ranges::min_element(ratesHz, {}, distance);
}

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
