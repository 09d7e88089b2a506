// MPEG layer II streams through TwoLAME.
#pragma once

#include "codecs/mpeg_encoder.h"

#include <memory>

namespace vimbo {

struct Mp2Settings {
    std::uint32_t rateHz = 44100; ///< of the sound and of the stream
    unsigned channels = 2;        ///< 1 or 2
    unsigned kbit = 192; ///< the next rate from there that the stream can have is taken, or its highest
};

/// The sample rate nearest to this one that layer II has, 16000 to 48000 Hz.
std::uint32_t NearestMp2Rate(std::uint32_t rateHz) noexcept;

/// Readers get back more frames than were put in: nothing in the stream says how many are the encoder's.
/// Threads: any number of objects at once, one thread each. The same input gives the same bytes.
class Mp2Encoder final : public MpegEncoder {
public:
    Mp2Encoder();
    ~Mp2Encoder() override;

    /// `sink` outlives the encoder. Errors: "Format not supported by MP2 encoder", "Out of memory",
    /// "You need to install the free tooLameF.dll encoder add-on if you wish to compress MP3-audio."
    [[nodiscard]] bool Start(const Mp2Settings& settings, ByteSink& sink);
    unsigned Kbit() const noexcept override;
    [[nodiscard]] bool Put(std::span<const float> samples) override;
    [[nodiscard]] bool Finish() override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vimbo
