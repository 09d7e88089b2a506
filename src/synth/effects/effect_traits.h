// How an effect treats its channel's bus: what its slot must know to let it sleep.
#pragma once

#include <cstdint>

namespace vimbo::synth {

enum class EffectActs : std::uint8_t {
    WhileFed,   ///< adds sound only while its send holds some
    WithTail,   ///< adds sound until its tail has faded
    OnDrySound, ///< multiplies the dry sound, fed or not
};

struct EffectTraits {
    EffectActs acts;
};

// An effect is a class with
//     static std::size_t MemoryNeeded(const ChannelFx&, double rate)  floats
//     bool Setup(const ChannelFx&, double rate)
//         false if what the memory holds is of no use any more: Clear must follow
//     void Clear(std::span<float> memory)     back to silence
//     bool IsActive() const                   false: the settings change nothing
//     std::uint64_t TailFrames() const        how long its state matters once the send is silent
//     void Process(StereoBlock& dry, const StereoBlock& send, float* memory)
// `memory` always holds at least MemoryNeeded() floats of the latest Setup. All are noexcept.

} // namespace vimbo::synth
