#include "codecs/packet_stream.h"

#include <vector>

namespace vimbo {

std::uint64_t PacketDecoder::CountFrames()
{
    constexpr std::size_t kPieceFrames = 16384;
    std::vector<float> piece(kPieceFrames * channels_);
    std::uint64_t count = 0;
    std::size_t frames = 0;
    static_cast<void>(Seek(0));
    while (Read(piece, frames) && frames > 0)
        count += frames;
    static_cast<void>(Seek(0));
    return count;
}

} // namespace vimbo
