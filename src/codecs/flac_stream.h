// FLAC streams (RFC 9639) through libFLAC: decoding from any frame, and encoding.
#pragma once

#include "codecs/packet_stream.h"

#include <memory>
#include <string>
#include <vector>

namespace vimbo {

/// What STREAMINFO says.
struct FlacInfo {
    unsigned channels = 0; ///< 1 to 8
    std::uint32_t rateHz = 0;
    unsigned bits = 0;                ///< per sample, 4 to 32
    std::uint64_t frames = 0;         ///< 0: not said
    std::uint32_t maxBlockFrames = 0; ///< most frames that one packet holds
    std::uint64_t packetsAt = 0;      ///< place of the first packet in the input
};

/// Threads: one at a time for each object.
class FlacDecoder final : public PacketDecoder {
public:
    FlacDecoder();
    ~FlacDecoder() override;

    /// Reads the header. `input` outlives the decoder. Errors: "Not a FLAC file", "Out of memory".
    [[nodiscard]] bool Open(ByteInput& input);
    const FlacInfo& Info() const noexcept;
    [[nodiscard]] bool Seek(std::uint64_t frame) override;
    /// Samples are signed value / 2^(bits-1). Errors: "Corrupted FLAC data", "Out of memory". A stream that
    /// breaks off ends at its last whole packet.
    [[nodiscard]] bool Read(std::span<float> out, std::size_t& frames) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// How a stream is written, and what its metadata hold.
struct FlacSettings {
    unsigned bits = 16; ///< per sample, 4 to 24
    unsigned level = 5; ///< 0 fastest to 8 smallest
    std::uint32_t rateHz = 44100;
    std::vector<std::string> comments; ///< "NAME=text", UTF-8
    std::string pictureMime;
    std::vector<std::byte> picture;                 ///< front cover; empty: none
    std::vector<std::vector<std::byte>> riffBlocks; ///< bodies of APPLICATION blocks of id "riff"
};

/// Largest body of a metadata block (24 bits in its header).
inline constexpr std::size_t kFlacMaxBlockBytes = (1u << 24) - 1;

/// Threads: any number of objects at once, one thread each. The same input gives the same bytes.
class FlacEncoder {
public:
    FlacEncoder();
    ~FlacEncoder();
    FlacEncoder(const FlacEncoder&) = delete;
    FlacEncoder& operator=(const FlacEncoder&) = delete;

    /// Writes the header. `sink` outlives the encoder. @param frames how many will follow
    /// Errors: "Could not initialize FLAC encoder with the selected format", "Couldn't write to file!".
    [[nodiscard]] bool Start(const FlacSettings& settings, unsigned channels, std::uint64_t frames,
                             ByteSink& sink);
    /// Interleaved samples, signed, of the settings' width. Errors: "Couldn't write to file!".
    [[nodiscard]] bool Put(std::span<const std::int32_t> samples);
    /// Writes what is left, and the header again with checksum and sizes.
    [[nodiscard]] bool Finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vimbo
