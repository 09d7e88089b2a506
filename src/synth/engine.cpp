#include "synth/engine.h"

#include "base/text.h"
#include "base/worker_pool.h"
#include "model/waveform.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace vimbo::synth {
namespace {

constexpr unsigned kRampsPerSecond = 40;
constexpr unsigned kMaxChannels = 256 * kChannelsPerPort; ///< ports are numbered in a byte

} // namespace

SynthEngine::SynthEngine(const Setup& setup)
    : channels_(std::clamp(setup.channels, 1u, kMaxChannels)), buses_(channels_.size()),
      groups_(std::clamp<std::size_t>(setup.polyphony, kMinGroups, kNoIndex - 1u)),
      voices_(std::clamp<std::size_t>(setup.voices, 1, kNoIndex - 1u)), order_(voices_.size()),
      batches_(voices_.size()), parts_(voices_.size()), partSums_(voices_.size()), byChannel_(voices_.size()),
      busParts_(voices_.size()), busFirst_(channels_.size() + 1), tailBuses_(channels_.size()),
      subtotals_(voices_.size() + channels_.size()), crew_(setup.threads != 0 ? setup.threads : CoreCount())
{
    masterGain_ = setup.gain >= 0
                      ? setup.gain
                      : static_cast<float>(1 / std::sqrt(std::max(1.0, double{1} * setup.polyphony)));
    clock_.rateHz = static_cast<float>(std::clamp(setup.rateHz, 1000u, kMaxRateHz));
    rampUnit_ = RateHz() / (kBlockFrames * kRampsPerSecond);
    for (std::size_t c = kDrumChannel; c < channels_.size(); c += kChannelsPerPort)
        channels_[c].memory.location.SetDrum(true);
}

SynthEngine::~SynthEngine() = default;

void SynthEngine::SetSampleRate(unsigned rateHz)
{
    rateHz = std::clamp(rateHz, 1000u, kMaxRateHz);
    if (rateHz == RateHz())
        return;
    for (ChannelState& state : channels_)
        KillChannel(state);
    clock_.rateHz = static_cast<float>(rateHz);
    rampUnit_ = RateHz() / (kBlockFrames * kRampsPerSecond);
    for (const InstrumentTable::Ref& instrument : instruments_.All())
        for (ChannelBus& bus : buses_)
            for (std::size_t slot = 0; slot < kSends; ++slot)
                bus.effects[slot].Reserve(EffectSlot::MemoryNeeded(instrument->effects[slot], clock_.rateHz));
    for (std::size_t c = 0; c < channels_.size(); ++c)
        if (channels_[c].instrument)
            SetEffects(c, *channels_[c].instrument);
}

std::uint32_t SynthEngine::BlockAt(double seconds) const noexcept
{
    const double block = std::floor(clock_.rateHz * seconds / kBlockFrames);
    return block > 0 ? static_cast<std::uint32_t>(std::min(block, 4294967295.0)) : 0;
}

bool SynthEngine::PostEvent(SynthEvent event, double seconds) noexcept
{
    return ring_.Put(BlockAt(seconds), event);
}

bool SynthEngine::PostEventMs(SynthEvent event, std::uint64_t milliseconds) noexcept
{
    const std::uint64_t frame = (RateHz() * std::min<std::uint64_t>(milliseconds, 1ull << 40) + 500) / 1000;
    return ring_.Put(static_cast<std::uint32_t>(std::min<std::uint64_t>(frame / kBlockFrames, 0xFFFFFFFF)),
                     event);
}

double SynthEngine::PositionSeconds() const noexcept
{
    return block_.load(std::memory_order_relaxed) * static_cast<double>(kBlockFrames) / clock_.rateHz;
}

const SynthInstrument* SynthEngine::FindInstrument(MidiLocation location) const noexcept
{
    return instruments_.FindNearest(location);
}

float SynthEngine::Meter(std::size_t channel) const noexcept
{
    return channel < buses_.size() ? buses_[channel].meter.load(std::memory_order_relaxed) : 0;
}

std::u16string SynthEngine::StatusText()
{
    const bool clipped = TakeClipped();
    const std::size_t regions = VoiceCount();
    if (regions == 0 && LastPeak() == 0)
        return {};
    return Utf8ToWide(
        fmt::format("{} region{}{}", regions, regions == 1 ? "" : "s", clipped ? " -CLIPPING-" : ""));
}

} // namespace vimbo::synth
