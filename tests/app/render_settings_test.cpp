// Settings of songs and models arrive where sound is made.
#include "app/render_settings.h"

#include "model/instrument.h"
#include "model/synth_model.h"
#include "model/waveform.h"
#include "synth/fm_patch.h"
#include "synth/save_services.h"

#include <gtest/gtest.h>

namespace vimbo::app {
namespace {

TEST(RenderSettings, UnsetSettingsAreTheSynthesizersOwnDefaults)
{
    const synth::RenderSettings songs = SongRendering(Settings()), own;
    EXPECT_EQ(
        std::tie(songs.rateHz, songs.effects, songs.normalizePeak, songs.trimSilence, songs.gmBank,
                 songs.polyphony),
        std::tie(own.rateHz, own.effects, own.normalizePeak, own.trimSilence, own.gmBank, own.polyphony));
    const synth::WavetableSettings models = ModelRendering(Settings()), ownModels;
    EXPECT_EQ(
        std::tie(models.rateHz, models.maxMilliseconds, models.minMilliseconds, models.waves),
        std::tie(ownModels.rateHz, ownModels.maxMilliseconds, ownModels.minMilliseconds, ownModels.waves));
}

TEST(RenderSettings, ModelsBecomeWhatTheSettingsSay)
{
    Settings settings;
    ASSERT_TRUE(settings.Set<std::int64_t>("sy2wt.dwSampleRate", 16000));
    ASSERT_TRUE(settings.Set<std::int64_t>("sy2wt.dwmsMaxLength", 1000));
    ASSERT_TRUE(settings.Set<std::int64_t>("sy2wt.dwmsMinLength", 500));
    ASSERT_TRUE(settings.Set<std::int64_t>("sy2wt.iNumWaves", 2));
    // A tone that stands as long as the key is held, and one of a hundredth of a second.
    for (const auto& [dies, frames] : {std::pair(false, 16000u), std::pair(true, 8000u)}) {
        Collection items;
        auto& model = items.Create<SynthModel>(u"Lead");
        synth::FmPatch patch;
        patch.operators[0].isEnabled = patch.operators[0].isCarrier = true;
        patch.operators[0].envelope = {0, 2, 1, {{{1, 0.01f}, {0, 0.1f}}}};
        if (dies)
            patch.operators[0].envelope = {1, 1, synth::kNoHold, {{{0, 0.01f}}}};
        StorePatch(model, patch);
        Instrument& instrument = items.Create<Instrument>(u"Bank");
        instrument.AddLayer().AddRegion(NO_ITEM, {0, 127}).SetSound(model.Handle());
        const SaveServices services =
            synth::MakeSaveServices(SongRendering(settings), ModelRendering(settings));
        ASSERT_TRUE(services.convertSynthModels(items));
        const std::vector<Waveform*> waves = items.List<Waveform>();
        ASSERT_EQ(waves.size(), 2u);
        EXPECT_EQ(waves[0]->rateHz, 16000u);
        EXPECT_EQ(waves[0]->frames, frames);
    }
}

} // namespace
} // namespace vimbo::app
