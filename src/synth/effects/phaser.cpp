#include "synth/effects/phaser.h"

#include "dsp/kernels/lane_vectors.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

constexpr float kDeepest = 0.99f;
constexpr float kMostFeedback = 0.99f;
constexpr float kLoopLimit = 2;

struct Row {
    float* outputs; ///< of all stages, whole fours
    std::size_t fours;
    std::size_t last; ///< the stage that is heard
    float input;
    float feedback;
};

/// A stage is y = c (x - y1) + x1, that is c x plus what the frame before left. Four stages in a vector:
/// first what is left over from the frame before alone, carried through the four; then the input times c,
/// c^2, c^3, c^4. So the next four wait for one product and sum instead of four.
VIMBO_INLINE float RunRow(Row& row, float send, float c) noexcept
{
    const Float4 zero{};
    const float c2 = c * c;
    const Float4 powers = {c, c2, c2 * c, c2 * c2};
    const float fedBack = row.outputs[row.last] * row.feedback + send;
    const float low = fedBack > -kLoopLimit ? fedBack : -kLoopLimit;
    float in = low < kLoopLimit ? low : kLoopLimit;
    float before = row.input; // what the first of the four had as input
    row.input = in;
    for (std::size_t four = 0; four < row.fours; ++four) {
        Float4 y1;
        Load(y1, row.outputs + 4 * four);
        Float4 x1 = __builtin_shufflevector(y1, zero, 0, 0, 1, 2);
        x1[0] = before;
        before = y1[3];
        Float4 left = x1 - c * y1;
        left = left + c * __builtin_shufflevector(left, zero, 4, 0, 1, 2);
        left = left + c2 * __builtin_shufflevector(left, zero, 4, 5, 0, 1);
        const Float4 y = left + powers * in;
        Store(row.outputs + 4 * four, y);
        in = y[3];
    }
    return row.outputs[row.last];
}

/// Once per block is enough, and keeps two sums out of the loop that everything waits for.
VIMBO_INLINE void FlushRow(Row& row) noexcept
{
    for (std::size_t i = 0; i < 4 * row.fours; ++i)
        Flush(row.outputs[i]);
    Flush(row.input);
}

struct Sides {
    Row left, right;
    float leftFrom, leftStep, rightFrom, rightStep; ///< delay of a stage in frames
    float outGain;
};

struct RunSides {
    template <Isa>
    VIMBO_INLINE static void Corners(float* __restrict c, float from, float step) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            const float m = from + step * static_cast<float>(static_cast<std::int32_t>(n) + 1);
            c[n] = (1 - m) / (1 + m);
        }
    }
    template <Isa Version>
    VIMBO_INLINE static void Run(Sides* sides, StereoBlock* dry, const StereoBlock* send) noexcept
    {
        StereoBlock corners;
        Corners<Version>(corners.left, sides->leftFrom, sides->leftStep);
        Corners<Version>(corners.right, sides->rightFrom, sides->rightStep);
        Row left = sides->left, right = sides->right;
        const float outGain = sides->outGain;
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            dry->left[n] += RunRow(left, send->left[n], corners.left[n]) * outGain;
            dry->right[n] += RunRow(right, send->right[n], corners.right[n]) * outGain;
        }
        FlushRow(left);
        FlushRow(right);
        sides->left.input = left.input;
        sides->right.input = right.input;
    }
};

} // namespace

bool Phaser::Setup(const ChannelFx& fx, double rate) noexcept
{
    lfo_.Set(ByteOf(fx, 2), ValueOf(fx, 1, 0, EffectLfo::kHighestHz), rate);
    depth_ = ValueOf(fx, 2, 0, kDeepest);
    const auto seconds = static_cast<double>(ValueOf(fx, 3, 0, 1));
    stages_ = static_cast<std::size_t>(Limited(rate * seconds + 0.5, 1, kMaxStages));
    feedback_ = ValueOf(fx, 4, -kMostFeedback, kMostFeedback);
    outGain_ = static_cast<float>(PortablePower(static_cast<double>(feedback_) + 1, -0.2));
    rightOffset_ = 0;
    if (ByteOf(fx, 1) != 0) {
        const OscillatorShape shape = lfo_.Shape();
        const bool isRound = shape == OscillatorShape::Sine || shape == OscillatorShape::Triangle;
        rightOffset_ = isRound ? 0.25f : shape == OscillatorShape::Square ? 0.5f : 0.0f;
    }
    // A stage delays by 1 - depth to 1 + depth frames at low, by the inverse at high frequencies; its own
    // state fades over as many frames as the longer of both.
    const double slowest = 1 / (1 - static_cast<double>(depth_));
    const double rounds = RoundsUntilSilence(static_cast<double>(feedback_)) + 14;
    tailFrames_ = static_cast<std::uint64_t>(static_cast<double>(stages_) * slowest * rounds);
    return true;
}

void Phaser::Clear(std::span<float>) noexcept
{
    lfo_.Restart(0);
    for (std::size_t side = 0; side < 2; ++side) {
        stretch_[side] = Stretch(side);
        input_[side] = 0;
        outputs_[side] = {};
    }
}

float Phaser::Stretch(std::size_t side) const noexcept
{
    return lfo_.Value(side == 1 ? rightOffset_ : 0) * depth_ + 1;
}

void Phaser::Process(StereoBlock& dry, const StereoBlock& send, float*) noexcept
{
    lfo_.Advance();
    const float left = Stretch(0), right = Stretch(1);
    const std::size_t fours = (stages_ + 3) / 4;
    constexpr auto kFrames = static_cast<float>(kBlockFrames);
    Sides sides{{outputs_[0].data(), fours, stages_ - 1, input_[0], feedback_},
                {outputs_[1].data(), fours, stages_ - 1, input_[1], feedback_},
                stretch_[0],
                (left - stretch_[0]) / kFrames,
                stretch_[1],
                (right - stretch_[1]) / kFrames,
                outGain_};
    RunBest<RunSides>(&sides, &dry, &send);
    input_ = {sides.left.input, sides.right.input};
    stretch_ = {left, right};
}

} // namespace vimbo::synth
