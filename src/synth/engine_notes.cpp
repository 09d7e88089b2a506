// From notes to voices: which regions sound, who has to go for them, and what a key's release does.
#include "synth/engine.h"

#include <algorithm>
#include <array>

namespace vimbo::synth {
namespace {

constexpr std::uint8_t kFirstRoundRobin = 2, kLastRoundRobin = 17;
constexpr unsigned kStrayNoteOffVelocity = 64;

bool IsRoundRobin(const SynthRegion& region) noexcept
{
    return region.trigger >= kFirstRoundRobin && region.trigger <= kLastRoundRobin;
}

bool PassesPedal(const SynthRegion& region, bool sustain) noexcept
{
    return region.pedal == 0 || (region.pedal == 1) == sustain;
}

/// Voices that have not sounded yet are what the music asks for just now: they count as loud.
float Loudness(const Voice& voice) noexcept
{
    return voice.isFresh ? 1 : voice.envelopeGain * voice.gainEstimate;
}

} // namespace

/// The regions of one note event. More than any voice pool holds are not needed.
struct SynthEngine::Matches {
    std::array<const SynthRegion*, kVoices> regions;
    std::size_t count = 0;
    std::span<const SynthRegion* const> All() const noexcept { return {regions.data(), count}; }
};

void SynthEngine::NoteOn(unsigned channel, bool isReleaseTrigger, unsigned key, unsigned velocity) noexcept
{
    ChannelState& state = channels_[channel];
    if (!isReleaseTrigger && state.portamento && GlideInstead(state, key))
        return;
    // The sign is the synthesizer's own law: a coarse tuning of 1 plays the key below.
    const auto played = static_cast<unsigned>(std::clamp(static_cast<int>(key) - state.coarseTuning, 0, 127));
    if (!state.instrument)
        BindFirst(state, channel);
    if (!state.instrument)
        return;
    Matches matches;
    SelectRegions(state, isReleaseTrigger, played, velocity, matches);
    if (matches.count == 0)
        return;
    ShutOlder(state, isReleaseTrigger, key, matches);
    for (std::size_t i = 0; i < matches.count && voices_.size() - VoiceCount() < matches.count; ++i)
        StealGroup();
    const std::uint16_t group = TakeGroup(channel);
    if (group == kNoIndex)
        return;
    NoteGroup& note = groups_[group];
    note.key = static_cast<std::uint8_t>(key);
    note.velocity = static_cast<std::uint8_t>(velocity);
    note.isReleaseTrigger = note.isKeyUp = note.isReleased = isReleaseTrigger;
    note.instrument = state.instrument;
    const std::uint32_t seed = random_.Next() << 15 | random_.Next();
    for (const SynthRegion* region : matches.All())
        StartVoice(state, group, *region, played, seed);
    if (note.firstVoice == kNoIndex)
        KillGroup(group);
}

/// A channel without a program change plays program 0 of its bank: a drum channel the standard kit. Where
/// that is missing, patch 0.
void SynthEngine::BindFirst(ChannelState& state, unsigned channel) noexcept
{
    const SynthInstrument* instrument = instruments_.FindNearest(state.memory.location);
    if (!instrument)
        instrument = instruments_.Find(0);
    if (!instrument)
        return;
    SetEffects(channel, *instrument);
    state.instrument = instrument;
}

/// With the portamento switch on and a key held, the sounding note moves to the new key. @return true if so
bool SynthEngine::GlideInstead(ChannelState& state, unsigned key) noexcept
{
    for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next) {
        NoteGroup& group = groups_[g];
        if (group.isKeyUp)
            continue;
        if (group.key == key)
            return true;
        if (!state.glideKey.IsRunning())
            state.glideKey.Set(group.key);
        const double ticksPerKey = static_cast<double>(clock_.TicksPerSecond()) * state.portamentoSeconds;
        state.glideKey.GlideTo(static_cast<float>(key), ticksPerKey);
        state.rampsRun = true;
        group.key = static_cast<std::uint8_t>(key);
        return true;
    }
    return false;
}

void SynthEngine::SelectRegions(ChannelState& state, bool isReleaseTrigger, unsigned key, unsigned velocity,
                                Matches& matches) noexcept
{
    const auto passes = [&](const SynthRegion& region) {
        return region.keys.Contains(key) && region.velocities.Contains(velocity) &&
               PassesPedal(region, state.sustain);
    };
    // Of each round robin group the region whose turn it is: its rank is the channel's count modulo their
    // number.
    std::array<std::uint16_t, kRoundRobinGroups> members{}, ranks{};
    std::array<bool, kRoundRobinGroups> isClosed{};
    const auto& regions = state.instrument->regions;
    bool hasRoundRobin = false;
    for (const SynthRegion& region : regions)
        if (!isReleaseTrigger && IsRoundRobin(region) && passes(region)) {
            ++members[region.trigger - kFirstRoundRobin];
            hasRoundRobin = true;
        }
    for (const SynthRegion& region : regions) {
        if (!passes(region) || matches.count == matches.regions.size())
            continue;
        if (IsRoundRobin(region)) {
            if (!hasRoundRobin)
                continue;
            const std::size_t index = region.trigger - kFirstRoundRobin;
            const unsigned rank = ranks[index]++;
            std::uint8_t& turn = state.roundRobin[index];
            if (isClosed[index] || rank != turn % members[index])
                continue;
            turn = static_cast<std::uint8_t>((rank + 1) % members[index]);
            isClosed[index] = true;
        } else if (region.trigger != (isReleaseTrigger ? 1 : 0)) {
            continue;
        }
        matches.regions[matches.count++] = &region;
    }
}

/// Fades out what the new note replaces: its own key, its exclusive classes; in mono mode everything.
void SynthEngine::ShutOlder(const ChannelState& state, bool isReleaseTrigger, unsigned key,
                            const Matches& matches) noexcept
{
    if (state.mono && !isReleaseTrigger) {
        ForEachVoice(state, [this](Voice& voice) { ShutDownVoice(voice, clock_); });
        return;
    }
    const auto isExcluded = [&matches](const SynthRegion& older) {
        return older.exclusiveClass != 0 &&
               std::ranges::any_of(matches.All(), [&older](const SynthRegion* region) {
                   return region->exclusiveClass == older.exclusiveClass;
               });
    };
    ForEachVoice(state, [&](Voice& voice) {
        const bool isSameKey = groups_[voice.group].key == key && !voice.region->allowOverlap;
        if (isSameKey || isExcluded(*voice.region))
            ShutDownVoice(voice, clock_);
    });
}

/// @param seed of the note's random values: regions of one phase group draw alike, all others their own
void SynthEngine::StartVoice(const ChannelState& state, std::uint16_t group, const SynthRegion& region,
                             unsigned struckKey, std::uint32_t seed) noexcept
{
    const std::size_t count = VoiceCount();
    if (count == voices_.size())
        return;
    Voice& voice = voices_[count] = Voice{};
    const NoteGroup& note = groups_[group];
    voice.region = &region;
    voice.group = group;
    voice.channel = note.channel;
    voice.key = static_cast<float>(struckKey);
    voice.velocity = static_cast<float>(note.velocity) / 127;
    voice.bendRange = state.bendRange;
    voice.tuningOffset = state.fineTuning;
    voice.modWheel = state.modWheel.Value();
    voice.aftertouch = state.aftertouch.Value();
    voice.pitchBend = state.pitchBend.Value();
    voice.softPedal = state.soft;
    voice.delayLeft = region.delaySeconds;
    voice.released = voice.isReleaseTrigger = note.isReleaseTrigger;
    voice.crossfadeGain = region.CrossFadeGain(struckKey, note.velocity);
    voice.random.Seed(region.phaseGroup != 0 ? seed + region.phaseGroup
                                             : random_.Next() << 15 | random_.Next());
    InitVoice(voice, clock_, true);
    const PanGains pan = VoicePan(voice, state.pan.Value());
    voice.previousLeft = pan.left * voice.crossfadeGain * voice.envelopeGain;
    voice.previousRight = pan.right * voice.crossfadeGain * voice.envelopeGain;
    // The group's voices keep the order of the regions.
    std::uint16_t* link = &groups_[group].firstVoice;
    while (*link != kNoIndex)
        link = &voices_[*link].nextInGroup;
    *link = static_cast<std::uint16_t>(count);
    voiceCount_.store(count + 1, std::memory_order_relaxed);
    planIsOld_ = true;
}

void SynthEngine::NoteOff(unsigned channel, unsigned key) noexcept
{
    const ChannelState& state = channels_[channel];
    for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next)
        if (groups_[g].key == key && !groups_[g].isKeyUp) {
            KeyUp(g);
            return;
        }
    NoteOn(channel, true, key, kStrayNoteOffVelocity);
}

/// Pedals may hold the note; otherwise it goes to its release.
void SynthEngine::KeyUp(std::uint16_t index) noexcept
{
    NoteGroup& group = groups_[index];
    group.isKeyUp = true;
    if (!channels_[group.channel].sustain && !group.isSostenutoHeld)
        ReleaseGroup(index, true);
}

void SynthEngine::ReleaseGroup(std::uint16_t index, bool spawnReleaseRegions) noexcept
{
    NoteGroup& group = groups_[index];
    if (group.isReleased)
        return;
    group.isKeyUp = group.isReleased = true;
    for (std::uint16_t v = group.firstVoice; v != kNoIndex; v = voices_[v].nextInGroup)
        ReleaseVoice(voices_[v], clock_);
    if (spawnReleaseRegions)
        NoteOn(group.channel, true, group.key, group.velocity);
}

/// Releases groups whose key is up and which no pedal holds any more.
void SynthEngine::ReleaseHeld(ChannelState& state) noexcept
{
    // Release regions may steal groups, the next one among them; so the walk starts anew after each.
    for (std::uint16_t g = state.firstGroup; g != kNoIndex;) {
        const NoteGroup& group = groups_[g];
        if (group.isKeyUp && !group.isReleased && !state.sustain && !group.isSostenutoHeld) {
            ReleaseGroup(g, true);
            g = state.firstGroup;
        } else {
            g = group.next;
        }
    }
}

/// A group slot at the end of the channel's list; kNoIndex if there is none.
std::uint16_t SynthEngine::TakeGroup(unsigned channel) noexcept
{
    if (groupCount_ == groups_.size() && !StealGroup())
        return kNoIndex;
    const auto slot = std::ranges::find(groups_, false, &NoteGroup::isInUse);
    if (slot == groups_.end())
        return kNoIndex;
    const auto index = static_cast<std::uint16_t>(slot - groups_.begin());
    ChannelState& state = channels_[channel];
    *slot = {};
    slot->isInUse = true;
    slot->channel = static_cast<std::uint16_t>(channel);
    slot->previous = state.lastGroup;
    (state.lastGroup == kNoIndex ? state.firstGroup : groups_[state.lastGroup].next) = index;
    state.lastGroup = index;
    ++groupCount_;
    return index;
}

/// Kills the group that is heard least; the first in the pool of equal ones.
bool SynthEngine::StealGroup() noexcept
{
    std::uint16_t quietest = kNoIndex;
    std::uint32_t lowest = 0;
    for (std::size_t g = 0; g < groups_.size(); ++g) {
        if (!groups_[g].isInUse)
            continue;
        float loudest = 0;
        for (std::uint16_t v = groups_[g].firstVoice; v != kNoIndex; v = voices_[v].nextInGroup)
            loudest = std::max(loudest, Loudness(voices_[v]));
        const auto score = static_cast<std::uint32_t>(std::min(loudest, 65535.0f) * 65536);
        if (quietest == kNoIndex || score < lowest) {
            quietest = static_cast<std::uint16_t>(g);
            lowest = score;
        }
    }
    if (quietest == kNoIndex)
        return false;
    KillGroup(quietest);
    return true;
}

/// Ends a group and its voices at once.
void SynthEngine::KillGroup(std::uint16_t index) noexcept
{
    while (groups_[index].firstVoice != kNoIndex)
        DropVoice(groups_[index].firstVoice);
    NoteGroup& group = groups_[index];
    ChannelState& state = channels_[group.channel];
    (group.previous == kNoIndex ? state.firstGroup : groups_[group.previous].next) = group.next;
    (group.next == kNoIndex ? state.lastGroup : groups_[group.next].previous) = group.previous;
    group.isInUse = false;
    --groupCount_;
}

void SynthEngine::KillChannel(ChannelState& state) noexcept
{
    while (state.firstGroup != kNoIndex)
        KillGroup(state.firstGroup);
}

/// Takes a voice out of its group and closes the gap in the pool with the last voice.
void SynthEngine::DropVoice(std::uint16_t index) noexcept
{
    const auto linkTo = [this](std::uint16_t voice) -> std::uint16_t& {
        std::uint16_t* link = &groups_[voices_[voice].group].firstVoice;
        while (*link != voice)
            link = &voices_[*link].nextInGroup;
        return *link;
    };
    if (voices_[index].isOrphan)
        orphans_.fetch_sub(1, std::memory_order_release);
    linkTo(index) = voices_[index].nextInGroup;
    const auto last = static_cast<std::uint16_t>(VoiceCount() - 1);
    if (index != last) {
        linkTo(last) = index;
        voices_[index] = voices_[last];
    }
    voiceCount_.store(last, std::memory_order_relaxed);
    planIsOld_ = true;
}

} // namespace vimbo::synth
