// G.722 and G.726: any bytes, widths, rooms and pieces. Nothing past the counted samples is touched, pieces
// give what the whole gives, and the same holds for the encoders with any floats.
#include "codecs/g722.h"
#include "codecs/g726.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

struct G722 {
    using State = G722State;
    static constexpr auto kDecode = DecodeG722;
    static constexpr auto kEncode = EncodeG722;
    static constexpr std::size_t kSamples = 2; ///< for each code
    static constexpr unsigned kLowest = 6, kHighest = 8;
};

struct G726 {
    using State = G726State;
    static constexpr auto kDecode = DecodeG726;
    static constexpr auto kEncode = EncodeG726;
    static constexpr std::size_t kSamples = 1;
    static constexpr unsigned kLowest = 2, kHighest = 5;
};

struct Choice {
    unsigned bits;
    BitPacking packing;
    std::size_t split, room;
};

template <class Codec>
std::vector<float> CheckDecoder(const Choice& choice, std::span<const std::byte> bytes)
{
    constexpr float kUntouched = 9.0f;
    const bool known = choice.bits >= Codec::kLowest && choice.bits <= Codec::kHighest;
    const std::size_t all = known ? bytes.size() * 8 / choice.bits * Codec::kSamples : 0;

    typename Codec::State state;
    std::vector<float> whole(all);
    Require(Codec::kDecode(state, choice.bits, choice.packing, bytes, whole) == all);
    Require(std::all_of(whole.begin(), whole.end(), [](float x) { return x >= -1.0f && x < 1.0f; }));

    typename Codec::State shortState;
    std::vector<float> few(choice.room, kUntouched);
    const std::size_t count = Codec::kDecode(shortState, choice.bits, choice.packing, bytes, few);
    Require(count == std::min(all, few.size()));
    Require(std::equal(few.begin(), few.begin() + static_cast<std::ptrdiff_t>(count), whole.begin()));
    Require(std::all_of(few.begin() + static_cast<std::ptrdiff_t>(count), few.end(),
                        [](float x) { return x == kUntouched; }));

    typename Codec::State pieces;
    std::vector<float> joined(all);
    const std::size_t cut = std::min(choice.split * choice.bits, bytes.size());
    const std::size_t first = Codec::kDecode(pieces, choice.bits, choice.packing, bytes.first(cut), joined);
    Codec::kDecode(pieces, choice.bits, choice.packing, bytes.subspan(cut), std::span(joined).subspan(first));
    Require(joined == whole);
    return whole;
}

template <class Codec>
void CheckEncoder(const Choice& choice, std::span<const float> sound)
{
    typename Codec::State state, pieces;
    std::vector<std::byte> whole(sound.size() * 2 + 1), joined(whole.size());
    const std::size_t bytes = Codec::kEncode(state, choice.bits, choice.packing, sound, whole);
    const std::size_t codes = (sound.size() + Codec::kSamples - 1) / Codec::kSamples;
    const bool known = choice.bits >= Codec::kLowest && choice.bits <= Codec::kHighest;
    Require(bytes == (known ? (codes * choice.bits + 7) / 8 : 0));

    const std::size_t cut = std::min(choice.split * 16, sound.size());
    const std::size_t first = Codec::kEncode(pieces, choice.bits, choice.packing, sound.first(cut), joined);
    Codec::kEncode(pieces, choice.bits, choice.packing, sound.subspan(cut), std::span(joined).subspan(first));
    Require(joined == whole);

    typename Codec::State shortState;
    std::vector<std::byte> few(choice.room);
    Require(Codec::kEncode(shortState, choice.bits, choice.packing, sound, few) <= few.size());
}

template <class Codec>
void Check(const Choice& choice, std::span<const std::byte> bytes)
{
    const std::vector<float> sound = CheckDecoder<Codec>(choice, bytes);
    CheckEncoder<Codec>(choice, sound);
    std::vector<float> wild(bytes.size() / sizeof(float));
    if (!wild.empty())
        std::memcpy(wild.data(), bytes.data(), wild.size() * sizeof(float));
    CheckEncoder<Codec>(choice, wild);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3)
        return 0;
    const Choice choice{data[0] & 15u, (data[0] & 16) != 0 ? BitPacking::BigEndian : BitPacking::LittleEndian,
                        data[1], data[2] * 5u};
    const std::vector<std::byte> bytes(reinterpret_cast<const std::byte*>(data) + 3,
                                       reinterpret_cast<const std::byte*>(data) + size);
    Check<G722>(choice, bytes);
    Check<G726>(choice, bytes);
    return 0;
}
