// What the codecs of compressed streams share: where their bytes come from and go to, and how they are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

/// Bytes that can be read from any place.
class ByteInput {
public:
    virtual ~ByteInput() = default;
    virtual std::uint64_t Size() const noexcept = 0;
    /// Reads up to out.size() bytes at `offset`. `got` falls short only at the end.
    /// @return false if the system reports a failure
    [[nodiscard]] virtual bool Read(std::uint64_t offset, std::span<std::byte> out,
                                    std::size_t& got) noexcept = 0;
};

/// Where an encoder's bytes go. Places count from the stream's first byte; only bytes that were written
/// before are written again.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    [[nodiscard]] virtual bool Write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept = 0;
};

/// A stream of packets that decode to frames, read from its start or from any frame.
class PacketDecoder {
public:
    virtual ~PacketDecoder() = default;
    PacketDecoder(const PacketDecoder&) = delete;
    PacketDecoder& operator=(const PacketDecoder&) = delete;

    /// Channels of the interleaved output.
    unsigned Channels() const noexcept { return channels_; }
    /// The next Read starts at `frame`. A place that the stream does not hold: false, without an error text,
    /// and the next Read starts at frame 0.
    [[nodiscard]] virtual bool Seek(std::uint64_t frame) = 0;
    /// Decodes the next frames. out.size() is a multiple of Channels().
    /// @param frames number decoded; fewer than asked for only at the stream's end
    /// @return false with the Last error text if the stream is damaged
    [[nodiscard]] virtual bool Read(std::span<float> out, std::size_t& frames) = 0;
    /// Decodes everything to count it, and goes back to frame 0. A damaged stream counts up to the damage.
    std::uint64_t CountFrames();

protected:
    PacketDecoder() noexcept = default;
    void SetChannels(unsigned channels) noexcept { channels_ = channels; }

private:
    unsigned channels_ = 0;
};

} // namespace vimbo
