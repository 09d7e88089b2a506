#include "synth/effects/effect_slot.h"

#include "dsp/kernels/lane_vectors.h"

#include <cmath>
#include <new>
#include <utility>

namespace vimbo::synth {
namespace {

constexpr StereoBlock kSilence{};

struct FindUnsound {
    template <Isa>
    VIMBO_INLINE static void Run(const StereoBlock* block, bool* found) noexcept
    {
        std::int32_t bad = 0;
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            bad |= std::fabs(block->left[n]) <= EffectSlot::kLoudest ? 0 : 1;
            bad |= std::fabs(block->right[n]) <= EffectSlot::kLoudest ? 0 : 1;
        }
        *found = bad != 0;
    }
};

float Sound(float x) noexcept
{
    return x == x ? Limited(x, -EffectSlot::kLoudest, EffectSlot::kLoudest) : 0.0f;
}

/// The block itself, or a corrected copy in `copy`.
const StereoBlock& SoundBlock(const StereoBlock& block, StereoBlock& copy) noexcept
{
    bool isUnsound = false;
    RunBest<FindUnsound>(&block, &isUnsound);
    if (!isUnsound)
        return block;
    for (std::size_t n = 0; n < kBlockFrames; ++n) {
        copy.left[n] = Sound(block.left[n]);
        copy.right[n] = Sound(block.right[n]);
    }
    return copy;
}

} // namespace

std::size_t EffectSlot::MemoryNeeded(const ChannelFx& fx, double rate) noexcept
{
    rate = LimitedRate(rate);
    switch (fx.type) {
    case ChannelFxType::Chorus:
        return Chorus::MemoryNeeded(fx, rate);
    case ChannelFxType::Reverb:
        return Reverb::MemoryNeeded(fx, rate);
    case ChannelFxType::Delay:
        return Delay::MemoryNeeded(fx, rate);
    default:
        return 0;
    }
}

void EffectSlot::Reserve(std::size_t floats) noexcept
{
    if (floats <= capacity_)
        return;
    try {
        std::unique_ptr<float[]> old = Adopt(std::make_unique<float[]>(floats), floats);
    } catch (const std::bad_alloc&) {
        return; // Setup finds too little and switches the slot off
    }
}

std::unique_ptr<float[]> EffectSlot::Adopt(std::unique_ptr<float[]> memory, std::size_t floats) noexcept
{
    if (!memory)
        floats = 0;
    if (floats < floatsUsed_)
        Start(ChannelFxType::None);
    if (floatsUsed_ > 0)
        std::copy_n(memory_.get(), floatsUsed_, memory.get());
    capacity_ = floats;
    std::swap(memory_, memory);
    return memory;
}

/// Follows ChannelFxType: each type's place in the variant is its number.
void EffectSlot::Start(ChannelFxType type) noexcept
{
    static_assert(std::is_same_v<std::variant_alternative_t<8, Effect>, TransientShaper>);
    type_ = type;
    floatsUsed_ = 0;
    isAsleep_ = true;
    silentFrames_ = 0;
    switch (type) {
    case ChannelFxType::Chorus:
        effect_.emplace<Chorus>();
        break;
    case ChannelFxType::Reverb:
        effect_.emplace<Reverb>();
        break;
    case ChannelFxType::Delay:
        effect_.emplace<Delay>();
        break;
    case ChannelFxType::Tremolo:
        effect_.emplace<Tremolo>();
        break;
    case ChannelFxType::Compressor:
        effect_.emplace<Compressor>();
        break;
    case ChannelFxType::Distortion:
        effect_.emplace<Distortion>();
        break;
    case ChannelFxType::Phaser:
        effect_.emplace<Phaser>();
        break;
    case ChannelFxType::Transient:
        effect_.emplace<TransientShaper>();
        break;
    default:
        type_ = ChannelFxType::None;
        effect_.emplace<std::monostate>();
    }
}

void EffectSlot::Setup(const ChannelFx& fx, double rate) noexcept
{
    rate = LimitedRate(rate);
    const std::size_t needed = MemoryNeeded(fx, rate);
    if (needed > capacity_) {
        Start(ChannelFxType::None);
        return;
    }
    const bool isNew = fx.type != type_ || rate != rate_;
    if (isNew)
        Start(fx.type);
    rate_ = rate;
    floatsUsed_ = std::max(floatsUsed_, needed);
    std::visit(
        [&](auto& effect) {
            if constexpr (!std::is_same_v<decltype(effect), std::monostate&>) {
                const bool keeps = effect.Setup(fx, rate);
                if (isNew || !keeps)
                    effect.Clear(Lines());
            }
        },
        effect_);
}

void EffectSlot::Clear() noexcept
{
    isAsleep_ = true;
    silentFrames_ = 0;
    std::visit(
        [&](auto& effect) {
            if constexpr (!std::is_same_v<decltype(effect), std::monostate&>)
                effect.Clear(Lines());
        },
        effect_);
}

bool EffectSlot::StaysAwake(bool sendIsEmpty, std::uint64_t tailFrames) noexcept
{
    if (!sendIsEmpty) {
        silentFrames_ = 0;
        isAsleep_ = false;
    } else if (!isAsleep_) {
        silentFrames_ += kBlockFrames;
        if (silentFrames_ > tailFrames)
            Clear();
    }
    return !isAsleep_;
}

template <class T>
bool EffectSlot::Run(T& effect, StereoBlock& dry, const StereoBlock& send, bool dryIsEmpty,
                     bool sendIsEmpty) noexcept
{
    constexpr EffectActs kActs = T::kTraits.acts;
    if (!effect.IsActive())
        return !dryIsEmpty;
    const bool isAwake = StaysAwake(sendIsEmpty, effect.TailFrames());
    if (!isAwake && (dryIsEmpty || kActs != EffectActs::OnDrySound))
        return !dryIsEmpty;
    if (dryIsEmpty)
        dry.Clear();
    StereoBlock copy;
    effect.Process(dry, sendIsEmpty ? kSilence : SoundBlock(send, copy), memory_.get());
    const bool addsSound = kActs == EffectActs::WithTail || (kActs == EffectActs::WhileFed && !sendIsEmpty);
    return addsSound || !dryIsEmpty;
}

bool EffectSlot::Process(StereoBlock& dry, const StereoBlock& send, bool dryIsEmpty,
                         bool sendIsEmpty) noexcept
{
    return std::visit(
        [&](auto& effect) {
            if constexpr (std::is_same_v<decltype(effect), std::monostate&>)
                return !dryIsEmpty;
            else
                return Run(effect, dry, send, dryIsEmpty, sendIsEmpty);
        },
        effect_);
}

} // namespace vimbo::synth
