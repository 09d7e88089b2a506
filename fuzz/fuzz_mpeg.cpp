// Any bytes as a stream of MPEG audio: read from the start and from some frame on; and frame after frame of
// any bytes under the first header, which no search has looked at.
#include "codecs/mpeg_stream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

class Input final : public ByteInput {
public:
    explicit Input(std::span<const std::byte> bytes) noexcept : bytes_(bytes) {}
    std::uint64_t Size() const noexcept override { return bytes_.size(); }
    bool Read(std::uint64_t offset, std::span<std::byte> out, std::size_t& got) noexcept override
    {
        got = offset < bytes_.size() ? std::min<std::size_t>(out.size(), bytes_.size() - offset) : 0;
        if (got != 0)
            std::ranges::copy(bytes_.subspan(offset, got), out.begin());
        return true;
    }

private:
    std::span<const std::byte> bytes_;
};

void CheckStream(std::span<const std::byte> bytes, std::uint32_t place)
{
    constexpr std::size_t kMostFrames = 1u << 17;
    Input input(bytes);
    MpegStream stream;
    if (!stream.Open(input))
        return;
    const MpegInfo& info = stream.Info();
    const std::size_t count = std::min<std::uint64_t>(info.frames, kMostFrames);
    std::vector<float> whole(count * stream.Channels());
    std::size_t frames = 0;
    Require(stream.Read(whole, frames) && frames == count);
    for (const float sample : whole)
        Require(std::isfinite(sample));
    if (count == 0)
        return;
    const std::size_t from = place % count;
    std::vector<float> part(std::min<std::size_t>(count - from, 2000) * stream.Channels());
    Require(stream.Seek(from) && stream.Read(part, frames) && frames * stream.Channels() == part.size());
    // Frames of constant rate reach back by as many bytes as a seek looks at; damaged ones may say anything.
    const auto there = std::span(whole).subspan(from * stream.Channels(), part.size());
    Require(std::ranges::equal(part, there));
}

void CheckFrames(std::span<const std::byte> bytes)
{
    MpegHeader header;
    if (!ParseMpegHeader(bytes.first(std::min<std::size_t>(bytes.size(), 4)), header))
        return;
    MpegDecoder decoder;
    std::vector<float> out(header.Frames() * header.Channels());
    const std::size_t step = std::max<std::size_t>(header.FrameBytes(), 100);
    for (unsigned i = 0; i < 20 && !bytes.empty(); ++i) {
        const auto frame = bytes.first(std::min(step, bytes.size()));
        Require(decoder.Decode(header, std::vector(frame.begin(), frame.end()), out) == header.Frames());
        for (const float sample : out)
            Require(std::isfinite(sample));
        bytes = bytes.subspan(frame.size());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t kPlaceBytes = 3;
    if (size < kPlaceBytes)
        return 0;
    const auto bytes = std::as_bytes(std::span(data, size)).subspan(kPlaceBytes);
    CheckStream(bytes, data[0] | std::uint32_t{data[1]} << 8 | std::uint32_t{data[2]} << 16);
    CheckFrames(bytes);
    return 0;
}
