// GSM 06.10: any bytes as frames, whole and in pieces, and any floats to encode. First byte: framing and
// lengths.
#include "codecs/gsm.h"
#include "codecs/gsm_frame.h"

#include <cmath>
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

std::vector<float> Decode(GsmFraming framing, std::span<const std::byte> bytes, std::size_t room)
{
    GsmDecoder state;
    std::vector<float> out(room);
    const std::size_t written = DecodeGsm(state, framing, bytes, out);
    const std::size_t expected = std::min(room, GsmDecodedSamples(framing, bytes.size()));
    Require(state.corrupted ? framing == GsmFraming::Raw && written < expected : written == expected);
    out.resize(written);
    for (const float sample : out)
        Require(std::abs(sample) <= 1.0f && std::fmod(sample, 0x1p-12f) == 0.0f);
    return out;
}

void CheckPieces(GsmFraming framing, std::span<const std::byte> bytes, const std::vector<float>& whole)
{
    GsmDecoder state;
    std::vector<float> joined;
    const std::size_t step = GsmEncodedBytes(framing, 1);
    for (; !bytes.empty() && !state.corrupted; bytes = bytes.subspan(std::min(step, bytes.size()))) {
        std::vector<float> piece(kGsmWavBlockSamples);
        piece.resize(DecodeGsm(state, framing, bytes.first(std::min(step, bytes.size())), piece));
        joined.insert(joined.end(), piece.begin(), piece.end());
    }
    Require(joined == whole);
}

void CheckPacking(std::span<const std::byte> bytes, std::size_t first, BitPacking packing)
{
    std::vector<std::byte> block(kGsmWavBlockBytes + 7);
    std::copy_n(bytes.begin(), std::min(bytes.size(), kGsmWavBlockBytes), block.begin());
    GsmFrame frame, again;
    UnpackGsmFrame(frame, block, first, packing);
    std::fill(block.begin(), block.end(), std::byte{0});
    PackGsmFrame(frame, block, first, packing);
    UnpackGsmFrame(again, block, first, packing);
    Require(std::memcmp(&frame, &again, sizeof frame) == 0);
}

/// The bytes as 16-bit samples, or as floats of any kind.
void CheckEncoder(GsmFraming framing, std::span<const std::byte> bytes, bool areFloats)
{
    std::vector<float> sound(bytes.size() / (areFloats ? sizeof(float) : sizeof(std::int16_t)));
    for (std::size_t i = 0; i < sound.size(); ++i) {
        std::int16_t sample = 0;
        if (areFloats)
            std::memcpy(&sound[i], bytes.data() + i * sizeof(float), sizeof(float));
        else
            std::memcpy(&sample, bytes.data() + i * sizeof sample, sizeof sample);
        if (!areFloats)
            sound[i] = static_cast<float>(sample) / 32768.0f;
    }
    GsmEncoder state;
    std::vector<std::byte> coded(GsmEncodedBytes(framing, sound.size()));
    Require(EncodeGsm(state, framing, sound, coded) == coded.size());
    const std::size_t room = GsmDecodedSamples(framing, coded.size());
    Require(room >= sound.size() && Decode(framing, coded, room).size() == room);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const auto bytes = std::as_bytes(std::span(data, size)).subspan(1);
    const auto framing = static_cast<GsmFraming>(data[0] % 3);
    const std::size_t most = GsmDecodedSamples(framing, bytes.size());
    const std::vector<float> whole = Decode(framing, bytes, most);
    CheckPieces(framing, bytes, whole);
    const std::vector<float> part = Decode(GsmFraming::ByteAligned, bytes, most * data[0] / 255);
    Require(framing != GsmFraming::ByteAligned || std::equal(part.begin(), part.end(), whole.begin()));
    CheckPacking(bytes, 4, BitPacking::BigEndian);
    CheckPacking(bytes, 260, BitPacking::LittleEndian);
    CheckEncoder(framing, bytes, data[0] >= 128);
    return 0;
}
