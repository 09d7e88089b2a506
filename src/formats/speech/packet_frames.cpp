#include "formats/speech/packet_frames.h"

#include <algorithm>
#include <vector>

namespace vimbo {

bool PacketFrames::Read(std::uint32_t first, std::span<float> out)
{
    if (first != position_ && !MoveTo(first))
        return false;
    std::size_t frames = 0;
    if (!stream_.decoder->Read(out, frames))
        return false;
    std::ranges::fill(out.subspan(frames * Channels()), 0.0f);
    position_ = first + out.size() / Channels();
    return true;
}

/// Where seeking fails, because the stream is cut short or its places are wrong, decodes up to the place.
bool PacketFrames::MoveTo(std::uint32_t first)
{
    if (stream_.decoder->Seek(first))
        return true;
    constexpr std::size_t kPieceFrames = 16384;
    std::vector<float> skipped(kPieceFrames * Channels());
    for (std::uint64_t rest = first; rest > 0;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(rest, kPieceFrames));
        std::size_t frames = 0;
        if (!stream_.decoder->Read(std::span(skipped).first(wanted * Channels()), frames))
            return false;
        if (frames == 0)
            return true;
        rest -= frames;
    }
    return true;
}

} // namespace vimbo
