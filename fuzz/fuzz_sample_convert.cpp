// Any bytes in any layout: the fast conversions give what the plain ones give, and touch nothing outside
// their spans. Input: one byte each of coding, flags and bytes to leave off the end, then the samples.
#include "dsp/kernels/sample_convert.h"

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

bool SameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

std::vector<float> CheckDecoding(const SampleLayout& layout, std::span<const std::byte> bytes,
                                 std::size_t samples)
{
    // Vectors of exact size, so that a step outside is seen.
    const std::vector<std::byte> exact(bytes.begin(), bytes.end());
    std::vector<float> fast(samples), plain(samples);
    DeltaState fastState, plainState;
    DecodeSamples(layout, exact, fast, fastState);
    DecodeSamplesPlain(layout, exact, plain, plainState);
    Require(SameBits(fast, plain) && fastState.previous == plainState.previous);
    return fast;
}

void CheckEncoding(const SampleLayout& layout, const std::vector<float>& samples, std::size_t missing)
{
    const std::size_t stored = static_cast<std::size_t>(StoredBytes(layout.coding, samples.size()));
    const std::size_t room = stored - std::min(missing, stored);
    std::vector<std::byte> fast(room), plain(room);
    DeltaState fastState, plainState;
    EncodeSamples(layout, samples, fast, fastState);
    EncodeSamplesPlain(layout, samples, plain, plainState);
    Require(fast == plain && fastState.previous == plainState.previous);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t kHead = 3;
    if (size < kHead)
        return 0;
    SampleLayout layout;
    layout.coding = static_cast<SampleCoding>(data[0] % (static_cast<unsigned>(SampleCoding::Delta16) + 1));
    layout.isUnsigned = (data[1] & 1) != 0;
    layout.order = (data[1] & 2) != 0 ? std::endian::big : std::endian::little;
    const std::size_t missing = data[2];

    const auto bytes = std::as_bytes(std::span(data, size)).subspan(kHead);
    const std::size_t samples = bytes.size() * 8 / StoredBits(layout.coding) + missing % 8;
    const std::vector<float> decoded = CheckDecoding(layout, bytes, samples);
    CheckEncoding(layout, decoded, missing);

    // The same bytes as floats reach values that no decoding gives.
    std::vector<float> raw(bytes.size() / sizeof(float));
    if (!raw.empty())
        std::memcpy(raw.data(), bytes.data(), raw.size() * sizeof(float));
    CheckEncoding(layout, raw, missing);
    return 0;
}
