// What the measures of notes say of differences that are known.
#include "synth/bank_compare.h"

#include "model/collection.h"
#include "model/fix_up.h"
#include "model/waveform.h"
#include "synth/note_measure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

namespace vimbo::synth {
namespace {

/// A tone with harmonics that decays by `decay` dB a second, and by 60 dB in `release` seconds.
NoteSound MakeNote(double hz, double gainDb = 0, double decay = 20, double release = 0.2, double pan = 0)
{
    NoteSound note;
    note.held = 22050;
    for (std::size_t i = 0; i < 40000; ++i) {
        const double t = static_cast<double>(i) / note.rateHz;
        const double over = std::max(t - 0.5, 0.0);
        const double gain = std::pow(10, (gainDb - decay * t - 60 * over / release) / 20);
        double sum = 0;
        for (int n = 1; n <= 4; ++n)
            sum += 0.1 / n * std::sin(2 * std::numbers::pi * hz * n * t);
        note.left.push_back(static_cast<float>(sum * gain * (1 - pan)));
        note.right.push_back(static_cast<float>(sum * gain * (1 + pan)));
    }
    return note;
}

TEST(NoteMeasure, FindsKnownDifferences)
{
    const NoteSound base = MakeNote(220);
    const NoteDifference none = CompareNotes(base, base);
    EXPECT_EQ(none.levelDb, 0);
    EXPECT_NEAR(none.pitchCents.value(), 0, 1e-9);
    EXPECT_NEAR(CompareNotes(base, MakeNote(220, -3)).levelDb, -3, 1e-3);
    EXPECT_NEAR(CompareNotes(base, MakeNote(220, -3)).envelopeDb, 3, 1e-2);
    for (const double cents : {-30.0, -1.0, 0.5, 7.0, 40.0})
        for (const double hz : {61.0, 220.0, 997.0}) {
            const auto found = CompareNotes(MakeNote(hz), MakeNote(hz * std::exp2(cents / 1200))).pitchCents;
            ASSERT_TRUE(found) << hz;
            EXPECT_NEAR(*found, cents, 0.1) << hz;
        }
    EXPECT_NEAR(CompareNotes(base, MakeNote(440)).brightnessOctaves, 1, 0.02);
    EXPECT_NEAR(CompareNotes(base, MakeNote(220, 0, 20, 0.4)).releaseSeconds, 0.1, 0.02);
    EXPECT_NEAR(CompareNotes(base, MakeNote(220, 0, 20, 0.2, 0.5)).balanceDb, 20 * std::log10(3.0), 0.01);
    EXPECT_TRUE(CompareNotes(base, MakeNote(220, -150)).isSilentInOne);
    EXPECT_FALSE(CompareNotes(MakeNote(220, -150), MakeNote(330, -150)).isSilentInOne);
}

/// One looped sine at key 60, at a volume.
void FillBank(Collection& bank, float volumeDb)
{
    Waveform& wave = bank.Create<Waveform>(u"Sine");
    wave.rateHz = 44100;
    wave.frames = 4410;
    const auto samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 0.5f * static_cast<float>(std::sin(2 * std::numbers::pi * static_cast<double>(i) / 100));
    wave.loop.type = LoopType::Forward;
    wave.loop.end = 4400;
    Instrument& instrument = bank.Create<Instrument>(u"Sine");
    instrument.location = {};
    Region& region = instrument.AddLayer().AddRegion(wave.Handle());
    region.articulation.Set(kArtVolume, volumeDb);
    FixUpItems(bank, 0, AfterLoad::Yes);
}

TEST(BankCompare, PlaysBothBanks)
{
    Collection a, b;
    FillBank(a, 0);
    FillBank(b, -6);
    b.Create<Instrument>(u"Further").location.SetProgram(5);
    a.Create<Instrument>(u"Only here").location.SetProgram(7);
    CompareGrid grid;
    grid.keys = {48, 60, 72};
    const auto results = CompareBanks(a, b, grid, [](double) { return false; });
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].notes.size(), 9u);
    EXPECT_NEAR(results[0].Worst([](const NoteDifference& d) { return d.levelDb; }), -6, 0.01);
    EXPECT_NEAR(results[0].Worst([](const NoteDifference& d) { return d.pitchCents.value(); }), 0, 0.01);
    EXPECT_TRUE(results[1].isMissing);
    EXPECT_TRUE(CompareBanks(a, b, grid, [](double) { return true; }).empty());
}

} // namespace
} // namespace vimbo::synth
