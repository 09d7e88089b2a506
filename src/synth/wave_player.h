// Where a voice is in its sample: position, direction, and the segment of the loop's table.
#pragma once

#include "synth/synth_instrument.h"

#include <array>
#include <span>

namespace vimbo::synth {

/// Up to three segments follow one another: from the start to the loop, the loop, and, if it ends with the
/// key, the rest behind it. In a loop that starts with the sample the interpolation takes the frames that
/// were played before for those before the start. Any loop points and rates are safe: points are limited to
/// the frames that are played, and a loop of less than a 64th of a frame counts as none.
class WavePlayer {
public:
    static constexpr double kSlowest = 1e-9, kFastest = 4096; ///< frames per output frame

    void Start(const WaveSound& sound) noexcept;
    /// The sound was edited: the position stays if it lies inside the new range, else all starts afresh.
    void Edit(const WaveSound& sound, bool isReleased) noexcept;
    /// Key's release: a loop that breaks ends at its next turn.
    void Release() noexcept;
    /// The next frames of one channel or both; silence behind the sample's end and for an empty sample.
    /// @param rate  frames per output frame, without the loop's tuning; limited to kSlowest..kFastest
    void Read(const WaveSound& sound, double rate, bool isReleased, std::span<float> mono) noexcept;
    void Read(const WaveSound& sound, double rate, bool isReleased, std::span<float> left,
              std::span<float> right) noexcept;

    bool HasEnded() const noexcept { return hasEnded_; }
    /// Frame of the sample.
    double Position() const noexcept { return position_; }
    bool IsBackward() const noexcept { return isBackward_; }

private:
    enum Segment : std::uint8_t { kHead, kLoop, kTail };
    static constexpr std::uint8_t kForever = 255;

    void SetBounds(const WaveSound& sound) noexcept;
    void Enter(Segment segment, bool isReleased) noexcept;
    bool EnterNext(bool isReleased) noexcept;
    void Wrap() noexcept;
    void SkipWholeTurns(double beyond) noexcept;
    void Cross(bool isReleased) noexcept;
    std::size_t FramesBefore(double border, double rate, std::size_t most) const noexcept;
    bool IsAtSeam() const noexcept { return hasTurned_ && loopStart_ < 1; }
    double PlayedBeforeFirst() const noexcept;
    template <std::size_t channels>
    void ReadRun(const float* frames, double step,
                 const std::array<std::span<float>, channels>& out) const noexcept;
    template <std::size_t channels>
    void ReadRuns(const WaveSound& sound, double rate, bool isReleased,
                  const std::array<std::span<float>, channels>& out) noexcept;

    double position_ = 0;
    double start_ = 0, end_ = 0;         ///< of the segment
    double loopStart_ = 0, loopEnd_ = 0; ///< equal: no loop
    double first_ = 0, last_ = 0;        ///< of all that is played
    double loopRatio_ = 1;               ///< the loop's tuning
    LoopType loopType_ = LoopType::Off;
    LoopType turn_ = LoopType::Forward; ///< of the segment
    Segment segment_ = kHead;
    std::uint8_t repeats_ = 1; ///< of the segment that are left
    bool breaks_ = false;
    bool hasTurned_ = false; ///< round the loop: from then on its tuning holds
    bool isBackward_ = false;
    bool hasEnded_ = false;
};

} // namespace vimbo::synth
