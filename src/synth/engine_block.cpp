// One block: ramps, voices side by side, buses with their effects, the sum.
#include "synth/engine.h"

#include "dsp/kernels/voice_mix.h"

#include <algorithm>
#include <cmath>

namespace vimbo::synth {
namespace {

constexpr float kInaudible = 1e-6f;
constexpr float kLoudest = 15.848932f; // +24 dB
constexpr std::size_t kVoicesPerWorker = 64;

} // namespace

bool SynthEngine::Render(Block out) noexcept
{
    block_.store(block_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    TakeChange();
    while (const auto event = ring_.Take(block_.load(std::memory_order_relaxed)))
        Dispatch(*event);
    StepRamps();
    if (planIsOld_)
        PlanVoices();
    PrepareBuses();
    const std::size_t helpers = (VoiceCount() + kVoicesPerWorker - 1) / kVoicesPerWorker;
    const std::size_t others = helpers == 0 ? 0 : helpers - 1;
    crew_.Run(
        batchCount_, others,
        [](void* self, std::size_t i) noexcept { static_cast<SynthEngine*>(self)->RunBatch(i); }, this);
    crew_.Run(
        busyCount_, others,
        [](void* self, std::size_t i) noexcept {
            auto& engine = *static_cast<SynthEngine*>(self);
            engine.RunBus(engine.busyBuses_[i]);
        },
        this);
    const bool sounds = SumBuses(out);
    MeasurePeak(out, sounds);
    DropDeadVoices();
    return sounds;
}

void SynthEngine::StepRamps() noexcept
{
    for (ChannelState& state : channels_) {
        if (!state.rampsRun)
            continue;
        bool isRunning = false;
        const auto step = [&isRunning](Ramp& ramp) {
            const bool moved = ramp.Step();
            isRunning |= ramp.IsRunning();
            return moved;
        };
        if (step(state.glideKey))
            ForEachVoice(state, [&state](Voice& voice) {
                voice.tuningOffset = state.glideKey.Value() - voice.key + state.fineTuning;
            });
        for (Ramp* ramp : {&state.volume, &state.pan, &state.sends[0], &state.sends[1]})
            step(*ramp);
        bool moved = false;
        for (Ramp* ramp : {&state.pitchBend, &state.aftertouch, &state.modWheel})
            moved |= step(*ramp);
        if (moved)
            ForEachVoice(state, [&state](Voice& voice) {
                voice.pitchBend = state.pitchBend.Value();
                voice.aftertouch = state.aftertouch.Value();
                voice.modWheel = state.modWheel.Value();
            });
        state.rampsRun = isRunning;
    }
}

/// Sorts by counting: the voices of one filter kind, channel count and use of the EQ stand together.
void SynthEngine::PlanVoices() noexcept
{
    constexpr std::size_t kKinds = 13, kKeys = kKinds * 4;
    const std::size_t count = VoiceCount();
    const auto keyOf = [](const Voice& voice) {
        const std::size_t kind = voice.isFiltered ? static_cast<std::size_t>(voice.filterKind) : 0;
        return (kind * 2 + (voice.eqBands != 0 ? 1 : 0)) * 2 + (voice.isStereo ? 1 : 0);
    };
    std::array<std::uint16_t, kKeys + 1> starts{};
    for (std::size_t v = 0; v < count; ++v)
        ++starts[keyOf(voices_[v]) + 1];
    for (std::size_t key = 0; key < kKeys; ++key)
        starts[key + 1] = static_cast<std::uint16_t>(starts[key + 1] + starts[key]);
    batchCount_ = 0;
    for (std::size_t key = 0; key < kKeys; ++key) {
        const unsigned size = kBatchLanes >> (key & 1); // odd keys are stereo
        for (unsigned first = starts[key]; first < starts[key + 1]; first += size)
            batches_[batchCount_++] = {static_cast<std::uint16_t>(first),
                                       static_cast<std::uint16_t>(std::min(size, starts[key + 1] - first))};
    }
    for (std::size_t v = 0; v < count; ++v)
        order_[starts[keyOf(voices_[v])]++] = static_cast<std::uint16_t>(v);

    std::ranges::fill(channelFirst_, std::uint16_t{0});
    for (std::size_t v = 0; v < count; ++v)
        ++channelFirst_[voices_[v].channel + 1u];
    for (std::size_t channel = 0; channel < channels_.size(); ++channel)
        channelFirst_[channel + 1] =
            static_cast<std::uint16_t>(channelFirst_[channel + 1] + channelFirst_[channel]);
    for (std::size_t v = 0; v < count; ++v)
        byChannel_[channelFirst_[voices_[v].channel]++] = static_cast<std::uint16_t>(v);
    // The fill has moved each start to its end, the next one's start.
    for (std::size_t channel = channels_.size(); channel > 0; --channel)
        channelFirst_[channel] = channelFirst_[channel - 1];
    channelFirst_[0] = 0;
    planIsOld_ = false;
}

void SynthEngine::PrepareBuses() noexcept
{
    const bool effects = effectsOn.load(std::memory_order_relaxed);
    busyCount_ = 0;
    for (std::size_t c = 0; c < buses_.size(); ++c) {
        const ChannelState& state = channels_[c];
        ChannelBus& bus = buses_[c];
        bus.dryIsEmpty = true;
        bus.sendIsEmpty.fill(true);
        bus.volume = state.volume.Value();
        bus.gain = bus.volume * masterGain_;
        bus.pan = state.pan.Value();
        for (std::size_t n = 0; n < kSends; ++n)
            bus.sendValues[n] = state.sends[n].Value();
        const bool hasVoices = channelFirst_[c + 1] != channelFirst_[c];
        bus.runsEffects = effects && bus.hasEffects &&
                          (hasVoices || !std::ranges::all_of(bus.effects, &EffectSlot::IsAsleep));
        if (hasVoices || bus.runsEffects)
            busyBuses_[busyCount_++] = static_cast<std::uint16_t>(c);
        else
            bus.meter.store(0, std::memory_order_relaxed);
    }
}

/// Voices of one kind: each one's modulation and sample, then their filters and EQs side by side,
/// then gains.
void SynthEngine::RunBatch(std::size_t index) noexcept
{
    const Batch batch = batches_[index];
    std::array<FilterLane, kBatchLanes> lanes;
    std::size_t laneCount = 0;
    std::array<EqLane, kBatchLanes> eqLanes;
    std::size_t eqCount = 0;
    const std::span<const std::uint16_t> members{order_.data() + batch.first, batch.count};
    for (const std::uint16_t v : members) {
        Voice& voice = voices_[v];
        StereoBlock& block = voiceBlocks_[v];
        RunVoice(voice, clock_, block);
        voice.isFresh = false;
        voice.isAudible = voice.envelopeGain * voice.gainEstimate * voice.crossfadeGain > kInaudible;
        if (!voice.isAudible)
            continue;
        if (voice.isFiltered) {
            lanes[laneCount++] = {block.left, &voice.filterCoefs, &voice.filterState};
            if (voice.isStereo)
                lanes[laneCount++] = {block.right, &voice.filterCoefs, &voice.filterStateRight};
        }
        if (voice.eqBands != 0) {
            eqLanes[eqCount++] = {block.left, voice.eqBands, voice.eq.data(), voice.eqState.data()};
            if (voice.isStereo)
                eqLanes[eqCount++] = {block.right, voice.eqBands, voice.eq.data(), voice.eqStateRight.data()};
        }
    }
    if (laneCount != 0)
        RunVoiceFilter(voices_[members.front()].filterKind, std::span(lanes).first(laneCount));
    if (eqCount != 0)
        RunEqLanes(std::span(eqLanes).first(eqCount));
    for (const std::uint16_t v : members)
        if (voices_[v].isAudible)
            ApplyGains(v);
}

/// Pan, cross-fade and envelope, ramped over the block from where the last block ended.
void SynthEngine::ApplyGains(std::uint16_t index) noexcept
{
    Voice& voice = voices_[index];
    StereoBlock& block = voiceBlocks_[index];
    const PanGains pan = VoicePan(voice, buses_[voice.channel].pan);
    const float gain = voice.crossfadeGain * voice.envelopeGain;
    const float left = pan.left * gain, right = pan.right * gain;
    if (voice.isStereo)
        ApplyRampStereo(block.left, block.right, voice.previousLeft, left, voice.previousRight, right);
    else
        ApplyRampMono(std::span<const float, kMixFrames>(block.left), voice.previousLeft, left,
                      voice.previousRight, right, block.left, block.right);
    voice.previousLeft = left;
    voice.previousRight = right;
}

/// Adds the channel's voices in the order of the pool, so that the sum does not depend on who rendered them.
void SynthEngine::RunBus(std::size_t channel) noexcept
{
    ChannelBus& bus = buses_[channel];
    for (unsigned i = channelFirst_[channel]; i < channelFirst_[channel + 1]; ++i)
        if (voices_[byChannel_[i]].isAudible)
            MixVoice(byChannel_[i]);
    if (bus.runsEffects)
        for (std::size_t n = 0; n < kSends; ++n)
            if (bus.effects[n].Process(bus.dry, bus.sends[n], bus.dryIsEmpty, bus.sendIsEmpty[n]))
                bus.dryIsEmpty = false;
    if (metersOn.load(std::memory_order_relaxed))
        bus.meter.store(bus.dryIsEmpty ? 0
                                       : std::max(PeakOf(bus.dry.left), PeakOf(bus.dry.right)) * bus.volume,
                        std::memory_order_relaxed);
}

void SynthEngine::MixVoice(std::uint16_t index) noexcept
{
    const Voice& voice = voices_[index];
    const StereoBlock& block = voiceBlocks_[index];
    ChannelBus& bus = buses_[voice.channel];
    const auto put = [&block](StereoBlock& to, bool& isEmpty, float gain) {
        if (isEmpty) {
            StoreScaled(to.left, block.left, gain);
            StoreScaled(to.right, block.right, gain);
        } else {
            AddScaled(to.left, block.left, gain);
            AddScaled(to.right, block.right, gain);
        }
        isEmpty = false;
    };
    put(bus.dry, bus.dryIsEmpty, 1);
    if (!bus.runsEffects)
        return;
    for (std::size_t n = 0; n < kSends; ++n) {
        if (!bus.isSendUsed[n])
            continue;
        const SendLevel send = voice.region->Send(n);
        const float amount = std::min(send.level + send.ccToLevel * bus.sendValues[n], 1.0f);
        if (amount > 0)
            put(bus.sends[n], bus.sendIsEmpty[n], amount);
    }
}

bool SynthEngine::SumBuses(Block out) noexcept
{
    StereoBlock sum;
    bool isEmpty = true;
    for (std::size_t i = 0; i < busyCount_; ++i) {
        const ChannelBus& bus = buses_[busyBuses_[i]];
        if (bus.dryIsEmpty)
            continue;
        if (isEmpty) {
            StoreScaled(sum.left, bus.dry.left, bus.gain);
            StoreScaled(sum.right, bus.dry.right, bus.gain);
        } else {
            AddScaled(sum.left, bus.dry.left, bus.gain);
            AddScaled(sum.right, bus.dry.right, bus.gain);
        }
        isEmpty = false;
    }
    if (isEmpty)
        std::ranges::fill(out, 0.0f);
    else
        Interleave(sum.left, sum.right, out.data());
    return !isEmpty;
}

/// Whatever values instruments hold: nothing leaves the engine that would hurt ears or spoil what is rendered
/// behind it.
void SynthEngine::MeasurePeak(Block out, bool sounds) noexcept
{
    float* const halves[] = {out.data(), out.data() + kBlockFrames};
    float peak = 0;
    for (float* const half : halves) {
        if (!sounds)
            break;
        float most = PeakOf(half);
        if (!(most <= kLoudest)) { // NaN too
            for (std::size_t i = 0; i < kBlockFrames; ++i)
                half[i] = std::isnan(half[i]) ? 0 : std::clamp(half[i], -kLoudest, kLoudest);
            most = PeakOf(half);
        }
        peak = std::max(peak, most);
    }
    lastPeak_.store(peak, std::memory_order_relaxed);
    if (peak <= 1)
        return;
    clipped_.store(true, std::memory_order_relaxed);
    if (clampOutput.load(std::memory_order_relaxed))
        for (float& sample : out)
            sample = std::clamp(sample, -1.0f, 1.0f);
}

void SynthEngine::DropDeadVoices() noexcept
{
    for (std::size_t v = 0; v < VoiceCount();) {
        if (!voices_[v].isDead) {
            ++v;
            continue;
        }
        const std::uint16_t group = voices_[v].group;
        DropVoice(static_cast<std::uint16_t>(v)); // the last voice stands here now
        if (groups_[group].firstVoice == kNoIndex)
            KillGroup(group);
    }
}

} // namespace vimbo::synth
