// Sounds for the effects' tests, and a slot that runs over them block by block.
#pragma once

#include "synth/effects/effect_slot.h"

#include <cmath>
#include <functional>
#include <vector>

namespace vimbo::synth::testing {

struct Sound {
    std::vector<float> left, right;

    explicit Sound(std::size_t frames = 0) : left(frames), right(frames) {}
    std::size_t Frames() const { return left.size(); }
    std::vector<float>& Side(std::size_t side) { return side == 0 ? left : right; }
    const std::vector<float>& Side(std::size_t side) const { return side == 0 ? left : right; }
};

inline Sound Make(std::size_t frames, const std::function<double(std::size_t)>& left,
                  const std::function<double(std::size_t)>& right)
{
    Sound sound(frames);
    for (std::size_t n = 0; n < frames; ++n) {
        sound.left[n] = static_cast<float>(left(n));
        sound.right[n] = static_cast<float>(right(n));
    }
    return sound;
}
inline Sound Make(std::size_t frames, const std::function<double(std::size_t)>& both)
{
    return Make(frames, both, both);
}
inline Sound Impulse(std::size_t frames)
{
    return Make(frames, [](std::size_t n) { return n == 0 ? 1.0 : 0.0; });
}
inline Sound Sine(std::size_t frames, double hz, double rate, double gain = 1)
{
    return Make(frames, [=](std::size_t n) {
        return gain * std::sin(6.283185307179586 * hz * static_cast<double>(n) / rate);
    });
}
inline Sound Noise(std::size_t frames, double gain = 1)
{
    SynthRandom random;
    return Make(frames, [&, gain](std::size_t) { return gain * static_cast<double>(random.NextBipolar()); });
}

inline ChannelFx Fx(ChannelFxType type, std::array<std::uint8_t, 3> bytes, std::array<float, 5> values)
{
    return {type, bytes, values};
}

inline void Prepare(EffectSlot& slot, const ChannelFx& fx, double rate)
{
    slot.Reserve(EffectSlot::MemoryNeeded(fx, rate));
    slot.Setup(fx, rate);
}

inline void Load(StereoBlock& block, const Sound& sound, std::size_t at)
{
    for (std::size_t n = 0; n < kBlockFrames; ++n) {
        block.left[n] = at + n < sound.Frames() ? sound.left[at + n] : 0;
        block.right[n] = at + n < sound.Frames() ? sound.right[at + n] : 0;
    }
}

/// What dry holds after the slot; `dry` is silence where it is shorter than `send`.
inline Sound Play(EffectSlot& slot, const Sound& send, const Sound& dry = Sound())
{
    Sound out = send;
    for (std::size_t at = 0; at + kBlockFrames <= send.Frames(); at += kBlockFrames) {
        StereoBlock sendBlock, dryBlock;
        Load(sendBlock, send, at);
        Load(dryBlock, dry, at);
        slot.Process(dryBlock, sendBlock, false, false);
        std::copy_n(dryBlock.left, kBlockFrames, out.left.data() + at);
        std::copy_n(dryBlock.right, kBlockFrames, out.right.data() + at);
    }
    return out;
}
inline Sound Play(const ChannelFx& fx, double rate, const Sound& send, const Sound& dry = Sound())
{
    EffectSlot slot;
    Prepare(slot, fx, rate);
    return Play(slot, send, dry);
}

/// Root mean square of a range of one side.
inline double Level(const std::vector<float>& side, std::size_t from, std::size_t to)
{
    double sum = 0;
    for (std::size_t n = from; n < to; ++n)
        sum += static_cast<double>(side[n]) * static_cast<double>(side[n]);
    return std::sqrt(sum / static_cast<double>(to - from));
}
inline float Peak(const std::vector<float>& side, std::size_t from, std::size_t to)
{
    float peak = 0;
    for (std::size_t n = from; n < to; ++n)
        peak = std::max(peak, std::fabs(side[n]));
    return peak;
}
inline double Decibels(double gain)
{
    return 20 * std::log10(gain);
}

} // namespace vimbo::synth::testing
