#include "model/articulation.h"

#include "model/envelope.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace vimbo {
namespace {

FeatureMask Without(std::initializer_list<Feature> missing, FeatureMask mask = {})
{
    for (const Feature feature : missing)
        mask.bits &= ~(std::uint64_t{1} << static_cast<unsigned>(feature));
    return mask;
}

/// Values inside their limits, a share of them marked; list values are whole.
ArticulationBlock RandomBlock(std::mt19937& random, double marked)
{
    ArticulationBlock block;
    std::uniform_real_distribution<float> part(0, 1);
    for (ParamId id = 0; id < kArticulationParams; ++id) {
        const ParamRow& row = ArticulationParamRow(id);
        if (part(random) < 0.4f)
            continue;
        float value = row.minimum + (row.maximum - row.minimum) * part(random);
        if (row.editClass == EditClass::LfoShape)
            value = static_cast<float>(random() % 3 * 64 + random() % 6);
        else if (row.editClass >= EditClass::Key)
            value = std::round(value);
        block.Assign(id, value);
        if (part(random) < static_cast<float>(marked))
            block.Mark(id);
    }
    return block;
}

::testing::AssertionResult Same(const ArticulationBlock& a, const ArticulationBlock& b)
{
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (a[id] != b[id] || a.IsSet(id) != b.IsSet(id))
            return ::testing::AssertionFailure()
                   << "id " << id << ": " << a[id] << (a.IsSet(id) ? " set" : "") << ", " << b[id]
                   << (b.IsSet(id) ? " set" : "");
    return ::testing::AssertionSuccess();
}

TEST(ArticulationBlock, CopiesShareValuesUntilOneChanges)
{
    ArticulationBlock first;
    first.Set(kArtVolume, -6);
    ArticulationBlock second = first, third;
    EXPECT_TRUE(second.SharesValues(first));
    second.Set(kArtVolume, -6); // nothing new
    EXPECT_TRUE(second.SharesValues(first));
    second.Set(kArtPan, 1);
    EXPECT_FALSE(second.SharesValues(first));
    EXPECT_EQ(first[kArtPan], 0);
    EXPECT_EQ(second[kArtVolume], -6);

    EXPECT_TRUE(third.InheritFrom(second));
    EXPECT_TRUE(third.SharesValues(second));
    third.Set(kArtTuning, 1);
    second.Set(kArtPan, -1);
    EXPECT_TRUE(third.InheritFrom(second)); // only what is not marked
    EXPECT_EQ(third[kArtPan], -1);
    EXPECT_EQ(third[kArtTuning], 1);
    EXPECT_EQ(second[kArtTuning], 0);
    EXPECT_EQ(DefaultArticulation(), ArticulationBlock());
}

TEST(ArticulationBlock, DefaultsAreRoundedAndWithinTheirLimits)
{
    for (ParamId id = 0; id < kArticulationParams; ++id) {
        const ParamRow& row = ArticulationParamRow(id);
        EXPECT_EQ(RoundAndClamp(row, row.defaultValue), row.defaultValue) << id;
    }
}

TEST(ArticulationBlock, SetAssignAndInherit)
{
    ArticulationBlock block;
    EXPECT_EQ(block[15], 96);
    EXPECT_EQ(block[kArtShutdownRate], 0.015f);
    EXPECT_FALSE(block.HasAnySet());
    block.Set(15, 200);
    EXPECT_EQ(block[15], 96);
    EXPECT_TRUE(block.IsSet(15)); // even where nothing changes
    block.Assign(66, 12.345f);
    EXPECT_EQ(block[66], 12.35f);
    EXPECT_FALSE(block.IsSet(66));
    block.Set(188, 7);
    EXPECT_EQ(block[188], 0);
    block.Set(189, 7); // no id of the block
    block.Inherit(15, 3.14159f);
    EXPECT_EQ(block[15], 3.14159f);
    EXPECT_FALSE(block.IsSet(15));
    block.Reset();
    EXPECT_EQ(block, DefaultArticulation());
}

TEST(ArticulationBlock, FilterIdsCountOnlyWithAFilter)
{
    for (ParamId id = 0; id < kArticulationParams; ++id) {
        ArticulationBlock block;
        block.Mark(id);
        EXPECT_EQ(block.HasAnySet(), id < 24 || id > 39) << id;
        block.Assign(kArtFilterType, 2);
        EXPECT_TRUE(block.HasAnySet()) << id;
    }
}

TEST(ArticulationBlock, CombinesLevelsLikeAnIdByIdTwin)
{
    std::mt19937 random(7);
    for (int round = 0; round < 400; ++round) {
        const double marked = round % 5 * 0.25; // none to all
        const ArticulationBlock source = RandomBlock(random, 0.5);
        ArticulationBlock block = RandomBlock(random, marked);
        if (round % 7 == 0)
            block = source;

        ArticulationBlock inherited = block, lean = block, pushed = source, differing = block;
        const bool changed = inherited.InheritFrom(source);
        const bool cleared = lean.ClearRedundant(source);
        block.PushDownTo(pushed);
        differing.MarkDifferences(source);

        bool expectChanged = false, expectCleared = false;
        for (ParamId id = 0; id < kArticulationParams; ++id) {
            const bool isSet = block.IsSet(id), differs = block[id] != source[id];
            expectChanged = expectChanged || (!isSet && differs);
            expectCleared = expectCleared || (isSet && !differs);
            ASSERT_EQ(inherited[id], isSet ? block[id] : source[id]) << id;
            ASSERT_EQ(inherited.IsSet(id), isSet) << id;
            ASSERT_EQ(lean[id], block[id]) << id;
            ASSERT_EQ(lean.IsSet(id), isSet && differs) << id;
            const bool pushes = isSet && !source.IsSet(id);
            ASSERT_EQ(pushed[id], pushes ? block[id] : source[id]) << id;
            ASSERT_EQ(pushed.IsSet(id), isSet || source.IsSet(id)) << id;
            ASSERT_EQ(differing[id], block[id]) << id;
            ASSERT_EQ(differing.IsSet(id), differs) << id;
        }
        EXPECT_EQ(changed, expectChanged);
        EXPECT_EQ(cleared, expectCleared);
        EXPECT_FALSE(inherited.InheritFrom(source));
    }
}

/// Blocks remember what they inherited last; twins without a memory must agree after any sequence of steps.
TEST(ArticulationBlock, InheritingAgainMissesNoChange)
{
    struct Twin {
        std::array<float, kArticulationParams> values;
        std::array<bool, kArticulationParams> marks{};
        bool InheritFrom(const Twin& source)
        {
            bool changed = false;
            for (ParamId id = 0; id < kArticulationParams; ++id)
                if (!marks[id] && std::bit_cast<std::uint32_t>(values[id]) !=
                                      std::bit_cast<std::uint32_t>(source.values[id])) {
                    values[id] = source.values[id];
                    changed = true;
                }
            return changed;
        }
    };
    std::mt19937 random(3);
    const auto below = [&](unsigned limit) { return static_cast<std::size_t>(random() % limit); };
    std::array<ArticulationBlock, 4> blocks;
    std::array<Twin, 4> twins;
    for (Twin& twin : twins)
        std::ranges::copy(DefaultArticulation().Values(), twin.values.begin());
    for (int step = 0; step < 20000; ++step) {
        const std::size_t i = below(4), k = below(4);
        const auto id = static_cast<ParamId>(below(12) * 17);
        const float value = std::array{0.0f, -0.0f, 0.25f, 1.0f}[below(4)];
        switch (below(9)) {
        case 0:
        case 1:
            blocks[i].Inherit(id, value);
            twins[i].values[id] = value;
            twins[i].marks[id] = false;
            break;
        case 2:
            blocks[i].Mark(id);
            twins[i].marks[id] = true;
            break;
        case 3:
            blocks[i].Unmark(id);
            twins[i].marks[id] = false;
            break;
        case 4:
            if (below(20) == 0) {
                blocks[i].UnmarkAll();
                twins[i].marks = {};
            }
            break;
        case 5:
            if (below(10) == 0) {
                blocks[i] = blocks[k];
                twins[i] = twins[k];
            }
            break;
        case 6: {
            const ArticulationBlock::MarkWords found = blocks[i].DifferenceTo(blocks[k]);
            for (ParamId each = 0; each < kArticulationParams; ++each)
                ASSERT_EQ((found[each / 64] >> each % 64 & 1) != 0,
                          twins[i].values[each] != twins[k].values[each])
                    << "step " << step << ", id " << each;
            break;
        }
        default:
            ASSERT_EQ(blocks[i].InheritFrom(blocks[k]), twins[i].InheritFrom(twins[k])) << "step " << step;
        }
        for (ParamId each = 0; each < kArticulationParams; each += 17)
            ASSERT_EQ(std::bit_cast<std::uint32_t>(blocks[i][each]),
                      std::bit_cast<std::uint32_t>(twins[i].values[each]))
                << "step " << step << ", id " << each;
    }
}

TEST(ArticulationBlock, StateBytes)
{
    std::mt19937 random(3);
    ArticulationBlock block = RandomBlock(random, 0.5);
    block.Set(0, 1);
    block.Set(188, 0);
    ByteWriter out;
    block.Serialize(out);
    ASSERT_EQ(out.Size(), 780U);
    // 1.0f, little-endian; the mark of id 0 is the lowest bit behind the values, that of 188 bit 60 of the
    // last word.
    EXPECT_EQ(out.Bytes()[2], std::byte{0x80});
    EXPECT_EQ(out.Bytes()[3], std::byte{0x3F});
    EXPECT_EQ(out.Bytes()[756] & std::byte{1}, std::byte{1});
    EXPECT_EQ(out.Bytes()[779] & std::byte{0x10}, std::byte{0x10});

    ArticulationBlock read;
    ByteReader in(out.Bytes());
    ASSERT_TRUE(read.Deserialize(in));
    EXPECT_TRUE(Same(read, block));
    EXPECT_EQ(in.Left(), 0U);
    ByteReader shortInput(out.Bytes().first(779));
    EXPECT_FALSE(read.Deserialize(shortInput));
}

TEST(ArticulationBlock, DamagedStateComesInsideItsLimits)
{
    for (const std::byte fill : {std::byte{0x00}, std::byte{0x7F}, std::byte{0x80}, std::byte{0xFF}}) {
        const std::vector<std::byte> bytes(780, fill);
        ArticulationBlock block;
        ByteReader in(bytes);
        ASSERT_TRUE(block.Deserialize(in));
        for (ParamId id = 0; id < kArticulationParams; ++id)
            EXPECT_TRUE(block[id] >= ArticulationParamRow(id).minimum &&
                        block[id] <= ArticulationParamRow(id).maximum)
                << id;
        EXPECT_EQ(block.Marks()[2] >> 61, 0U); // no id there
    }
}

TEST(ArticulationBlock, ClipboardGroups)
{
    const auto count = [](ParamGroup group) {
        int ids = 0;
        for (ParamId id = 0; id < kArticulationParams; ++id)
            ids += GroupOf(id) == group ? 1 : 0;
        return ids;
    };
    EXPECT_EQ(count(ParamGroup::Lfo), 16 + 4 * 4 + 1);
    EXPECT_EQ(count(ParamGroup::Envelope), 4 * 27 + 5);
    EXPECT_EQ(count(ParamGroup::Eq), 12);
    EXPECT_EQ(count(ParamGroup::Filter), 16 - 4 - 2);
}

TEST(Normalize, NegativePolarityNegatesTheDepths)
{
    struct Case {
        ParamId shape;
        std::vector<ParamId> depths;
    };
    const Case cases[] = {
        {65, {3, 4, 5, 6}}, {69, {19, 20, 21, 22}}, {73, {29, 30, 31, 32}}, {77, {7, 8, 9, 10, 54}}};
    for (const Case& c : cases) {
        ArticulationBlock block, expected;
        block.Set(c.shape, 128 + 4);
        expected.Set(c.shape, 64 + 4);
        for (const ParamId id : c.depths) {
            block.Assign(id, 0.5f);
            expected.Set(id, -0.5f);
        }
        block.Normalize({});
        EXPECT_TRUE(Same(block, expected));
    }
    ArticulationBlock inherited;
    inherited.Inherit(65, 132);
    inherited.Set(3, 1);
    inherited.Normalize({});
    EXPECT_EQ(inherited[65], 132);
    EXPECT_EQ(inherited[3], 1);
}

TEST(Normalize, EachMissingFeatureTakesItsIds)
{
    struct Case {
        Feature missing;
        std::vector<ParamId> ids;
    };
    const auto ofEnvelopes = [](std::initializer_list<int> offsets) {
        std::vector<ParamId> ids;
        for (int base = 81; base < 189; base += 27)
            for (const int offset : offsets)
                ids.push_back(static_cast<ParamId>(base + offset));
        return ids;
    };
    const auto range = [](int first, int last) {
        std::vector<ParamId> ids;
        for (int id = first; id <= last; ++id)
            ids.push_back(static_cast<ParamId>(id));
        return ids;
    };
    std::vector<ParamId> modEnvelopes = range(108, 188);
    modEnvelopes.insert(modEnvelopes.end(), {11, 12, 33, 34, 55});
    const Case cases[] = {
        {Feature::LfoShapes, {65, 69, 73, 77}},
        {Feature::LfoModulation, {4, 5, 6, 8, 9, 10, 20, 21, 22, 30, 31, 32}},
        {Feature::EnvVelocityToAttack1, ofEnvelopes({2})},
        {Feature::EnvVelocityToAttack2, ofEnvelopes({6})},
        {Feature::EnvVelocityToDecay, ofEnvelopes({10, 14})},
        {Feature::EnvVelocityToRelease, ofEnvelopes({23})},
        {Feature::EnvKeyToAttackRelease, ofEnvelopes({3, 7, 24})},
        {Feature::EnvVelocityToDepth, {12, 34}},
        {Feature::EnvModulationAndVolume, modEnvelopes},
        {Feature::PitchBend, {2}},
        {Feature::PitchKey, {1}},
        {Feature::PitchRandom, {13}},
        {Feature::MixerKeyToVolumePan, {16, 53}},
        {Feature::MixerRandomToPan, {56}},
        {Feature::VolumeControllers, {17, 18}},
        {Feature::FilterLowPass, range(23, 38)},
        {Feature::FilterControllersToCutoff, {27, 28}},
        {Feature::FilterKeyVelocityToCutoff, {25, 26}},
        {Feature::FilterToResonance, {36, 37, 38}},
        {Feature::EffectSends, {57, 59, 61, 63}},
        {Feature::EffectEq, {41, 45, 49}},
        {Feature::MixerChannelDepths, {52, 58, 60, 62, 64}},
    };
    std::mt19937 random(11);
    for (const Case& c : cases) {
        ArticulationBlock block = RandomBlock(random, 1);
        block.Normalize({});
        ArticulationBlock expected = block;
        for (const ParamId id : c.ids)
            expected.Inherit(id, ArticulationParamRow(id).defaultValue);
        block.Normalize(Without({c.missing}));
        EXPECT_TRUE(Same(block, expected)) << "feature " << static_cast<int>(c.missing);
    }
}

TEST(Normalize, RampBecomesDelay)
{
    ArticulationBlock block;
    block.Set(67, 1);
    block.Set(68, 4);   // P-LFO: delay 1, ramp 4
    block.Set(76, 100); // F-LFO
    block.Inherit(80, 1);
    block.Normalize(Without({Feature::LfoRamp}));
    ArticulationBlock expected;
    expected.Set(67, 3);
    expected.Set(75, 10);
    expected.Assign(79, 0.5f);
    EXPECT_TRUE(Same(block, expected));
}

TEST(Normalize, FilterTypesThatRemain)
{
    for (int type = 0; type <= 12; ++type) {
        ArticulationBlock block;
        block.Set(kArtFilterType, static_cast<float>(type));
        block.Set(kArtCutoff, 500);
        block.Normalize(Without({Feature::FilterMoreTypes}));
        EXPECT_EQ(block[kArtFilterType], type == 0 ? 0 : 2);
        EXPECT_EQ(block[kArtCutoff], 500);
        EXPECT_TRUE(block.IsSet(kArtFilterType));
    }
}

TEST(Normalize, EqBandsInOrderOfFrequency)
{
    ArticulationBlock block;
    block.Set(40, 6000);
    block.Set(44, 200);
    block.Normalize({}); // nothing to hear: they stay
    EXPECT_EQ(block[40], 6000);
    block.Set(39, 2);
    block.Set(41, -3);
    block.Normalize({});
    ArticulationBlock expected;
    expected.Set(40, 200);
    expected.Set(41, 0);
    expected.Set(39, 0);
    expected.Set(44, 5000);
    expected.Set(47, 2);
    expected.Set(48, 6000);
    expected.Set(49, -3);
    EXPECT_TRUE(Same(block, expected));
}

TEST(Normalize, StrongestLfoIsKept)
{
    ArticulationBlock block;
    block.Set(66, 6);
    block.Set(3, 0.3f); // P-LFO
    block.Set(70, 3);
    block.Set(20, 1); // V-LFO, by wheel
    block.Set(74, 3);
    block.Set(29, 24); // F-LFO of the same form, strong
    block.Set(78, 0.5f);
    block.Set(54, 0.01f); // X-LFO, weak
    const ArticulationBlock before = block;

    block.Normalize(Without({Feature::LfoSeparate})); // no mask of a format: bit 63 is set
    EXPECT_TRUE(Same(block, before));
    const FeatureMask twoLfos = Without({Feature::LfoSeparate, Feature::KeepSeparateLfos});
    block.Normalize(twoLfos);
    ArticulationBlock expected = before;
    expected.Set(54, 0);
    EXPECT_TRUE(Same(block, expected));
    block.Normalize(Without({Feature::LfoPitchAndModulation}, twoLfos));
    expected.Set(3, 0);
    EXPECT_TRUE(Same(block, expected));
}

TEST(Normalize, StrongestModulationEnvelopeIsKept)
{
    ArticulationBlock block;
    block.Set(kArtPEnvToPitch, 1);
    block.Set(EnvelopeBase(EnvelopeIndex::Pitch) + kEnvDecay2Time, 0.5f);
    block.Set(EnvelopeBase(EnvelopeIndex::Pitch) + kEnvSustain, 0);
    block.Set(kArtFEnvToCutoff, -60);
    block.Set(EnvelopeBase(EnvelopeIndex::Filter) + kEnvAttack2Time, 2);
    ArticulationBlock expected = block;
    block.Normalize(Without({Feature::EnvSeparate}));
    expected.Set(kArtPEnvToPitch, 0);
    EXPECT_TRUE(Same(block, expected));
}

TEST(Normalize, ReleaseModeFollowsFromLevels)
{
    struct Case {
        float sustain, release1;
        float mode;
    };
    for (const Case& c : {Case{1, 0, 0}, Case{0.5f, 0.5f, 1}, Case{0.5f, 0.6f, 1}, Case{0.5f, 0.4f, 0},
                          Case{0, 0, 0}, Case{0, 0.5f, 0}}) {
        for (int base = 81; base < 189; base += 27) {
            ArticulationBlock block;
            block.Set(static_cast<ParamId>(base + 16), c.sustain);
            block.Set(static_cast<ParamId>(base + 18), c.release1);
            block.Normalize({});
            EXPECT_EQ(block[static_cast<ParamId>(base + 25)], c.mode) << c.sustain << ' ' << c.release1;
        }
    }
}

TEST(Normalize, EnvelopesTakeTheFormThatIsPermitted)
{
    const EnvelopeIndex index = EnvelopeIndex::Filter;
    Envelope envelope;
    envelope.attack1 = {1, 0};
    envelope.attack2 = {2, -0.5f};
    envelope.decay1 = {1, -0.5f};
    envelope.decay2 = {1, -0.25f};
    envelope.release1Rate = 4;
    envelope.release1Level = -0.125f;
    envelope.release2Seconds = 1;
    ArticulationBlock block;
    SetEnvelope(block, envelope, index);
    block.Set(kArtFEnvToCutoff, 24);
    block.Set(kArtVelFEnvToCutoff, -8);

    // Negative, half-height: the depth takes the sign and the height.
    ArticulationBlock sixStages = block;
    sixStages.Normalize(Without({Feature::EnvMoreLevels}));
    Envelope reduced;
    GetEnvelope(sixStages, reduced, index);
    EXPECT_EQ(sixStages[kArtFEnvToCutoff], -12);
    EXPECT_EQ(sixStages[kArtVelFEnvToCutoff], 4);
    EXPECT_EQ(reduced.attack1.seconds, 1);
    EXPECT_EQ(reduced.attack2, (EnvelopeStage{2, 1}));
    EXPECT_EQ(reduced.decay2, (EnvelopeStage{1, 0.5f}));
    EXPECT_EQ(reduced.release1Level, 0.25f); // releases are permitted
    EXPECT_EQ(reduced.release2Seconds, 1);

    sixStages.Normalize(Without({Feature::EnvMoreLevels, Feature::EnvThreeReleases}));
    GetEnvelope(sixStages, reduced, index);
    EXPECT_EQ(reduced.release1Level, 0);
    EXPECT_EQ(reduced.release2Seconds, 0);
    EXPECT_GT(reduced.release1Rate, 0);

    sixStages.Normalize(Without({Feature::EnvMoreLevels, Feature::EnvSixStages}));
    GetEnvelope(sixStages, reduced, index);
    EXPECT_EQ(reduced.attack1.seconds, 0); // no delay
    EXPECT_EQ(reduced.attack2.seconds, 4); // half level at the same time
}

TEST(Normalize, AnyMaskLeavesAFixedPointInsideTheLimits)
{
    std::mt19937 random(99);
    std::vector<FeatureMask> masks;
    for (const FeaturePreset& preset : FeaturePresets())
        masks.push_back(preset.mask);
    while (masks.size() < 60)
        masks.push_back({std::uint64_t{random()} << 32 | random()});
    for (const FeatureMask mask : masks) {
        for (int round = 0; round < 30; ++round) {
            ArticulationBlock block = RandomBlock(random, round % 3 * 0.5);
            block.Normalize(mask);
            for (ParamId id = 0; id < kArticulationParams; ++id) {
                const ParamRow& row = ArticulationParamRow(id);
                ASSERT_TRUE(block[id] >= row.minimum && block[id] <= row.maximum) << id;
                // A block that sets nothing goes on inheriting all.
                ASSERT_TRUE(round % 3 != 0 || !block.IsSet(id)) << id;
            }
            ArticulationBlock again = block;
            again.Normalize(mask);
            ASSERT_TRUE(Same(again, block)) << std::hex << mask.bits << " round " << round;

            // A level below settles in one pass too: what changed there is not inherited back.
            ArticulationBlock lower = RandomBlock(random, round % 4 * 0.1);
            lower.InheritFrom(block);
            lower.Normalize(mask);
            again = lower;
            again.InheritFrom(block);
            again.Normalize(mask);
            ASSERT_TRUE(Same(again, lower)) << std::hex << mask.bits << " round " << round;
        }
        ArticulationBlock defaults;
        defaults.Normalize(mask);
        EXPECT_EQ(defaults, DefaultArticulation());
    }
}

TEST(Average, MeansAndMajorities)
{
    ArticulationBlock a, b, c;
    a.Set(0, 1);
    b.Set(0, 2);
    a.Set(65, 64 + 4); // two saw-up, two bipolar: neither block alone is the outcome
    b.Set(65, 4);
    c.Set(65, 1);
    b.Set(106, 1);
    c.Set(106, 1);
    a.Set(23, 2);
    a.Set(24, 1000);
    b.Set(23, 2);
    b.Set(24, 2000);
    c.Set(24, 20000);
    c.Set(39, 2);
    const WeightedBlock all[] = {{&a, 1}, {&b, 1}, {&c, 1}};
    ArticulationBlock mean = Average(all);
    EXPECT_EQ(mean[0], 1);
    EXPECT_EQ(mean[65], 4);
    EXPECT_EQ(mean[106], 1);
    EXPECT_EQ(mean[23], 2);
    EXPECT_EQ(mean[24], 1500); // of the blocks with that filter
    EXPECT_EQ(mean[39], 0);
    for (ParamId id = 0; id < kArticulationParams; ++id)
        EXPECT_EQ(mean.IsSet(id), a.IsSet(id) || b.IsSet(id) || c.IsSet(id)) << id;

    const WeightedBlock weighted[] = {{&a, 1}, {&b, 2}, {&c, 4}};
    mean = Average(weighted);
    EXPECT_EQ(mean[0], 0.714f); // 5 / 7
    EXPECT_EQ(mean[65], 1);
    EXPECT_EQ(mean[23], 0);
    EXPECT_EQ(mean[24], 20000);
    EXPECT_EQ(mean[39], 2);
}

TEST(Average, OfAlikeOrNoBlocks)
{
    std::mt19937 random(5);
    const ArticulationBlock block = RandomBlock(random, 0.5);
    const WeightedBlock alike[] = {{&block, 0.3}, {&block, 0.7}, {&block, 3}};
    EXPECT_TRUE(Same(Average(alike), block));
    EXPECT_EQ(Average({}), DefaultArticulation());
}

} // namespace
} // namespace vimbo
