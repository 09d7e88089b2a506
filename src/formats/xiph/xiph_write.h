// What the writers of FLAC and Ogg files share.
#pragma once

#include "formats/format_choice.h"

namespace vimbo {

/// The waveform's frames as OpenFramesForWriter gives them; of a waveform without frames an empty source.
inline std::unique_ptr<FrameSource> OpenFramesOrNone(Waveform& wave, const FormatChoice& choice)
{
    class NoFrames final : public FrameSource {
    public:
        explicit NoFrames(unsigned channels) noexcept : FrameSource(0, channels) {}
        bool Read(std::uint32_t, std::span<float>) override { return true; }
    };
    if (wave.frames == 0)
        return std::make_unique<NoFrames>(PickChannels(wave, choice));
    return OpenFramesForWriter(wave, choice);
}

} // namespace vimbo
