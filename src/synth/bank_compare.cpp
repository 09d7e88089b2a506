#include "synth/bank_compare.h"

#include "base/worker_pool.h"
#include "model/collection.h"
#include "synth/engine.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vimbo::synth {
namespace {

constexpr unsigned kMelodicStep = 12, kDrumStep = 3;
constexpr unsigned kLowestDrum = 27, kHighestDrum = 87; ///< where General MIDI has its kits

std::vector<unsigned> KeysFor(const Instrument& instrument, const CompareGrid& grid)
{
    if (!grid.keys.empty())
        return grid.keys;
    std::vector<unsigned> keys;
    if (instrument.location.IsDrum())
        for (unsigned key = kLowestDrum; key <= kHighestDrum; key += kDrumStep)
            keys.push_back(key);
    else
        for (unsigned key = 24; key <= 108; key += kMelodicStep)
            keys.push_back(key);
    return keys;
}

/// One instrument of one bank, ready to play any note.
class NotePlayer {
public:
    NotePlayer(const Instrument& instrument, const CompareGrid& grid)
        : grid_(grid),
          engine_({.channels = 1, .polyphony = 1, .gain = 1, .rateHz = grid.rateHz, .threads = 1})
    {
        engine_.clampOutput = false;
        engine_.effectsOn = false;
        auto compiled = CompileInstrument(instrument, engine_.Samples());
        compiled->patch = 0;
        engine_.PutInstrument(std::move(compiled));
        engine_.Dispatch(SynthEvent::Make(0xC0, 0));
        engine_.Dispatch(SynthEvent::Make(0xB0, 7, 127));
    }

    NoteSound Play(unsigned key, unsigned velocity)
    {
        NoteSound note;
        note.rateHz = grid_.rateHz;
        const std::uint32_t hold = engine_.BlockAt(grid_.holdSeconds);
        const std::uint32_t all = hold + engine_.BlockAt(grid_.releaseSeconds);
        note.held = std::size_t{hold} * kBlockFrames;
        alignas(32) std::array<float, 2 * kBlockFrames> block{};
        engine_.Dispatch(SynthEvent::Make(0x90, key, velocity));
        for (std::uint32_t b = 0; b < all; ++b) {
            if (b == hold)
                engine_.Dispatch(SynthEvent::Make(0x80, key));
            engine_.Render(block);
            for (std::size_t i = 0; i < kBlockFrames; ++i) {
                note.left.push_back(block[2 * i]);
                note.right.push_back(block[2 * i + 1]);
            }
        }
        engine_.Dispatch(SynthEvent::Make(0xB0, 120, 0));
        return note;
    }

private:
    const CompareGrid& grid_;
    SynthEngine engine_;
};

std::vector<NoteSound> PlayAll(const Instrument& instrument, const std::vector<unsigned>& keys,
                               const CompareGrid& grid)
{
    NotePlayer player(instrument, grid);
    std::vector<NoteSound> sounds;
    for (const unsigned key : keys)
        for (const unsigned velocity : grid.velocities)
            sounds.push_back(player.Play(key, velocity));
    return sounds;
}

bool IsSilent(const NoteSound& sound)
{
    return std::ranges::all_of(sound.left, [](float x) { return x == 0; }) &&
           std::ranges::all_of(sound.right, [](float x) { return x == 0; });
}

void CompareNotesOf(const Instrument& a, const Instrument& b, const CompareGrid& grid,
                    ComparedInstrument& result)
{
    const std::vector<unsigned> keys = KeysFor(a, grid);
    // Each bank is read by one thread only.
    std::array<std::vector<NoteSound>, 2> sounds;
    const std::array<const Instrument*, 2> instruments{&a, &b};
    RunJobs(2, 0, [&](std::size_t i) { sounds[i] = PlayAll(*instruments[i], keys, grid); });
    std::vector<ComparedNote> notes;
    for (const unsigned key : keys)
        for (const unsigned velocity : grid.velocities)
            notes.push_back({key, velocity, {}});
    RunJobs(notes.size(), 0,
            [&](std::size_t i) { notes[i].difference = CompareNotes(sounds[0][i], sounds[1][i]); });
    for (std::size_t i = 0; i < notes.size(); ++i)
        if (!IsSilent(sounds[0][i]) || !IsSilent(sounds[1][i]))
            result.notes.push_back(notes[i]);
}

} // namespace

double ComparedInstrument::Worst(const std::function<double(const NoteDifference&)>& of) const
{
    double worst = 0;
    for (const ComparedNote& note : notes)
        if (!note.difference.isSilentInOne && std::abs(of(note.difference)) > std::abs(worst))
            worst = of(note.difference);
    return worst;
}

std::vector<ComparedInstrument> CompareBanks(Collection& a, Collection& b, const CompareGrid& grid,
                                             const std::function<bool(double)>& isCancelled)
{
    std::vector<ComparedInstrument> results;
    const std::vector<Instrument*> others = b.List<Instrument>();
    const std::vector<Instrument*> all = a.List<Instrument>();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (isCancelled(static_cast<double>(i) / static_cast<double>(all.size())))
            break;
        const Instrument& instrument = *all[i];
        ComparedInstrument& result = results.emplace_back();
        result.location = instrument.location;
        result.nameA = instrument.GetName();
        const auto other =
            std::ranges::find(others, instrument.location, [](const Instrument* x) { return x->location; });
        result.isMissing = other == others.end();
        if (result.isMissing)
            continue;
        result.nameB = (*other)->GetName();
        CompareNotesOf(instrument, **other, grid, result);
    }
    return results;
}

} // namespace vimbo::synth
