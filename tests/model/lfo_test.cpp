#include "model/envelope.h"

#include "envelope_random.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

constexpr unsigned kP = IndexBit(LfoIndex::Pitch), kV = IndexBit(LfoIndex::Volume),
                   kF = IndexBit(LfoIndex::Filter), kX = IndexBit(LfoIndex::X);

TEST(Lfo, ViewsReadAndWriteTheNumberedValues)
{
    for (unsigned shape = 0; shape < 256; ++shape) {
        ArticulationBlock block;
        block.Set(kArtLfos, static_cast<float>(shape));
        Lfo lfo;
        GetLfo(block, lfo, LfoIndex::Pitch);
        EXPECT_EQ(static_cast<unsigned>(lfo.shape), shape % 64);
        EXPECT_EQ(static_cast<unsigned>(lfo.polarity), shape / 64);
        SetLfo(block, lfo, LfoIndex::X);
        EXPECT_EQ(block[77], static_cast<float>(shape));
    }
    ArticulationBlock block;
    SetLfo(block, {LfoShape::SawUp, LfoPolarity::Unipolar, 3.5f, 0.25f, 1.5f}, LfoIndex::Filter);
    EXPECT_EQ(block[73], 68);
    EXPECT_EQ(block[74], 3.5f);
    EXPECT_EQ(block[75], 0.25f);
    EXPECT_EQ(block[76], 1.5f);

    // Which ids hold the depths: each id gets its own number, in hundredths.
    for (ParamId id = 0; id < kArtLfos; ++id)
        block.Set(id, static_cast<float>(id) / 100);
    const auto depth = [](float first) {
        return LfoDepth{first / 100, (first + 1) / 100, (first + 2) / 100, (first + 3) / 100};
    };
    const LfoDepths expected[] = {
        {depth(3), {}, {}, 0}, {{}, depth(19), {}, 0}, {{}, {}, depth(29), 0}, {depth(7), {}, {}, 0.54f}};
    for (std::size_t i = 0; i < kLfos; ++i) {
        Lfo lfo;
        LfoDepths depths;
        GetLfoEx(block, lfo, depths, static_cast<LfoIndex>(i));
        EXPECT_EQ(depths, expected[i]) << i;
    }
}

TEST(Lfo, SameShapeNeedsFormRateAndOnset)
{
    const Lfo lfo{LfoShape::Sine, LfoPolarity::Bipolar, 5.02f, 0.2f, 0.3f};
    const auto with = [&](auto change) {
        Lfo other = lfo;
        change(other);
        return other;
    };
    EXPECT_TRUE(SameLfoShape(lfo, with([](Lfo& l) { l.frequencyHz = 4.96f; })));
    EXPECT_FALSE(SameLfoShape(lfo, with([](Lfo& l) { l.frequencyHz = 5.06f; })));
    EXPECT_TRUE(SameLfoShape(lfo, with([](Lfo& l) { l.delaySeconds = 0.5f, l.rampSeconds = 0; })));
    EXPECT_FALSE(SameLfoShape(lfo, with([](Lfo& l) { l.rampSeconds = 0.31f; })));
    EXPECT_TRUE(SameLfoShape(lfo, with([](Lfo& l) { l.rampSeconds = 0.8f; }), 0.5f));
    EXPECT_FALSE(SameLfoShape(lfo, with([](Lfo& l) { l.rampSeconds = 0.82f; }), 0.5f));
    EXPECT_FALSE(SameLfoShape(lfo, with([](Lfo& l) { l.shape = LfoShape::Triangle; })));
    EXPECT_FALSE(SameLfoShape(lfo, with([](Lfo& l) { l.polarity = LfoPolarity::Unipolar; })));
}

TEST(ModLfo, MergedLfosAreComposedAgain)
{
    Random random(1);
    const auto depth = [&](double limit) { return std::round(random.Between(-limit, limit) * 100) / 100.0f; };
    const auto four = [&] { return LfoDepth{depth(40), depth(40), depth(40), depth(40)}; };
    for (int i = 0; i < 1000; ++i) {
        // Every destination takes part or not.
        const auto maybe = [&](unsigned bit, LfoDepth d) {
            return (static_cast<unsigned>(i) & bit) != 0 ? d : LfoDepth{};
        };
        const LfoDepths depths{maybe(1, four()), maybe(2, four()), maybe(4, four()),
                               (i & 8) != 0 ? depth(1) : 0};
        const Lfo lfo{static_cast<LfoShape>(i % 6), static_cast<LfoPolarity>(i / 6 % 3),
                      static_cast<float>(1 + i % 19), 0.25f, 0.5f};
        ArticulationBlock block;
        EXPECT_EQ(MergeLfo(block, lfo, depths), 0u);
        const ModLfo out = ComposeModLfo(block, kP | kV | kF | kX);
        EXPECT_EQ(out.dropped, 0u);
        if ((i & 15) == 0) {
            EXPECT_EQ(out.used, 0u);
            EXPECT_FALSE(block.HasAnySet());
            continue;
        }
        // A negative unipolar LFO is the unipolar one with its depths the other way round.
        const bool isNegative = lfo.polarity == LfoPolarity::NegativeUnipolar;
        Lfo expected = lfo;
        if (isNegative)
            expected.polarity = LfoPolarity::Unipolar;
        EXPECT_EQ(out.lfo, expected);
        const float sign = isNegative ? -1.0f : 1.0f;
        EXPECT_EQ(out.depths.pan * sign, depths.pan);
        EXPECT_EQ(out.depths.pitch.wheel * sign, depths.pitch.wheel);
        EXPECT_EQ(out.depths.volume.touch * sign, depths.volume.touch);
        EXPECT_EQ(out.depths.cutoff.velocity * sign, depths.cutoff.velocity);
        if (!isNegative) {
            EXPECT_EQ(out.depths, depths);
        }
    }
}

TEST(ModLfo, ConflictsAreDecidedByDepth)
{
    const Lfo slow{LfoShape::Triangle, LfoPolarity::Bipolar, 2, 0, 0},
        fast{LfoShape::Triangle, LfoPolarity::Bipolar, 6, 0, 0},
        late{LfoShape::Triangle, LfoPolarity::Bipolar, 2.04f, 0.3f, 0.2f};
    const auto pitch = [](float fixed, float wheel = 0) {
        return LfoDepths{{fixed, wheel, 0, 0}, {}, {}, 0};
    };
    const auto volume = [](float fixed) { return LfoDepths{{}, {fixed, 0, 0, 0}, {}, 0}; };
    const auto pan = [](float fixed) { return LfoDepths{{}, {}, {}, fixed}; };
    struct {
        const char* what;
        Lfo lfo1;
        LfoDepths depths1;
        Lfo lfo2;
        LfoDepths depths2;
        unsigned lost;
        ParamId id; ///< depth afterwards, and the rate of which LFO
        float depth;
        LfoIndex at;
        float rate;
    } const kCases[] = {
        {"unused", slow, pan(0.5f), fast, pitch(1), 0, kArtPLfoToPitch, 1, LfoIndex::Pitch, 6},
        {"same, added", slow, volume(3), slow, volume(-1), 0, kArtVLfoToVolume, 2, LfoIndex::Volume, 2},
        {"onset within half a second", slow, volume(3), late, volume(4), 0, kArtVLfoToVolume, 7,
         LfoIndex::Volume, 2},
        {"new one stronger", slow, volume(3), fast, volume(-4), kV, kArtVLfoToVolume, -4, LfoIndex::Volume,
         6},
        {"new one weaker", slow, volume(3), fast, volume(2), kV, kArtVLfoToVolume, 3, LfoIndex::Volume, 2},
        {"equal: the first stays", slow, volume(3), fast, volume(-3), kV, kArtVLfoToVolume, 3,
         LfoIndex::Volume, 2},
        {"pitch moves to X", slow, pitch(3), fast, pitch(1), 0, kArtXLfoToPitch, 1, LfoIndex::X, 6},
        {"and leaves P", slow, pitch(3), fast, pitch(9), 0, kArtPLfoToPitch, 3, LfoIndex::Pitch, 2},
        {"X of the same shape",
         slow,
         {{3, 0, 0, 0}, {}, {}, 0},
         fast,
         {{1, 0, 0, 0}, {}, {}, 0.5f},
         0,
         kArtXLfoToPitch,
         1,
         LfoIndex::X,
         6},
        {"P and X taken, weaker",
         slow,
         {{3, 0, 0, 0}, {}, {}, 0.5f},
         fast,
         pitch(2, -0.5f),
         kP,
         kArtPLfoToPitch,
         3,
         LfoIndex::Pitch,
         2},
        {"P and X taken, stronger by its wheel",
         slow,
         {{3, 0, 0, 0}, {}, {}, 0.5f},
         fast,
         pitch(2, -1.5f),
         kP,
         kArtPLfoToPitch,
         2,
         LfoIndex::Pitch,
         6},
        {"pan against pan", slow, pan(0.5f), fast, pan(0.75f), kX, kArtXLfoToPan, 0.75f, LfoIndex::X, 6},
    };
    for (const auto& row : kCases) {
        ArticulationBlock block;
        ASSERT_EQ(MergeLfo(block, row.lfo1, row.depths1), 0u) << row.what;
        EXPECT_EQ(MergeLfo(block, row.lfo2, row.depths2), row.lost) << row.what;
        EXPECT_EQ(block[row.id], row.depth) << row.what;
        Lfo lfo;
        GetLfo(block, lfo, row.at);
        EXPECT_EQ(lfo.frequencyHz, row.rate) << row.what;
    }
    // What loses its place leaves no depth behind.
    ArticulationBlock block;
    MergeLfo(block, slow, {{}, {0, 2, 0, 0}, {}, 0});
    EXPECT_EQ(MergeLfo(block, fast, volume(5)), kV);
    EXPECT_EQ(block[kArtWheelVLfoToVolume], 0);
}

TEST(ModLfo, ComposingTakesTheStrongestShape)
{
    const Lfo slow{LfoShape::Sine, LfoPolarity::Bipolar, 2, 0, 0},
        fast{LfoShape::Sine, LfoPolarity::Bipolar, 6, 0, 0};
    ArticulationBlock block;
    MergeLfo(block, slow, {{1, 0, 0, 0}, {}, {36, 0, 0, 0}, 0});
    MergeLfo(block, fast, {{}, {12, 0, 0, 0}, {}, 0});
    // Cutoff's 36 semitones are worth 3, volume's 12 dB are worth 2, the pitch part 1.
    ModLfo out = ComposeModLfo(block, kP | kV | kF | kX);
    EXPECT_EQ(out.lfo, slow);
    EXPECT_EQ(out.used, kP | kF);
    EXPECT_EQ(out.dropped, kV);
    EXPECT_EQ(out.depths.cutoff.fixed, 36);
    out = ComposeModLfo(block, kP | kV);
    EXPECT_EQ(out.lfo, fast);
    EXPECT_EQ(out.used, kV);
    EXPECT_EQ(out.dropped, kP);

    ArticulationBlock other;
    MergeLfo(other, fast, {{40, 0, 0, 0}, {}, {}, 0});
    const ArticulationBlock* const blocks[] = {&block, &other};
    out = ComposeModLfo(blocks, kP | kV | kF | kX);
    EXPECT_EQ(out.lfo, fast);
    EXPECT_EQ(out.depths.pitch.fixed, 40);
    EXPECT_EQ(out.dropped, kP | kV | kF); // the first block's slow parts; its own V was dropped already
}

} // namespace
} // namespace vimbo
