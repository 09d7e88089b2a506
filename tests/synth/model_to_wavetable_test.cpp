// Synthesis models rendered to waveforms: what comes in a region's place, and that it sounds the same.
#include "spectrum.h"
#include "synth/model_to_wavetable.h"
#include "synth_fixture.h"

#include "base/last_error.h"
#include "model/fix_up.h"
#include "model/synth_model.h"
#include "model/waveform.h"
#include "synth/compile_model.h"
#include "synth/fm_voice.h"
#include "synth/la_voice.h"

#include <gtest/gtest.h>

namespace vimbo::synth {
namespace {

/// A tone that stands while the key is held; the release takes a tenth of a second.
FmPatch Organ()
{
    FmPatch patch;
    FmOperator& op = patch.operators[0];
    op.isEnabled = op.isCarrier = true;
    op.velocityDb = 24;
    op.envelope = {0, 2, 1, {{{1, 0.01f}, {0, 0.1f}}}};
    return patch;
}

/// Dies away by itself in 0.6 s.
FmPatch Bell()
{
    FmPatch patch = Organ();
    patch.operators[0].envelope = {1, 1, kNoHold, {{{0, 0.6f}}}};
    patch.operators[1] = patch.operators[0];
    patch.operators[1].sources = 1;
    patch.operators[1].ratio = 3.5f;
    return patch;
}

class StoppingHost final : public Host {
public:
    void SetStatus(std::u16string_view text) override
    {
        if (!text.empty())
            statuses.emplace_back(text);
    }
    bool IsCancelled() const override { return statuses.size() > most; }
    std::vector<std::u16string> statuses;
    std::size_t most = 100;
};

class ModelToWavetable : public testing::Test {
protected:
    template <class Patch>
    Region& Add(const Patch& patch, MidiRange keys)
    {
        auto& model = items.Create<SynthModel>(u"Lead");
        StorePatch(model, patch);
        Region& region = instrument.AddLayer().AddRegion(NO_ITEM, keys);
        region.SetSound(model.Handle());
        region.RebuildName();
        return region;
    }
    /// What the engine plays for a note of the instrument, in the middle.
    std::vector<float> Play(unsigned key, unsigned velocity, double keyUpSeconds, std::size_t blocks)
    {
        SynthEngine engine({.channels = 1, .polyphony = 4, .gain = 1, .threads = 1});
        engine.PutInstrument(CompileInstrument(instrument, engine.Samples()));
        engine.PostEvent(SynthEvent::Make(kControlStatus, 7, 127), 0);
        engine.PostEvent(SynthEvent::Make(kNoteOnStatus, key, velocity), 0);
        engine.PostEvent(SynthEvent::Make(kNoteOffStatus, key, 0), keyUpSeconds);
        Rendered rendered = RenderBlocks(engine, blocks);
        for (float& sample : rendered.left)
            sample *= std::numbers::sqrt2_v<float>;
        return rendered.left;
    }
    std::vector<Region*> Regions() { return items.List<Region>(); }

    StoppingHost host; // outlives its collection
    Collection items;
    Instrument& instrument = items.Create<Instrument>(u"Bank");
};

TEST_F(ModelToWavetable, OneWaveTakesTheModelsPlace)
{
    Region& region = Add(Bell(), {40, 60});
    region.rootKey = 99, region.overrideFlags = Region::kRootKey; // overrides meant the model
    FixUpItems(items, 0, AfterLoad::No);
    items.SetHost(host);
    const std::vector<float> model = Play(50, 64, 0, 450);
    ASSERT_TRUE(ConvertSynthModels(items));
    EXPECT_EQ(host.statuses, std::vector<std::u16string>{u"Converting Lead"});
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 0u);
    ASSERT_EQ(items.CountOf(ItemKind::Waveform), 1u);
    Waveform* const wave = region.Wave();
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->GetName(), u"Lead");
    EXPECT_EQ(wave->channels, 1);
    EXPECT_EQ(wave->rateHz, 48000u);
    EXPECT_EQ(wave->rootKey, 50);
    EXPECT_EQ(region.EffectiveRootKey(), 50);
    EXPECT_EQ(wave->frames, 28800u);
    EXPECT_EQ(region.trigger.keys, (MidiRange{40, 60}));
    const std::span<const float> frames = wave->LockSamples();
    ASSERT_EQ(frames.size(), 28800u);
    EXPECT_GT(PeakOf(frames), 0.3);
    for (std::size_t i = 0; i < frames.size(); ++i)
        ASSERT_NEAR(frames[i], model[i], 1e-6) << i;

    // The sampled region plays that sound; its own attack takes the first millisecond.
    FixUpItems(items, 0, AfterLoad::No);
    const std::vector<float> sampled = Play(50, 127, 10, 450);
    for (std::size_t i = 200; i < frames.size() - 4; ++i)
        ASSERT_NEAR(sampled[i], frames[i], 1e-5) << i;
}

TEST_F(ModelToWavetable, LengthsAreLimited)
{
    struct Row {
        const char* name;
        FmPatch patch;
        WavetableSettings settings;
        double seconds, keyUpSeconds;
    };
    FmPatch quick = Bell();
    quick.operators[0].envelope.point[0].seconds = quick.operators[1].envelope.point[0].seconds = 0.05f;
    const Row rows[] = {
        {"stands", Organ(), {}, 2, 1.9},
        {"longest", Organ(), {.maxMilliseconds = 500}, 0.5, 0.4},
        {"longest, short", Organ(), {.maxMilliseconds = 100}, 0.1, 0.05},
        {"dies away", Bell(), {}, 0.6, 0.6},
        {"shortest", quick, {}, 0.25, 0.05},
        {"shortest beyond the longest", quick, {.maxMilliseconds = 100, .minMilliseconds = 400}, 0.1, 0.05},
        {"key up at once", Organ(), {.releasesAtOnce = true}, 2, 0},
        {"nothing", FmPatch{}, {}, 0.25, 0},
    };
    for (const Row& row : rows) {
        SynthRegion record;
        record.model = VoiceModel::Fm;
        record.fm = std::make_shared<FmPatch>(row.patch);
        const NotePlan plan = PlanNote(record, 60, row.settings);
        EXPECT_NEAR(plan.seconds, row.seconds, 1e-6) << row.name;
        EXPECT_NEAR(plan.keyUpSeconds, row.keyUpSeconds, 1e-6) << row.name;
    }
}

/// A sound that stands is let go in time to die away in its waveform.
TEST_F(ModelToWavetable, StandingSoundsEndWithTheirWaveform)
{
    auto& model = items.Create<SynthModel>(u"m");
    StorePatch(model, Organ());
    Waveform* const wave = RenderModel(model, 69, {.rateHz = 32000, .maxMilliseconds = 1000});
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->rateHz, 32000u);
    const std::span<const float> frames = wave->LockSamples();
    ASSERT_EQ(frames.size(), 32000u);
    const double velocityGain = std::pow(64 / 127.0, 0.5);
    EXPECT_NEAR(PeakOf(frames.subspan(10000, 10000)), velocityGain, 1e-3);
    EXPECT_LT(PeakOf(frames.last(200)), 1e-3);
    EXPECT_NEAR(Cents(MeasureHz(frames.first(25000)) * 32 / 48, 440), 0, 0.1) << "the rate counts";
}

TEST_F(ModelToWavetable, SeveralWavesShareTheKeys)
{
    Region& region = Add(Bell(), {36, 66});
    region.SetParam(kParamKeyFadeIn, 4);
    region.SetParam(kParamKeyFadeOut, 2);
    region.SetParam(kArtVolume, -5);
    FixUpItems(items, 0, AfterLoad::No);
    ASSERT_TRUE(ConvertSynthModels(instrument, {.waves = 3}));
    const auto check = [&] {
        const std::vector<Region*> regions = Regions();
        ASSERT_EQ(regions.size(), 3u);
        const MidiRange shares[] = {{36, 45}, {46, 55}, {56, 66}};
        const unsigned roots[] = {40, 50, 61};
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(regions[i]->trigger.keys, shares[i]) << i;
            ASSERT_TRUE(regions[i]->Wave());
            EXPECT_EQ(regions[i]->Wave()->rootKey, roots[i]);
            EXPECT_EQ(regions[i]->articulation[kArtVolume], -5);
            EXPECT_EQ(regions[i]->ParentLayer(), instrument.Layers()[0]);
            EXPECT_EQ(regions[i]->trigger.keyFadeIn, i == 0 ? 4 : 0);
            EXPECT_EQ(regions[i]->trigger.keyFadeOut, i == 2 ? 2 : 0);
        }
    };
    check();
    FixUpItems(items, 0, AfterLoad::No);
    check();
    EXPECT_EQ(instrument.Layers()[0]->Regions().size(), 3u);

    Region& narrow = Add(Bell(), {70, 71});
    ASSERT_TRUE(ConvertSynthModels(narrow, {.waves = 9}));
    EXPECT_EQ(instrument.Layers()[1]->Regions().size(), 2u) << "not more than keys";
}

TEST_F(ModelToWavetable, StopsWithoutTraces)
{
    Add(Organ(), {0, 60});
    Add(Bell(), {61, 127});
    items.SetHost(host);
    host.most = 1;
    EXPECT_FALSE(ConvertSynthModels(items));
    EXPECT_FALSE(LastError().empty());
    EXPECT_EQ(items.CountOf(ItemKind::Waveform), 0u);
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 2u);
    // Only what lies below the root.
    host.most = 100;
    ASSERT_TRUE(ConvertSynthModels(*Regions()[1]));
    EXPECT_TRUE(Regions()[0]->Synth());
    EXPECT_TRUE(Regions()[1]->Wave());
}

/// LA patches play waveforms of the collection; a model without parameters is silence.
TEST_F(ModelToWavetable, PlaysWaveformsOfTheCollection)
{
    auto& source = items.Create<Waveform>(u"sine");
    source.frames = 4800;
    source.rateHz = 48000;
    source.rootKey = 72;
    source.fineTune = -50;
    source.volume = -6.0206f;
    const std::span<float> samples = source.AllocateSamples();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(std::sin(2 * std::numbers::pi * static_cast<double>(i) / 48));
    source.loop = {LoopType::Forward, false, false, 0, 4800, 0};
    LaPatch patch;
    LaPartial& partial = patch.partials[1];
    partial.isEnabled = partial.isPcm = true;
    partial.levelEnvelope.startLevel = 1;
    for (std::size_t i = 0; i < kLaHoldPoint; ++i)
        partial.levelEnvelope.point[i].level = 1;
    Region& region = Add(patch, {0, 127});
    region.Synth()->SetWaveReference(4, source.Handle());
    FixUpItems(items, 0, AfterLoad::No);
    const std::vector<float> played = Play(60, 100, 10, 700);
    EXPECT_NEAR(Cents(MeasureHz(played), 500), -50, 0.05);
    ASSERT_TRUE(ConvertSynthModels(region));
    ASSERT_TRUE(region.Wave());
    EXPECT_EQ(region.Wave()->rootKey, 63);
    const std::span<const float> frames = region.Wave()->LockSamples();
    EXPECT_EQ(frames.size(), 96000u) << "the loop stands";
    EXPECT_NEAR(Cents(MeasureHz(frames.first(90000)), 500), 250, 0.05);
    EXPECT_NEAR(PeakOf(frames.first(90000)), 0.5, 1e-3);

    auto& nothing = items.Create<SynthModel>(u"empty");
    Waveform* const silence = RenderModel(nothing, 60, {});
    ASSERT_TRUE(silence);
    EXPECT_EQ(silence->frames, 12000u);
    EXPECT_EQ(PeakOf(silence->LockSamples()), 0);
}

} // namespace
} // namespace vimbo::synth
