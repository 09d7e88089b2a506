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

/// to += from * gain; what is in an empty `to` does not matter.
void AddBlock(const StereoBlock& from, StereoBlock& to, bool& toIsEmpty, float gain) noexcept
{
    const auto put = toIsEmpty ? StoreScaled : AddScaled;
    put(to.left, from.left, gain);
    put(to.right, from.right, gain);
    toIsEmpty = false;
}

void AddBlock(const StereoBlock& from, StereoBlock& to, bool& toIsEmpty) noexcept
{
    const auto put = toIsEmpty ? StoreTo : AddTo;
    put(to.left, from.left);
    put(to.right, from.right);
    toIsEmpty = false;
}

/// Leaves a cache line with its other readers where nothing changes.
template <class T>
void StoreChange(T& to, T value) noexcept
{
    if (to != value)
        to = value;
}

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
    const std::size_t workers = (VoiceCount() + kVoicesPerWorker - 1) / kVoicesPerWorker;
    crew_.Run(
        tailCount_ + batchCount_, workers == 0 ? 0 : workers - 1,
        [](void* self, std::size_t i) noexcept { static_cast<SynthEngine*>(self)->RunItem(i); }, this);
    const bool sounds = WriteTotal(out);
    MeasurePeak(out, sounds);
    if (hasDeadVoices_.load(std::memory_order_relaxed))
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

/// Sorts by counting, first by channel and then by kind: the voices of one filter kind, channel count and use
/// of the EQ stand together, among them those of one channel.
void SynthEngine::PlanVoices() noexcept
{
    constexpr std::size_t kKinds = 13, kKeys = kKinds * 4;
    const std::size_t count = VoiceCount();
    std::ranges::fill(busFirst_, std::uint16_t{0});
    for (std::size_t v = 0; v < count; ++v)
        ++busFirst_[voices_[v].channel + 1u];
    for (std::size_t channel = 0; channel < channels_.size(); ++channel)
        busFirst_[channel + 1] = static_cast<std::uint16_t>(busFirst_[channel + 1] + busFirst_[channel]);
    for (std::size_t v = 0; v < count; ++v)
        byChannel_[busFirst_[voices_[v].channel]++] = static_cast<std::uint16_t>(v);

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
                                       static_cast<std::uint16_t>(std::min(size, starts[key + 1] - first)), 0,
                                       0};
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint16_t v = byChannel_[i];
        order_[starts[keyOf(voices_[v])]++] = v;
    }
    PlanParts();
    planIsOld_ = false;
}

/// Splits the batches by channel and sorts the parts by counting.
void SynthEngine::PlanParts() noexcept
{
    std::ranges::fill(busFirst_, std::uint16_t{0});
    partCount_ = 0;
    for (std::size_t b = 0; b < batchCount_; ++b) {
        Batch& batch = batches_[b];
        batch.firstPart = static_cast<std::uint16_t>(partCount_);
        for (unsigned i = batch.first; i < batch.first + 0u + batch.count; ++i) {
            const std::uint16_t channel = voices_[order_[i]].channel;
            if (partCount_ == batch.firstPart || parts_[partCount_ - 1].channel != channel) {
                parts_[partCount_++] = {channel, 0};
                ++busFirst_[channel + 1u];
            }
            ++parts_[partCount_ - 1].count;
        }
        batch.partCount = static_cast<std::uint16_t>(partCount_ - batch.firstPart);
    }
    for (std::size_t channel = 0; channel < channels_.size(); ++channel) {
        buses_[channel].partsLeft.store(busFirst_[channel + 1], std::memory_order_relaxed);
        busFirst_[channel + 1] = static_cast<std::uint16_t>(busFirst_[channel + 1] + busFirst_[channel]);
    }
    for (std::size_t p = 0; p < partCount_; ++p)
        busParts_[busFirst_[parts_[p].channel]++] = static_cast<std::uint16_t>(p);
    // The fill has moved each start to its end, the next one's start.
    for (std::size_t channel = channels_.size(); channel > 0; --channel)
        busFirst_[channel] = busFirst_[channel - 1];
    busFirst_[0] = 0;
    for (std::size_t channel = 0; channel < channels_.size(); ++channel) {
        const bool hasVoices = busFirst_[channel + 1] != busFirst_[channel];
        buses_[channel].sum = hasVoices ? &partSums_[busParts_[busFirst_[channel]]] : &buses_[channel].tail;
    }
}

/// What this block does with each channel.
void SynthEngine::PrepareBuses() noexcept
{
    const bool effects = effectsOn.load(std::memory_order_relaxed);
    const bool meters = metersOn.load(std::memory_order_relaxed);
    std::size_t tails = 0, subtotals = batchCount_;
    for (std::size_t c = 0; c < buses_.size(); ++c) {
        ChannelBus& bus = buses_[c];
        const bool hasVoices = busFirst_[c + 1] != busFirst_[c];
        const bool runsEffects = effects && bus.hasEffects &&
                                 (hasVoices || !std::ranges::all_of(bus.effects, &EffectSlot::IsAsleep));
        StoreChange(bus.runsEffects, runsEffects);
        StoreChange(bus.isSummed, runsEffects || (hasVoices && meters));
        if (runsEffects)
            StoreChange(bus.subtotal, static_cast<std::uint32_t>(subtotals++));
        if (runsEffects && !hasVoices)
            tailBuses_[tails++] = static_cast<std::uint16_t>(c);
        if (!bus.isSummed)
            bus.meter.store(0, std::memory_order_relaxed);
    }
    StoreChange(tailCount_, tails);
    StoreChange(subtotalCount_, subtotals);
}

void SynthEngine::RunItem(std::size_t item) noexcept
{
    if (item < tailCount_)
        RunBus(tailBuses_[item]);
    else
        RunBatch(item - tailCount_);
}

/// Voices of one kind: each one's modulation and sample, then their filters and EQs side by side, then gains
/// and sums, while all this is in the processor's nearest cache.
void SynthEngine::RunBatch(std::size_t index) noexcept
{
    const Batch batch = batches_[index];
    std::array<StereoBlock, kBatchLanes> raw;
    std::array<FilterLane, kBatchLanes> lanes;
    std::size_t laneCount = 0;
    std::array<EqLane, kBatchLanes> eqLanes;
    std::size_t eqCount = 0;
    const std::span<const std::uint16_t> members{order_.data() + batch.first, batch.count};
    for (std::size_t i = 0; i < members.size(); ++i) {
        Voice& voice = voices_[members[i]];
        StereoBlock& block = raw[i];
        RunVoice(voice, clock_, block);
        voice.isFresh = false;
        if (voice.isDead)
            hasDeadVoices_.store(true, std::memory_order_relaxed);
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

    Subtotal& total = subtotals_[index];
    total.isEmpty = true;
    std::size_t done = 0;
    for (unsigned p = batch.firstPart; p < batch.firstPart + 0u + batch.partCount; ++p) {
        const Part part = parts_[p];
        const bool isSummed = buses_[part.channel].isSummed;
        if (isSummed)
            partSums_[p].MakeEmpty();
        for (const std::size_t end = done + part.count; done < end; ++done)
            if (Voice& voice = voices_[members[done]]; voice.isAudible)
                MixVoice(voice, raw[done], total, partSums_[p]);
        if (isSummed && buses_[part.channel].partsLeft.fetch_sub(1, std::memory_order_acq_rel) == 1)
            RunBus(part.channel);
    }
    AddUp(index);
}

/// Pan, cross-fade and envelope, ramped over the block from where the last block ended: with the channel's
/// volume straight to the subtotal, or, where there are effects, to the part and its sends. Ramps are so
/// cheap that each sum has its own rather than a ramped block to read from.
void SynthEngine::MixVoice(Voice& voice, const StereoBlock& raw, Subtotal& total, BusSum& part) noexcept
{
    const ChannelState& state = channels_[voice.channel];
    const ChannelBus& bus = buses_[voice.channel];
    const PanGains pan = VoicePan(voice, state.pan.Value());
    const float gain = voice.crossfadeGain * voice.envelopeGain;
    const GainRamp ramp{voice.previousLeft, pan.left * gain, voice.previousRight, pan.right * gain};
    voice.previousLeft = ramp.newLeft;
    voice.previousRight = ramp.newRight;
    const auto add = [&, right = voice.isStereo ? raw.right : raw.left](float factor, StereoBlock& to,
                                                                        bool& toIsEmpty) {
        const GainRamp gains{ramp.oldLeft * factor, ramp.newLeft * factor, ramp.oldRight * factor,
                             ramp.newRight * factor};
        (toIsEmpty ? StoreRamp : AddRamp)(gains, raw.left, right, to.left, to.right);
        toIsEmpty = false;
    };
    if (!bus.runsEffects)
        add(state.volume.Value() * masterGain_, total.sound, total.isEmpty);
    if (bus.isSummed)
        add(1, part.dry, part.dryIsEmpty);
    for (std::size_t n = 0; bus.runsEffects && n < kSends; ++n) {
        if (!bus.isSendUsed[n])
            continue;
        const SendLevel send = voice.region->Send(n);
        const float amount = std::min(send.level + send.ccToLevel * state.sends[n].Value(), 1.0f);
        if (amount > 0)
            add(amount, part.sends[n], part.sendIsEmpty[n]);
    }
}

/// Adds the channel's parts in their order, so that the sum does not depend on who rendered them.
void SynthEngine::RunBus(std::size_t channel) noexcept
{
    ChannelBus& bus = buses_[channel];
    const std::span<const std::uint16_t> parts(busParts_.data() + busFirst_[channel],
                                               busParts_.data() + busFirst_[channel + 1]);
    bus.partsLeft.store(static_cast<unsigned>(parts.size()), std::memory_order_relaxed);
    BusSum& sum = *bus.sum;
    if (parts.empty())
        sum.MakeEmpty();
    for (std::size_t i = 1; i < parts.size(); ++i) { // the first one is the sum
        const BusSum& part = partSums_[parts[i]];
        if (!part.dryIsEmpty)
            AddBlock(part.dry, sum.dry, sum.dryIsEmpty);
        for (std::size_t n = 0; n < kSends; ++n)
            if (!part.sendIsEmpty[n])
                AddBlock(part.sends[n], sum.sends[n], sum.sendIsEmpty[n]);
    }
    if (bus.runsEffects)
        for (std::size_t n = 0; n < kSends; ++n)
            if (bus.effects[n].Process(sum.dry, sum.sends[n], sum.dryIsEmpty, sum.sendIsEmpty[n]))
                sum.dryIsEmpty = false;
    const float volume = channels_[channel].volume.Value();
    if (metersOn.load(std::memory_order_relaxed))
        bus.meter.store(sum.dryIsEmpty ? 0 : std::max(PeakOf(sum.dry.left), PeakOf(sum.dry.right)) * volume,
                        std::memory_order_relaxed);
    if (!bus.runsEffects)
        return;
    Subtotal& total = subtotals_[bus.subtotal];
    total.isEmpty = true;
    if (!sum.dryIsEmpty)
        AddBlock(sum.dry, total.sound, total.isEmpty, volume * masterGain_);
    AddUp(bus.subtotal);
}

/// Adds neighbours, then neighbouring pairs and so on: always the same ones, whoever comes second. Most pairs
/// come from one thread, so that little passes from one processor's cache to another's.
void SynthEngine::AddUp(std::size_t index) noexcept
{
    for (std::size_t stride = 1; stride < subtotalCount_; stride *= 2) {
        const std::size_t first = index & ~(2 * stride - 1), second = first + stride;
        if (second >= subtotalCount_)
            continue;
        Subtotal& to = subtotals_[first];
        Subtotal& from = subtotals_[second];
        if (!from.isPairHalfDone.exchange(true, std::memory_order_acq_rel))
            return;
        from.isPairHalfDone.store(false, std::memory_order_relaxed);
        if (!from.isEmpty)
            AddBlock(from.sound, to.sound, to.isEmpty);
        index = first;
    }
}

bool SynthEngine::WriteTotal(Block out) noexcept
{
    const Subtotal& total = subtotals_.front();
    const bool sounds = subtotalCount_ != 0 && !total.isEmpty;
    if (sounds)
        Interleave(total.sound.left, total.sound.right, out.data());
    else
        std::ranges::fill(out, 0.0f);
    return sounds;
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
    hasDeadVoices_.store(false, std::memory_order_relaxed);
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
