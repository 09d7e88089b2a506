#include "synth/save_services.h"

#include "base/last_error.h"
#include "model/song.h"

#include <deque>
#include <mutex>

namespace vimbo::synth {
namespace {

struct Renderer {
    RenderSettings settings;
    std::vector<Collection*> banks;
    std::deque<ScratchFile> files;
    std::mutex mutex; ///< of `files`

    ScratchFile& NewFile()
    {
        const std::lock_guard lock(mutex);
        return files.emplace_back();
    }

    Waveform* Render(Song& song)
    {
        InstrumentSources sources;
        sources.banks = banks;
        const RenderResult result = RenderSong(song, settings, sources, NewFile());
        if (result.end == RenderEnd::NoNotes)
            (void)Fail(u"No notes to render");
        else if (result.end == RenderEnd::Aborted)
            (void)Fail(u"Rendered aborted");
        return result.wave;
    }
};

} // namespace

SaveServices MakeSaveServices(const RenderSettings& settings, const WavetableSettings& modelSettings,
                              std::span<Collection* const> banks)
{
    auto renderer = std::make_shared<Renderer>();
    renderer->settings = settings;
    renderer->banks.assign(banks.begin(), banks.end());
    SaveServices services;
    services.renderSong = [renderer](Song& song) { return renderer->Render(song); };
    services.convertSynthModels = [modelSettings](Item& root) {
        return ConvertSynthModels(root, modelSettings);
    };
    return services;
}

} // namespace vimbo::synth
