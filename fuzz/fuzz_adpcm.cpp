// The ADPCM decoders on any bytes, channels and room, whole and in two parts, and their encoders on any
// floats. First four bytes: codec, channels, bits per code, room for the output.
#include "codecs/dialogic.h"
#include "codecs/ima.h"
#include "codecs/ms_adpcm.h"
#include "codecs/rockwell.h"
#include "codecs/vag.h"
#include "codecs/yamaha.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using namespace vimbo;
using In = std::span<const std::byte>;

struct Shape {
    unsigned codec;
    std::size_t channels;
    unsigned bits;
    std::size_t room; // samples
};

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

std::vector<ImaState> SomeStates(const Shape& shape)
{
    return std::vector<ImaState>(shape.channels, ImaState{-700, 40});
}

std::size_t Decode(const Shape& shape, In in, std::span<float> out)
{
    DialogicState dialogic;
    std::array<YamahaState, 2> yamaha;
    RockwellState rockwell;
    VagState vag;
    auto ima = SomeStates(shape);
    std::array<MsAdpcmCoefficients, 2> pairs;
    std::memcpy(pairs.data(), in.data(), std::min(sizeof(pairs), in.size()));
    switch (shape.codec % 9) {
    case 0:
        return DecodeImaBlock(in, shape.channels, shape.bits, out) * shape.channels;
    case 1:
        return DecodeIma4(ima, in, out) * shape.channels;
    case 2:
        return DecodeMsAdpcmBlock({}, in, shape.channels, out) * shape.channels;
    case 3:
        return DecodeMsAdpcmBlock(pairs, in, shape.channels, out) * shape.channels;
    case 4:
        return DecodeDialogic(dialogic, in, out);
    case 5:
        return DecodeYamahaMono(yamaha[0], in, out);
    case 6:
        return DecodeYamahaStereo(yamaha, in, out) * 2;
    case 7:
        return DecodeRockwell(rockwell, shape.bits, in, out);
    default:
        Require(OutlineVag(in).samples <= in.size() * 2);
        return DecodeVag(vag, in, out);
    }
}

/// Output of one decoder, which has to be in range and to leave alone what it does not count.
std::vector<float> CheckedDecode(const Shape& shape, In in, std::size_t room)
{
    constexpr float kUntouched = 9.0f;
    std::vector<float> out(room, kUntouched);
    const std::size_t samples = Decode(shape, in, out);
    Require(samples <= room);
    const auto end = out.begin() + static_cast<std::ptrdiff_t>(samples);
    Require(std::all_of(out.begin(), end, [](float x) { return x >= -1.0f && x < 1.0f; }));
    Require(std::all_of(end, out.end(), [](float x) { return x == kUntouched; }));
    out.resize(samples);
    return out;
}

void CheckEncoders(const Shape& shape, In in)
{
    std::vector<float> floats(in.size() / sizeof(float));
    if (!floats.empty())
        std::memcpy(floats.data(), in.data(), floats.size() * sizeof(float));
    auto states = SomeStates(shape);
    std::vector<std::byte> out(shape.room);
    Require(EncodeImaBlock(states, floats, out) <= out.size());
    Require(EncodeIma4(states, floats, out) <= out.size());
    const VagLoop loop{shape.room, shape.room + 9 * shape.channels};
    const std::size_t bytes = EncodeVag(floats, loop, out);
    Require(bytes <= out.size() &&
            (out.size() < VagBytes(floats.size()) || bytes == VagBytes(floats.size())));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t kHead = 4;
    if (size < kHead)
        return 0;
    const Shape shape{data[0], data[1] % 40u, data[2] % 6u, data[3] * std::size_t{67}};
    const In in = std::as_bytes(std::span(data, size)).subspan(kHead);
    const auto wide = CheckedDecode(shape, in, in.size() * 16 + 64);
    const auto narrow = CheckedDecode(shape, in, shape.room);
    Require(std::equal(narrow.begin(),
                       narrow.begin() + static_cast<std::ptrdiff_t>(std::min(narrow.size(), wide.size())),
                       wide.begin()));
    CheckEncoders(shape, in);
    return 0;
}
