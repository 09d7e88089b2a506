#include "codecs/yamaha.h"

#include "codecs/pcm16.h"

#include <array>

namespace vimbo {
namespace {

constexpr int kSmallestStep = 127, kLargestStep = 24576;
constexpr std::array<int, 16> kEighths{1, 3, 5, 7, 9, 11, 13, 15, -1, -3, -5, -7, -9, -11, -13, -15};
// 256 = 1; by the code's lower three bits.
constexpr std::array<int, 8> kGrowth{230, 230, 230, 230, 307, 409, 512, 614};

/// Copies of the state stay in registers; a caller's record would be stored after every sample.
class Track {
public:
    explicit Track(const YamahaState& state) noexcept
        : predictor_(Clamp16(state.predictor)), step_(std::clamp(state.step, kSmallestStep, kLargestStep))
    {
    }

    float Next(unsigned code) noexcept
    {
        predictor_ = Clamp16(predictor_ + kEighths[code] * step_ / 8);
        step_ = std::clamp(kGrowth[code & 7] * step_ >> 8, kSmallestStep, kLargestStep);
        return FromPcm16(predictor_);
    }

    YamahaState State() const noexcept { return {predictor_, step_}; }

private:
    int predictor_, step_;
};

} // namespace

std::size_t DecodeYamahaMono(YamahaState& state, std::span<const std::byte> in, std::span<float> out) noexcept
{
    Track track(state);
    const std::size_t pairs = std::min(in.size(), out.size() / 2);
    for (std::size_t i = 0; i < pairs; ++i) {
        const auto codes = std::to_integer<unsigned>(in[i]);
        out[2 * i] = track.Next(codes & 15);
        out[2 * i + 1] = track.Next(codes >> 4);
    }
    std::size_t done = 2 * pairs;
    if (done < out.size() && pairs < in.size())
        out[done++] = track.Next(std::to_integer<unsigned>(in[pairs]) & 15);
    state = track.State();
    return done;
}

std::size_t DecodeYamahaStereo(std::span<YamahaState, 2> states, std::span<const std::byte> in,
                               std::span<float> out) noexcept
{
    Track left(states[0]), right(states[1]);
    const std::size_t frames = std::min(in.size(), out.size() / 2);
    for (std::size_t i = 0; i < frames; ++i) {
        const auto codes = std::to_integer<unsigned>(in[i]);
        out[2 * i] = left.Next(codes & 15);
        out[2 * i + 1] = right.Next(codes >> 4);
    }
    states[0] = left.State();
    states[1] = right.State();
    return frames;
}

} // namespace vimbo
