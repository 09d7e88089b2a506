// MPEG layer III streams through LAME.
#pragma once

#include "codecs/mpeg_encoder.h"

#include <memory>

namespace vimbo {

/// How the bit rate comes about.
enum class Mp3RateMode : std::uint8_t {
    Constant, ///< each frame has `kbit`
    Average,  ///< the stream comes near to `kbit`
    Variable  ///< as the sound needs it, by `quality`
};

struct Mp3Settings {
    Mp3RateMode mode = Mp3RateMode::Constant;
    std::uint32_t rateHz = 44100; ///< of the sound and of the stream
    unsigned channels = 2;        ///< 1 or 2
    unsigned kbit = 128;          ///< the nearest rate that the stream can have is taken
    float quality = 4;            ///< 0 best to 9.999 smallest
};

/// The sample rate nearest to this one that MPEG audio has, 8000 to 48000 Hz.
std::uint32_t NearestMp3Rate(std::uint32_t rateHz) noexcept;

/// Threads: any number of objects at once, one thread each. The same input gives the same bytes.
class Mp3Encoder final : public MpegEncoder {
public:
    Mp3Encoder();
    ~Mp3Encoder() override;

    /// `sink` outlives the encoder. Errors: "Format not supported by MP3 encoder", "Out of memory",
    /// "Couldn't write to file!", "You need to install the free Lame_Enc.dll encoder add-on if you wish to
    /// compress MP3-audio."
    [[nodiscard]] bool Start(const Mp3Settings& settings, ByteSink& sink);
    unsigned Kbit() const noexcept override;
    [[nodiscard]] bool Put(std::span<const float> samples) override;
    /// Writes what is left, and into the first frame, which has no sound, how many frames (samples) at both
    /// ends are not the sound's: readers that know of it get back as many as were put in.
    [[nodiscard]] bool Finish() override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vimbo
