// Ticks to seconds, after the header and the tempo events of the Standard MIDI Files 1.0 specification
// (1988).
#include "model/song_analysis.h"

#include <algorithm>

namespace vimbo {

namespace {

constexpr std::uint32_t kDefaultTempo = 500'000; // microseconds for a quarter note: 120 beats per minute

/// Ticks per second of an SMPTE division: minus the frames per second above, ticks per frame below.
double SmpteTicks(std::uint16_t division) noexcept
{
    const int frames = 256 - (division >> 8);
    const double rate = frames == 29 ? 30000.0 / 1001.0 : frames; // 29: the drop-frame rate
    return rate * std::max(division & 0xFF, 1);
}

/// Microseconds for a quarter note; 0 for anything but a usable tempo event.
std::uint32_t TempoOf(const TrackEvent& event) noexcept
{
    if (!event.IsMeta(kMetaTempo) || event.payload.size() < 3)
        return 0;
    std::uint32_t tempo = 0;
    for (const std::byte byte : event.payload.first(3))
        tempo = tempo << 8 | std::to_integer<std::uint32_t>(byte);
    return tempo;
}

} // namespace

TempoMap::TempoMap(std::uint16_t division) noexcept : isTempoFixed_((division & 0x8000) != 0)
{
    if (isTempoFixed_)
        ticksPerUnit_ = SmpteTicks(division);
    else
        ticksPerUnit_ = division != 0 ? division : Song::kDefaultDivision;
}

TempoMap::TempoMap(const Song& song) : TempoMap(song.division)
{
    std::vector<Change> changes;
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            Collect(*track, changes);
    // Stable: at one tick the tracks keep their order.
    std::stable_sort(changes.begin(), changes.end(),
                     [](const Change& a, const Change& b) { return a.tick < b.tick; });
    Build(changes);
}

TempoMap::TempoMap(const Song& song, const Track& track) : TempoMap(song.division)
{
    std::vector<Change> changes;
    Collect(track, changes);
    Build(changes);
}

void TempoMap::Collect(const Track& track, std::vector<Change>& changes)
{
    EventWalk walk(track.Data(), WalkEnd::EndOfTrack);
    TrackEvent event;
    while (walk.Next(event))
        if (const std::uint32_t tempo = TempoOf(event); tempo != 0)
            changes.push_back({event.time, tempo});
}

void TempoMap::Build(std::span<const Change> changes)
{
    stretches_.push_back({0, 0.0, kDefaultTempo});
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const bool isLastOfTick = i + 1 == changes.size() || changes[i + 1].tick != changes[i].tick;
        if (isLastOfTick)
            Add(changes[i]);
    }
}

void TempoMap::Add(const Change& change)
{
    Stretch& last = stretches_.back();
    if (change.tick == 0)
        last.tempo = change.tempo;
    else if (change.tempo != last.tempo)
        stretches_.push_back({change.tick, SecondsAt(change.tick), change.tempo});
}

double TempoMap::SecondsAt(std::uint64_t ticks) const noexcept
{
    if (isTempoFixed_)
        return static_cast<double>(ticks) / ticksPerUnit_;
    const auto after = std::upper_bound(stretches_.begin() + 1, stretches_.end(), ticks,
                                        [](std::uint64_t tick, const Stretch& s) { return tick < s.tick; });
    const Stretch& stretch = *(after - 1);
    return stretch.seconds +
           static_cast<double>(ticks - stretch.tick) * stretch.tempo / (1e6 * ticksPerUnit_);
}

double TempoMap::FirstTempo() const noexcept
{
    return 60e6 / stretches_.front().tempo;
}

std::size_t TempoMap::Changes() const noexcept
{
    return stretches_.size();
}

} // namespace vimbo
