// Takes what an engine renders and makes a waveform of it, without ever holding more than a block.
#pragma once

#include "base/file_object.h"
#include "synth/engine.h"

#include <string>
#include <utility>
#include <vector>

namespace vimbo {
class Waveform;
}

namespace vimbo::synth {

/// Where rendered frames wait on disk until their waveform is saved or read. The file goes with its owner.
class ScratchFile {
public:
    ScratchFile() = default;
    ScratchFile(ScratchFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    ScratchFile& operator=(ScratchFile&& other) noexcept;
    ~ScratchFile();

    /// False with the Last error text if there is no room for temporary files.
    [[nodiscard]] bool Make();
    const std::u16string& Path() const noexcept { return path_; }

private:
    std::u16string path_;
};

/// Sequential writer of stereo frames as 32-bit floats, with what is needed to trim and normalise them.
class WaveSink {
public:
    /// Frames of at least this amplitude (-48 dB of full scale) count as sound when silence is trimmed.
    static constexpr float kSilence = 0.003981072f;

    [[nodiscard]] bool Open(const std::u16string& path);
    /// Appends a block. @return false if the disk is full (Last error text).
    [[nodiscard]] bool Put(SynthEngine::Block block);

    /// What becomes of the frames.
    struct Finish {
        bool normalizePeak = true; ///< the loudest sample becomes 1
        float gain = 1;            ///< a factor instead, where the peak stays
        bool trimSilence = true;   ///< frames below kSilence at both ends go
    };
    /// Completes the file and describes its frames in `wave` (rate as given). All silence stays as it is.
    [[nodiscard]] bool Describe(Waveform& wave, unsigned rateHz, const Finish& finish);

    std::uint64_t Frames() const noexcept { return frames_; }
    float Peak() const noexcept { return peak_; }

private:
    [[nodiscard]] bool Flush();
    [[nodiscard]] bool Scale(float factor);

    FileObject file_;
    std::vector<float> buffer_;
    std::uint64_t frames_ = 0, firstLoud_ = 0, lastLoud_ = 0;
    bool isLoud_ = false; ///< some frame was
    float peak_ = 0;
};

} // namespace vimbo::synth
