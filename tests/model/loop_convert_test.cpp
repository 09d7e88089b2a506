// Loops that are rewritten must go on sounding as before.
#include "model/loop_convert.h"

#include "base/last_error.h"
#include "model_builders.h"

#include <cmath>
#include <limits>
#include <numeric>
#include <random>

namespace vimbo {
namespace {

using Frames = std::vector<float>;

constexpr LoopConversions kNothing{false, false, false, false, false};

/// Frames numbered from 1, so that a value tells which frame it was.
Waveform& AddWave(Collection& items, std::uint32_t frames, LoopType type, double start, double end,
                  unsigned channels = 1)
{
    Waveform& wave = items.Create<Waveform>(u"wave");
    wave.frames = frames;
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.rateHz = 44100;
    const std::span<float> samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(i / channels + 1) * (i % channels == 0 ? 1.0f : -1.0f);
    wave.loop.type = type;
    wave.loop.start = start;
    wave.loop.end = end;
    return wave;
}

Frames SamplesOf(Waveform& wave)
{
    const std::span<float> samples = wave.LockSamples();
    return {samples.begin(), samples.end()};
}

Frames Count(int from, int to)
{
    Frames frames;
    for (int i = from; i != to + (from <= to ? 1 : -1); i += from <= to ? 1 : -1)
        frames.push_back(static_cast<float>(i));
    return frames;
}

Frames operator+(Frames a, const Frames& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// What a voice plays at one frame a step. The position is mirrored at the loop's edges: end - (position -
/// end), start + (start - position). At the release, a loop that is to be left is left at its end, forward.
Frames Play(const Frames& samples, const LoopInfo& loop, std::size_t steps, std::size_t release)
{
    const auto start = static_cast<long>(loop.start), end = static_cast<long>(loop.end);
    const auto frames = static_cast<long>(samples.size());
    const bool canLeave = loop.breakOnRelease;
    LoopType type = loop.type;
    bool inLoop = type != LoopType::Off;
    long position = 0, step = 1;
    Frames played;
    for (std::size_t i = 0; i < steps && position < frames; ++i) {
        played.push_back(samples[static_cast<std::size_t>(position)]);
        position += step;
        const bool released = canLeave && i >= release;
        if (inLoop && step > 0 && position >= end) {
            if (released)
                inLoop = false;
            else if (type == LoopType::Forward)
                position -= end - start;
            else {
                position = end - (position - end);
                step = -1;
            }
        } else if (inLoop && step < 0 && position < start) {
            if (type == LoopType::Reverse && !released)
                position += end - start;
            else {
                position = start + (start - position);
                step = 1;
            }
        }
    }
    return played;
}

TEST(ConvertLoop, KnownFrames)
{
    struct Row {
        const char* name;
        LoopType type;
        std::uint32_t frames;
        double start, end;
        LoopConversions conversions;
        Frames wanted;
        double wantedStart, wantedEnd;
    };
    const std::vector<Row> rows = {
        {"alternating",
         LoopType::Alternating,
         8,
         2,
         5,
         {true, true, false},
         Count(1, 5) + Count(5, 3) + Count(6, 8),
         2,
         8},
        {"alternating at the end",
         LoopType::Alternating,
         5,
         2,
         5,
         {true, true, false},
         Count(1, 5) + Count(5, 3),
         2,
         8},
        {"reverse",
         LoopType::Reverse,
         8,
         2,
         5,
         {true, true, false},
         Count(1, 2) + Count(5, 3) + Count(6, 8),
         2,
         5},
        {"short", LoopType::Forward, 22, 4, 20, {}, Count(1, 20) + Count(5, 20) + Count(21, 22), 4, 36},
        {"short alternating",
         LoopType::Alternating,
         22,
         4,
         14,
         {},
         Count(1, 14) + Count(14, 5) + Count(5, 14) + Count(14, 5) + Count(15, 22),
         4,
         44},
        {"append",
         LoopType::Forward,
         50,
         4,
         50,
         {true, true, false, true},
         Count(1, 50) + Count(5, 36),
         4,
         50},
        {"append behind a tail",
         LoopType::Forward,
         50,
         0,
         40,
         {true, true, false, true},
         Count(1, 50) + Count(11, 32),
         0,
         40},
        {"append a short loop",
         LoopType::Forward,
         20,
         10,
         20,
         {true, true, false, true},
         Count(1, 20) + Count(11, 20) + Count(11, 20) + Count(11, 20) + Count(11, 12),
         10,
         20},
        {"append to an unrolled loop",
         LoopType::Alternating,
         40,
         20,
         40,
         {true, true, false, true},
         Count(1, 40) + Count(40, 21) + Count(21, 40) + Count(40, 29),
         20,
         60},
        {"prepend",
         LoopType::Forward,
         40,
         30.5,
         40,
         {true, true, false, false, true},
         Frames{0, 0} + Count(1, 40),
         32.5,
         42},
    };
    for (const Row& row : rows)
        for (const unsigned channels : {1u, 2u}) {
            SCOPED_TRACE(row.name);
            Collection items;
            Waveform& wave = AddWave(items, row.frames, row.type, row.start, row.end, channels);
            bool changed = false;
            ASSERT_TRUE(ConvertLoop(wave, row.conversions, changed));
            EXPECT_TRUE(changed);
            Frames left, right;
            const Frames samples = SamplesOf(wave);
            for (std::size_t i = 0; i < samples.size(); i += channels) {
                left.push_back(samples[i]);
                right.push_back(-samples[i + channels - 1]);
            }
            EXPECT_EQ(left, row.wanted);
            EXPECT_TRUE(channels == 1 || right == row.wanted);
            EXPECT_EQ(wave.loop.type, LoopType::Forward);
            EXPECT_EQ(wave.loop.start, row.wantedStart);
            EXPECT_EQ(wave.loop.end, row.wantedEnd);
            EXPECT_EQ(wave.loop.pitch, 0);
            ASSERT_TRUE(ConvertLoop(wave, row.conversions, changed));
            EXPECT_FALSE(changed) << "twice";
        }
}

// Both play a period of twice the body. Where a mirrored position turns on the frame behind the end (end -
// k), the unrolled loop turns between frames (end - 1 - k): in the backward half it is one frame ahead, plays
// its turning frames twice, and never that frame, which is no part of the loop. Reverse loops agree from the
// second pass on: before that, the mirrored position has gone through the body forward once.
TEST(ConvertLoop, PlaysTheFramesOfTheLoopItReplaces)
{
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        Collection items;
        const auto below = [&random](std::uint32_t limit) {
            return static_cast<std::uint32_t>(random() % limit);
        };
        const std::uint32_t frames = 3 + below(120);
        const std::uint32_t start = below(frames - 1);
        const std::uint32_t end = start + 1 + below(frames - 1 - start);
        const LoopType type = round % 2 == 0 ? LoopType::Alternating : LoopType::Reverse;
        Waveform& wave = AddWave(items, frames, type, start, end);
        wave.loop.breakOnRelease = round % 3 == 0;
        SCOPED_TRACE(::testing::Message() << frames << ": " << start << " to " << end << ", " << round);
        const std::size_t body = end - start;
        const std::size_t steps = start + 12 * body;
        const std::size_t release = start + (4 + static_cast<std::size_t>(round / 6 % 2)) * body + body / 2;
        const std::size_t never = std::numeric_limits<std::size_t>::max();
        const Frames mirrored = Play(SamplesOf(wave), wave.loop, steps + 1, never);
        const Frames left = Play(SamplesOf(wave), wave.loop, steps + 1000, release);

        LoopConversions conversions;
        conversions.atLeast32 = round % 5 != 0;
        bool changed = false;
        ASSERT_TRUE(ConvertLoop(wave, conversions, changed));
        ASSERT_EQ(wave.loop.type, LoopType::Forward);
        const Frames unrolled = Play(SamplesOf(wave), wave.loop, steps, never);
        ASSERT_EQ(unrolled.size(), steps);
        for (std::size_t i = start; i < steps; ++i) {
            const bool isForward = type == LoopType::Alternating && (i - start) % (2 * body) < body;
            if (type == LoopType::Alternating || i >= start + body) {
                ASSERT_EQ(unrolled[i], mirrored[isForward ? i : i + 1]) << i;
            }
        }
        if (!wave.loop.breakOnRelease)
            continue;
        const Frames leftLater = Play(SamplesOf(wave), wave.loop, steps + 1000, release);
        const auto tail = static_cast<long>(frames - start);
        ASSERT_GE(leftLater.size(), frames - start);
        const bool turnsOnTheSpot = type == LoopType::Reverse && body == 1; // beyond its own end
        EXPECT_TRUE(conversions.atLeast32 || turnsOnTheSpot || leftLater.size() == left.size());
        EXPECT_TRUE(std::equal(leftLater.end() - tail, leftLater.end(), left.end() - tail));
    }
}

TEST(ConvertLoop, FractionalLoopsKeepTheirPitch)
{
    struct Row {
        LoopType type;
        double start, end;
    };
    for (const Row& row : {Row{LoopType::Alternating, 10.3, 20.7}, Row{LoopType::Reverse, 40.5, 99.9},
                           Row{LoopType::Forward, 3.25, 10.75}, Row{LoopType::Alternating, 98.7, 100}}) {
        Collection items;
        Waveform& wave = AddWave(items, 100, row.type, row.start, row.end);
        wave.loop.pitch = 0.5f;
        bool changed = false;
        ASSERT_TRUE(ConvertLoop(wave, {}, changed));
        EXPECT_EQ(wave.loop.start, std::trunc(wave.loop.start));
        const double before = (row.end - row.start) / std::exp2(0.5 / 12);
        const double after = (wave.loop.end - wave.loop.start) / std::exp2(double{wave.loop.pitch} / 12);
        const double ratio = after / before;
        EXPECT_NEAR(ratio, std::round(ratio), 1e-5) << row.start;
    }
    // Where no frame of the loop is rewritten, its points stay.
    Collection items;
    Waveform& wave = AddWave(items, 100, LoopType::Forward, 3.25, 80.5);
    bool changed = false;
    ASSERT_TRUE(ConvertLoop(wave, {.append32 = true}, changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(wave.frames, 81u + 32u);
    EXPECT_EQ(wave.loop.end, 80.5);
}

TEST(ConvertLoop, WhatNeedsNoChangeIsNotRead)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    wave.SetSourceFormat(DataFormat::Pcm16, 0); // without a file: reading would fail
    wave.frames = 1000;
    const LoopConversions all{true, true, true, true, true};
    const auto convert = [&](LoopType type, double start, double end, const LoopConversions& conversions) {
        wave.loop.type = type;
        wave.loop.start = start;
        wave.loop.end = end;
        bool changed = true;
        const bool good = ConvertLoop(wave, conversions, changed);
        EXPECT_FALSE(changed || wave.HasBlock());
        return good;
    };
    EXPECT_TRUE(convert(LoopType::Off, 0, 1000, all));
    EXPECT_TRUE(convert(LoopType::Forward, 32, 968, all));
    EXPECT_TRUE(convert(LoopType::Alternating, 0, 1000, kNothing));
    EXPECT_FALSE(convert(LoopType::Forward, 32, 968.5, all));
    EXPECT_FALSE(convert(LoopType::Forward, 31.5, 968, all));
    EXPECT_FALSE(convert(LoopType::Alternating, 32, 900, all));
    EXPECT_EQ(wave.loop.type, LoopType::Alternating);
    EXPECT_EQ(LastError(), u"Could not open file");

    // Never more frames than a position can name.
    wave.frames = 3000000000u;
    EXPECT_FALSE(convert(LoopType::Alternating, 0, 2999999999.0, all));
    EXPECT_EQ(LastError(), u"The waveform would become too long");
    wave.frames = 0;
    EXPECT_TRUE(convert(LoopType::Alternating, 0, 0, all));

    // A loop whose points met is one over the whole waveform, as for every player.
    Waveform& met = AddWave(items, 100, LoopType::Alternating, 50, 50);
    bool changed = false;
    EXPECT_TRUE(ConvertLoop(met, {}, changed));
    EXPECT_EQ(met.frames, 150u);
}

TEST(ConvertLoop, MarkersAndRegionsFollow)
{
    Collection items;
    Waveform& wave = AddWave(items, 100, LoopType::Alternating, 10, 20);
    wave.markers = {{false, 15, 0, u"in"},
                    {true, 15, 25, u"across"},
                    {false, 20, 0, u"behind"},
                    {true, 18, 20, u"up to"}};
    Instrument& instrument = AddInstrument(items, 1, 1, wave);
    Region& region = *instrument.Layers()[0]->Regions()[0];
    region.overrideFlags = Region::kLoopStart | Region::kLoopEnd;
    region.loop.start = 5;
    region.loop.end = 90;
    region.startOffset = 30;
    EXPECT_EQ(ConvertLoops(items, {.atLeast32 = false, .prepend32 = true}), 1u);
    EXPECT_EQ(wave.frames, 132u);
    EXPECT_EQ(wave.markers[0].position, 15u + 22u);
    EXPECT_EQ(wave.markers[1].end, 25u + 22u + 10u);
    EXPECT_EQ(wave.markers[2].end, 20u + 22u);
    EXPECT_EQ(wave.markers[3].position, 20u + 22u + 10u);
    EXPECT_EQ(region.loop.start, 5 + 22);
    EXPECT_EQ(region.loop.end, 90 + 22 + 10);
    EXPECT_EQ(region.loop.type, LoopType::Forward);
    EXPECT_EQ(region.startOffset, 30 + 22 + 10);

    Waveform& back = AddWave(items, 100, LoopType::Reverse, 10, 50);
    back.markers = {{false, 12, 0, u"p"}, {true, 20, 30, u"r"}};
    bool changed = false;
    ASSERT_TRUE(ConvertLoop(back, {}, changed));
    EXPECT_EQ(back.markers[0].position, 30u);
    EXPECT_EQ(back.markers[0].end, 40u);
    EXPECT_EQ(back.markers[1].position, 47u);
}

TEST(ConvertLoop, ValidateWithoutReverseLoopsConverts)
{
    Collection items;
    items.features.bits &= ~(std::uint64_t{1} << static_cast<unsigned>(Feature::WaveReverseLoops));
    Waveform& wave = AddWave(items, 8, LoopType::Alternating, 2, 5);
    wave.Validate();
    EXPECT_EQ(SamplesOf(wave), Count(1, 5) + Count(5, 3) + Count(6, 8));
    EXPECT_EQ(wave.loop.type, LoopType::Forward);
    Waveform& forward = AddWave(items, 8, LoopType::Forward, 2, 5);
    forward.Validate();
    EXPECT_EQ(forward.frames, 8u);
}

TEST(TrimWaveAfterLoop, CutsWhatIsNotPlayed)
{
    struct Row {
        const char* name;
        TrimAfterLoop options;
        Frames wanted;
        double start, end;
        bool makesRelease;
    };
    const std::vector<Row> rows = {
        {"plain", {true, false, false, false, false}, Count(1, 50), 10, 50, false},
        {"regions", {true, true, false, false, false}, Count(1, 60), 10, 50, false},
        {"append", {true, false, true, false, false}, Count(1, 50) + Count(11, 42), 10, 50, false},
        {"append to the last loop",
         {true, true, true, false, false},
         Count(1, 60) + Count(21, 52),
         10,
         50,
         false},
        {"release", {true, false, false, true, false}, Count(1, 50), 10, 50, true},
        {"start", {true, false, false, false, true}, Count(11, 50), 0, 40, false},
        {"start only", {false, false, true, true, true}, Count(11, 100), 0, 40, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Collection items;
        Waveform& wave = AddWave(items, 100, LoopType::Forward, 10, 50);
        wave.markers = {{false, 5, 0, u"a"}, {true, 20, 70, u"b"}, {false, 90, 0, u"c"}};
        Instrument& instrument = AddInstrument(items, 1, 1, wave);
        Region& region = *instrument.Layers()[0]->Regions()[0];
        region.overrideFlags = Region::kLoopType | Region::kLoopStart | Region::kLoopEnd;
        region.loop = {.type = LoopType::Forward, .start = 20, .end = 60};
        region.endOffset = -5;
        bool changed = false;
        Waveform* release = nullptr;
        ASSERT_TRUE(TrimWaveAfterLoop(wave, row.options, changed, &release));
        EXPECT_TRUE(changed);
        EXPECT_EQ(SamplesOf(wave), row.wanted);
        EXPECT_EQ(wave.loop.start, row.start);
        EXPECT_EQ(wave.loop.end, row.end);
        EXPECT_EQ(region.loop.start, 10 + row.start);
        EXPECT_EQ(region.endOffset, row.options.cutAfterEnd ? 0 : -5);
        ASSERT_EQ(release != nullptr, row.makesRelease);
        if (release != nullptr) {
            EXPECT_EQ(SamplesOf(*release), Count(51, 100));
            EXPECT_EQ(release->GetName(), u"wave Release");
            EXPECT_EQ(release->loop.type, LoopType::Off);
            ASSERT_EQ(release->markers.size(), 1u);
            EXPECT_EQ(release->markers[0].position, 40u);
        }
    }
    Collection items;
    bool changed = true;
    EXPECT_TRUE(TrimWaveAfterLoop(AddWave(items, 100, LoopType::Off, 10, 50), {}, changed));
    EXPECT_FALSE(changed);
}

} // namespace
} // namespace vimbo
