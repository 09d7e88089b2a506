#include "codecs/dialogic.h"

#include "codecs/step_adpcm.h"

namespace vimbo {
namespace {

constexpr std::size_t kSteps = 49;
constexpr int kUnit = 16; // the coder's 12-bit unit in 16-bit samples

constexpr std::array<int, kSteps> kStepSizes{
    16,  17,  19,  21,  23,  25,  28,  31,  34,  37,  41,   45,   50,   55,   60,  66,  73,
    80,  88,  97,  107, 118, 130, 143, 157, 173, 190, 209,  230,  253,  279,  307, 337, 371,
    408, 449, 494, 544, 598, 658, 724, 796, 876, 963, 1060, 1166, 1282, 1411, 1552};
constexpr std::array<int, 8> kMoves{-1, -1, -1, -1, 2, 4, 6, 8};
constexpr StepTable<kSteps, 4> kTable{kStepSizes, kMoves, kUnit};

} // namespace

std::size_t DecodeDialogic(DialogicState& state, std::span<const std::byte> in, std::span<float> out) noexcept
{
    StepTrack<kSteps, 4> track(state.predictor, state.stepIndex);
    const std::size_t pairs = std::min(in.size(), out.size() / 2);
    for (std::size_t i = 0; i < pairs; ++i) {
        const auto codes = std::to_integer<unsigned>(in[i]);
        out[2 * i] = FromPcm16(track.Next(kTable, codes >> 4));
        out[2 * i + 1] = FromPcm16(track.Next(kTable, codes & 15));
    }
    std::size_t done = 2 * pairs;
    if (done < out.size() && pairs < in.size())
        out[done++] = FromPcm16(track.Next(kTable, std::to_integer<unsigned>(in[pairs]) >> 4));
    state = {track.Predictor(), track.Index()};
    return done;
}

} // namespace vimbo
