// What the tests of the speech coders share: sounds made with whole numbers only, so that their codes can be
// spelled out, and how to compare.
#pragma once

#include "codecs/adpcm_witness.h"
#include "codecs/bits.h"

namespace vimbo::testing {

/// Triangles of rising pitch under hiss, at a loudness that jumps every 1000 samples. Peaks below 15000.
inline Pcm Warble(std::size_t count)
{
    Random random(22);
    std::uint32_t slow = 0, fast = 0;
    const auto triangle = [](std::uint32_t phase) {
        const int place = static_cast<int>(phase >> 16);
        return place < 32768 ? place - 16384 : 49152 - place;
    };
    constexpr std::array<int, 8> kLoudness = {220, 30, 0, 128, 256, 4, 90, 180};
    Pcm out(count);
    for (std::size_t k = 0; k < count; ++k) {
        slow += 0x01000000u + static_cast<std::uint32_t>(k) * 0x1000u;
        fast += 0x0A000000u + static_cast<std::uint32_t>(k) * 0x8000u;
        const int hiss = static_cast<int>(random.Below(601)) - 300;
        const int mix = triangle(slow) * 5 / 8 + triangle(fast) / 4 + hiss;
        out[k] = static_cast<std::int16_t>(mix * kLoudness[k / 1000 % kLoudness.size()] / 256);
    }
    return out;
}

/// Codes of `bits` bits that stay the same for up to 700 samples: they drive a coder to its limits, as no
/// sound does.
inline Bytes LongRuns(unsigned bits, BitPacking packing, std::size_t codes)
{
    Random random(31);
    Bytes out((codes * bits + 7) / 8);
    CodeWriter writer(out, packing);
    for (std::size_t left = codes; left > 0;) {
        const std::size_t length =
            std::min<std::size_t>(left, 1 + random.Below(random.Below(4) == 0 ? 700 : 20));
        const unsigned code = random.Below(1u << bits);
        for (std::size_t k = 0; k < length; ++k)
            writer.Put(code, bits);
        left -= length;
    }
    writer.Finish();
    return out;
}

/// FNV-1a of 64 bits.
inline std::uint64_t HashOf(std::span<const std::byte> bytes)
{
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const std::byte value : bytes)
        hash = (hash ^ std::to_integer<std::uint64_t>(value)) * 0x100000001B3u;
    return hash;
}

inline std::uint64_t HashOf(const Pcm& samples)
{
    return HashOf(ToBytes(samples));
}

} // namespace vimbo::testing
