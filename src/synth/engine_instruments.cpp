// Changes that other threads make while blocks run.
#include "synth/engine.h"

#include <algorithm>

namespace vimbo::synth {

/// A change on its way to the rendering thread. What it takes out stays in here, and is freed by the thread
/// that asked for it.
struct SynthEngine::Change {
    InstrumentTable table;
    bool hasTable = false;
    const SynthInstrument* from = nullptr; ///< goes
    const SynthInstrument* to = nullptr;   ///< comes in its place, or null
    struct Memory {
        std::size_t channel, slot, floats;
        std::unique_ptr<float[]> block;
    };
    std::vector<Memory> effects; ///< larger memory for effect slots
    bool seeks = false, shutVoices = false;
    std::uint32_t block = 0;
    std::atomic<bool> isMade{false};
};

void SynthEngine::PutInstrument(std::unique_ptr<SynthInstrument> instrument)
{
    Change change;
    change.from = instruments_.Find(instrument->patch);
    const InstrumentTable::Ref ref = std::move(instrument);
    change.to = ref.get();
    change.table = instruments_.With(ref);
    change.hasTable = true;
    ReserveEffects(change);
    HandOver(change);
    Retire(std::move(change.table), change.from);
}

/// Voices whose region is gone fade out on the old one, so an instrument stays as long as there are such.
void SynthEngine::Retire(InstrumentTable old, const SynthInstrument* instrument)
{
    if (orphans_.load(std::memory_order_acquire) == 0)
        retired_.clear();
    else
        for (const InstrumentTable::Ref& ref : old.All())
            if (ref.get() == instrument)
                retired_.push_back(ref);
}

void SynthEngine::RemoveInstrument(std::uint32_t patch)
{
    Change change;
    change.from = instruments_.Find(patch);
    if (!change.from)
        return;
    change.table = instruments_.Without(patch);
    change.hasTable = true;
    HandOver(change);
}

void SynthEngine::Seek(double seconds, bool shutVoices)
{
    Change change;
    change.seeks = true;
    change.shutVoices = shutVoices;
    change.block = BlockAt(seconds);
    HandOver(change);
}

/// Memory for the new instrument's effects in every slot where it does not suffice.
void SynthEngine::ReserveEffects(Change& change) const
{
    for (std::size_t slot = 0; slot < kSends; ++slot) {
        const std::size_t floats = EffectSlot::MemoryNeeded(change.to->effects[slot], clock_.rateHz);
        for (std::size_t channel = 0; channel < buses_.size(); ++channel)
            if (buses_[channel].effects[slot].Memory() < floats)
                change.effects.push_back({channel, slot, floats, std::make_unique<float[]>(floats)});
    }
}

/// Returns when the rendering thread, or else this one, has made the change.
void SynthEngine::HandOver(Change& change)
{
    if (!running.load()) {
        Apply(change);
        return;
    }
    Change* none = nullptr;
    while (!change_.compare_exchange_weak(none, &change)) {
        none = nullptr;
        std::this_thread::yield();
    }
    while (!change.isMade.load(std::memory_order_acquire)) {
        // The one who rendered may have stopped meanwhile; then the change is still there to be taken.
        Change* mine = &change;
        if (!running.load() && change_.compare_exchange_strong(mine, nullptr)) {
            Apply(change);
            return;
        }
        std::this_thread::yield();
    }
}

/// Whoever takes the change out of its place makes it; afterwards it may be gone.
void SynthEngine::TakeChange() noexcept
{
    if (change_.load(std::memory_order_relaxed) == nullptr)
        return;
    if (Change* const change = change_.exchange(nullptr, std::memory_order_acq_rel)) {
        Apply(*change);
        change->isMade.store(true, std::memory_order_release);
    }
}

void SynthEngine::Apply(Change& change) noexcept
{
    for (Change::Memory& memory : change.effects)
        memory.block =
            buses_[memory.channel].effects[memory.slot].Adopt(std::move(memory.block), memory.floats);
    if (change.hasTable) {
        std::swap(instruments_, change.table);
        if (change.from)
            Rebind(change.from, change.to);
    }
    if (change.seeks) {
        ring_.Clear();
        block_.store(change.block, std::memory_order_relaxed);
        if (change.shutVoices)
            for (std::size_t v = 0; v < VoiceCount(); ++v)
                ShutDownVoice(voices_[v], clock_);
    }
}

/// Channels and voices of one instrument go over to another. Without one, their notes are killed.
void SynthEngine::Rebind(const SynthInstrument* from, const SynthInstrument* to) noexcept
{
    for (std::size_t channel = 0; channel < channels_.size(); ++channel)
        if (channels_[channel].instrument == from) {
            channels_[channel].instrument = to;
            if (to)
                SetEffects(channel, *to);
        }
    // Notes may still play an instrument that their channel has left.
    for (std::size_t g = 0; g < groups_.size(); ++g) {
        if (!groups_[g].isInUse || groups_[g].instrument != from)
            continue;
        if (!to) {
            KillGroup(static_cast<std::uint16_t>(g));
            continue;
        }
        groups_[g].instrument = to;
        for (std::uint16_t v = groups_[g].firstVoice; v != kNoIndex; v = voices_[v].nextInGroup)
            RebindVoice(voices_[v], *to);
    }
    planIsOld_ = true;
}

/// A voice whose region is gone fades out.
void SynthEngine::RebindVoice(Voice& voice, const SynthInstrument& to) noexcept
{
    const auto found = std::ranges::find(to.regions, voice.region->regionId, &SynthRegion::regionId);
    if (found == to.regions.end() || found->model != voice.region->model) {
        if (!voice.isOrphan)
            orphans_.fetch_add(1, std::memory_order_release);
        voice.isOrphan = true;
        ShutDownVoice(voice, clock_);
        return;
    }
    if (voice.isOrphan)
        return;
    voice.region = &*found;
    InitVoice(voice, clock_, false);
}

void SynthEngine::SetEffects(std::size_t channel, const SynthInstrument& instrument) noexcept
{
    ChannelBus& bus = buses_[channel];
    bus.hasEffects = false;
    for (std::size_t slot = 0; slot < kSends; ++slot) {
        bus.effects[slot].Setup(instrument.effects[slot], clock_.rateHz);
        bus.isSendUsed[slot] = instrument.effects[slot].type != ChannelFxType::None;
        bus.hasEffects |= bus.isSendUsed[slot];
    }
}

} // namespace vimbo::synth
