#include "synth/effects/reverb.h"

#include "dsp/kernels/lane_vectors.h"
#include "synth/effects/ring.h"

#include <cmath>

namespace vimbo::synth {
namespace {

constexpr double kTableRate = 44100;
constexpr double kSpread = 11.5; // frames at that rate: left lines are shorter, right ones longer
constexpr std::array<double, Reverb::kCombs> kCombTable = {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617};
constexpr std::array<double, Reverb::kAllPasses> kAllPassTable = {556, 441, 341, 225};
constexpr float kInputGain = 0.029698484f;
constexpr float kLongestSeconds = 10;
constexpr float kGateThreshold = 0.01f; // -40 dB
constexpr double kFollowerSeconds = 0.1;

template <std::size_t Count>
std::array<std::size_t, 2 * Count> LineFrames(const std::array<double, Count>& table, double rate) noexcept
{
    std::array<std::size_t, 2 * Count> frames{};
    const double scale = LimitedRate(rate) / kTableRate;
    for (std::size_t i = 0; i < Count; ++i) {
        frames[i] = static_cast<std::size_t>((table[i] - kSpread) * scale);
        frames[Count + i] = static_cast<std::size_t>((table[i] + kSpread) * scale);
    }
    return frames;
}

constexpr std::size_t kLines = 2 * Reverb::kCombs;
using Row = std::array<float, kBlockFrames>; // of one comb
using Rows = std::array<Row, kLines>;

/// All combs for `count` frames, a multiple of four. Each place holds what comes out of a line, and then what
/// goes into it. Combs lie side by side in the vectors, since each waits for its own frame before.
struct RunAllCombs {
    template <class V>
    VIMBO_INLINE static void Frame(V& v, V& damped, float in, float damping, float feedback) noexcept
    {
        damped = (damped - v) * damping + v;
        v = damped * feedback + in;
        Flush(v);
    }

    /// Four frames of one vector of combs.
    template <class V>
    VIMBO_INLINE static void Frames(float* const* at, std::size_t n, V& damped, const float* in,
                                    float damping, float feedback) noexcept
    {
        constexpr std::size_t kUpper = kWidth<V> - 4;
        V v[4];
        for (std::size_t i = 0; i < 4; ++i)
            LoadQuads(v[i], at[i] + n, at[kUpper + i] + n);
        Transpose(v[0], v[1], v[2], v[3]);
        for (std::size_t i = 0; i < 4; ++i)
            Frame(v[i], damped, in[n + i], damping, feedback);
        Transpose(v[0], v[1], v[2], v[3]);
        for (std::size_t i = 0; i < 4; ++i)
            StoreQuads(at[i] + n, at[kUpper + i] + n, v[i]);
    }

    template <Isa Version>
    VIMBO_INLINE static void Run(float* const* at, const float* in, float* states, float damping,
                                 float feedback, std::size_t count) noexcept
    {
        using V = Floats<Version>;
        V damped[kLines / kWidth<V>];
        for (std::size_t group = 0; group < kLines / kWidth<V>; ++group)
            Load(damped[group], states + group * kWidth<V>);
        for (std::size_t n = 0; n < count; n += 4) {
            for (std::size_t group = 0; group < kLines / kWidth<V>; ++group)
                Frames(at + group * kWidth<V>, n, damped[group], in, damping, feedback);
        }
        for (std::size_t group = 0; group < kLines / kWidth<V>; ++group)
            Store(states + group * kWidth<V>, damped[group]);
    }
};

struct SumCombs {
    template <Isa>
    VIMBO_INLINE static void Run(float* const* at, float* __restrict out, std::size_t count) noexcept
    {
        for (std::size_t n = 0; n < count; ++n) {
            float sum = at[0][n];
            for (std::size_t comb = 1; comb < Reverb::kCombs; ++comb)
                sum += at[comb][n];
            out[n] = sum;
        }
    }
};

struct AllPass {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict sound, float* __restrict line, std::size_t count) noexcept
    {
        constexpr float kGain = 0.5f;
        for (std::size_t n = 0; n < count; ++n) {
            const float old = line[n];
            const float in = (sound[n] + old * kGain + kFlush) - kFlush;
            line[n] = in;
            sound[n] = old - in * kGain;
        }
    }
};

struct AddRamped {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict dry, const float* __restrict sound, float from,
                                 float step) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n)
            dry[n] += sound[n] * (from + step * static_cast<float>(static_cast<std::int32_t>(n) + 1));
    }
};

float PeakOf(const StereoBlock& block) noexcept
{
    float peak = 0;
    for (std::size_t n = 0; n < kBlockFrames; ++n)
        peak = std::max({peak, std::fabs(block.left[n]), std::fabs(block.right[n])});
    return peak;
}

float StepPerBlock(double seconds, double rate) noexcept
{
    return static_cast<float>(std::min(kBlockFrames / (seconds * rate + 1e-9), 1.0));
}

} // namespace

// ---- The gate

void ReverbGate::Set(Mode mode, double attackSeconds, double holdSeconds, double releaseSeconds,
                     double rate) noexcept
{
    if (mode != mode_)
        Close();
    mode_ = mode;
    attackStep_ = StepPerBlock(attackSeconds, rate);
    releaseStep_ = StepPerBlock(releaseSeconds, rate);
    holdBlocks_ = static_cast<float>(holdSeconds * rate / kBlockFrames);
    followerDecay_ = DecayOverTime(kFollowerSeconds, rate / kBlockFrames);
}

void ReverbGate::Close() noexcept
{
    stage_ = Stage::Closed;
    gain_ = heldBlocks_ = 0;
    follower_ = 0;
}

bool ReverbGate::IsOpened(float peak) noexcept
{
    const bool isLoud = peak >= kGateThreshold;
    const bool isOnset = isLoud && peak > 2 * follower_;
    follower_ = std::max(peak, follower_ * followerDecay_ + kFlush);
    return mode_ == Mode::Keyed ? isLoud : isOnset;
}

float ReverbGate::Advance(float peak) noexcept
{
    if (IsOpened(peak)) {
        if (stage_ != Stage::Hold)
            stage_ = Stage::Attack;
        heldBlocks_ = 0;
    }
    if (stage_ == Stage::Attack) {
        gain_ += attackStep_;
        if (gain_ >= 1) {
            gain_ = 1;
            stage_ = Stage::Hold;
        }
    } else if (stage_ == Stage::Hold) {
        heldBlocks_ += 1;
        if (heldBlocks_ > holdBlocks_)
            stage_ = Stage::Release;
    }
    if (stage_ == Stage::Release) {
        gain_ -= releaseStep_;
        if (gain_ <= 0) {
            gain_ = 0;
            stage_ = Stage::Closed;
        }
    }
    return gain_;
}

// ---- The room

std::array<std::size_t, 2 * Reverb::kCombs> Reverb::CombFrames(double rate) noexcept
{
    return LineFrames(kCombTable, rate);
}

std::array<std::size_t, 2 * Reverb::kAllPasses> Reverb::AllPassFrames(double rate) noexcept
{
    return LineFrames(kAllPassTable, rate);
}

std::size_t Reverb::MemoryNeeded(const ChannelFx&, double rate) noexcept
{
    std::size_t sum = 0;
    for (const std::size_t frames : CombFrames(rate))
        sum += frames;
    for (const std::size_t frames : AllPassFrames(rate))
        sum += frames;
    return sum;
}

void Reverb::SetLines(double rate) noexcept
{
    std::size_t offset = 0, shortest = kBlockFrames;
    const auto set = [&](std::span<Line> lines, std::span<const std::size_t> frames) {
        for (std::size_t i = 0; i < lines.size(); ++i) {
            lines[i] = {offset, frames[i], 0};
            offset += frames[i];
            shortest = std::min(shortest, frames[i]);
        }
    };
    set(combs_, CombFrames(rate));
    set(allPasses_, AllPassFrames(rate));
    chunk_ = shortest / 4 * 4;
    memoryUsed_ = offset;
}

bool Reverb::Setup(const ChannelFx& fx, double rate) noexcept
{
    const bool keeps = MemoryNeeded(fx, rate) == memoryUsed_;
    if (!keeps)
        SetLines(rate);
    feedback_ = ValueOf(fx, 1, 0, 1) * 0.28f + 0.7f;
    damping_ = ValueOf(fx, 2, 0, 1) * 0.4f;
    const std::uint8_t mode = std::min<std::uint8_t>(ByteOf(fx, 1), 2);
    const auto seconds = [&fx](std::size_t number) {
        return static_cast<double>(ValueOf(fx, number, 0, kLongestSeconds));
    };
    gate_.Set(static_cast<ReverbGate::Mode>(mode), seconds(3), seconds(4), seconds(5), rate);
    const auto longestComb = static_cast<double>(combs_.back().frames);
    const std::size_t longestAllPass = allPasses_[kAllPasses].frames;
    tailFrames_ = longestAllPass + static_cast<std::uint64_t>(
                                       longestComb * RoundsUntilSilence(static_cast<double>(feedback_)));
    return keeps;
}

void Reverb::Clear(std::span<float> memory) noexcept
{
    std::ranges::fill(memory.first(memoryUsed_), 0.0f);
    for (Line& line : combs_)
        line.place = 0;
    for (Line& line : allPasses_)
        line.place = 0;
    damped_ = {};
    gate_.Close();
}

void Reverb::RunCombs(std::size_t count, const float* in, float* left, float* right, float* memory) noexcept
{
    alignas(32) Rows rows; // of lines that end within these frames; the others are worked on in place
    std::array<float*, kLines> at;
    for (std::size_t i = 0; i < kLines; ++i) {
        const Line& line = combs_[i];
        at[i] = memory + line.offset + line.place;
        if (line.frames - line.place < count) {
            ReadRing(memory + line.offset, line.frames, line.place, rows[i].data(), count);
            at[i] = rows[i].data();
        }
    }
    RunBest<SumCombs>(at.data(), left, count);
    RunBest<SumCombs>(at.data() + kCombs, right, count);
    RunBest<RunAllCombs>(at.data(), in, damped_.data(), damping_, feedback_, count);
    for (std::size_t i = 0; i < kLines; ++i) {
        Line& line = combs_[i];
        if (line.frames - line.place < count)
            WriteRing(memory + line.offset, line.frames, line.place, rows[i].data(), count);
        line.place = StepRing(line.frames, line.place, count);
    }
}

void Reverb::RunAllPasses(std::span<Line> lines, std::size_t count, float* sound, float* memory) noexcept
{
    for (Line& line : lines) {
        float* const ring = memory + line.offset;
        const std::size_t first = std::min(count, line.frames - line.place);
        RunBest<AllPass>(sound, ring + line.place, first);
        RunBest<AllPass>(sound + first, ring, count - first);
        line.place = StepRing(line.frames, line.place, count);
    }
}

void Reverb::Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept
{
    StereoBlock wet;
    alignas(32) std::array<float, kBlockFrames> in;
    for (std::size_t n = 0; n < kBlockFrames; ++n)
        in[n] = send.left[n] * kInputGain;
    for (std::size_t first = 0; first < kBlockFrames; first += chunk_) {
        const std::size_t count = std::min(chunk_, kBlockFrames - first);
        float *const left = wet.left + first, *const right = wet.right + first;
        RunCombs(count, in.data() + first, left, right, memory);
        RunAllPasses(std::span(allPasses_).first<kAllPasses>(), count, left, memory);
        RunAllPasses(std::span(allPasses_).last<kAllPasses>(), count, right, memory);
    }
    const bool isGated = gate_.GetMode() != ReverbGate::Mode::Off;
    const float from = isGated ? gate_.Gain() : 1.0f;
    const float to = isGated ? gate_.Advance(PeakOf(send)) : 1.0f;
    const float step = (to - from) / static_cast<float>(kBlockFrames);
    RunBest<AddRamped>(dry.left, wet.left, from, step);
    RunBest<AddRamped>(dry.right, wet.right, from, step);
}

} // namespace vimbo::synth
