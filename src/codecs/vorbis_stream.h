// Ogg Vorbis streams through libvorbisfile and libvorbisenc: decoding from any frame, and encoding.
#pragma once

#include "codecs/packet_stream.h"

#include <memory>
#include <string>
#include <vector>

namespace vimbo {

/// What the stream says of itself.
struct VorbisInfo {
    unsigned channels = 0;
    std::uint32_t rateHz = 0;
    std::uint64_t frames = 0;
    float kbit = 0; ///< nominal rate, else the mean of the stream
};

/// Threads: one at a time for each object.
class VorbisDecoder final : public PacketDecoder {
public:
    VorbisDecoder();
    ~VorbisDecoder() override;

    /// Reads the headers and finds the length. `input` outlives the decoder. Chained streams count as one if
    /// they agree in channels and rate. Errors: "Could not open Ogg file", "Invalid Ogg header packet",
    /// "Couldn't get Ogg stream info", "Unknown Ogg length", "The Ogg streams in the file differ ...".
    [[nodiscard]] bool Open(ByteInput& input);
    const VorbisInfo& Info() const noexcept;
    /// "NAME=text" of the first stream, in UTF-8.
    std::vector<std::string> Comments() const;
    [[nodiscard]] bool Seek(std::uint64_t frame) override;
    /// Errors: "Corrupted Ogg data packet", also where data are missing between frames.
    [[nodiscard]] bool Read(std::span<float> out, std::size_t& frames) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

struct VorbisSettings {
    float quality = 0.5f; ///< -0.1 to 1.0; counts where `kbit` is 0
    float kbit = 0;       ///< nominal rate of all channels together, in kbit/s
    std::uint32_t rateHz = 44100;
    std::int32_t serial = 1;           ///< the Ogg stream's number
    std::vector<std::string> comments; ///< "NAME=text", UTF-8
};

/// The nominal rate at or below `kbit` that the encoder has for these channels and this rate, else the lowest
/// above; 0 if it cannot encode them at all.
float NearestVorbisKbit(unsigned channels, std::uint32_t rateHz, float kbit);

/// Threads: any number of objects at once, one thread each. The same input gives the same bytes.
class VorbisEncoder {
public:
    VorbisEncoder();
    ~VorbisEncoder();
    VorbisEncoder(const VorbisEncoder&) = delete;
    VorbisEncoder& operator=(const VorbisEncoder&) = delete;

    /// Writes the headers. `sink` outlives the encoder. Errors: "Could not initialize Ogg encoder with the
    /// selected format", "Could not initialize Ogg", "Couldn't write to file!".
    [[nodiscard]] bool Start(const VorbisSettings& settings, unsigned channels, ByteSink& sink);
    /// Interleaved samples, nominal range [-1, 1]. Errors: "Couldn't write to file!".
    [[nodiscard]] bool Put(std::span<const float> samples);
    [[nodiscard]] bool Finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vimbo
