#include "synth/wave_player.h"

#include "dsp/kernels/cubic_read.h"
#include "synth/synth_math.h"

#include <algorithm>
#include <cmath>

namespace vimbo::synth {
namespace {

// Shorter ones could not move a position far into a long sample.
constexpr double kShortestLoop = 1.0 / 64;
constexpr double kMostFrames = 2147000000; // positions are read as 32-bit numbers

void ReadCubic(const float* frames, double position, double rate,
               const std::array<std::span<float>, 1>& out) noexcept
{
    ReadCubicMono(frames, position, rate, out[0]);
}

void ReadCubic(const float* frames, double position, double rate,
               const std::array<std::span<float>, 2>& out) noexcept
{
    ReadCubicStereo(frames, position, rate, out[0], out[1]);
}

} // namespace

void WavePlayer::SetBounds(const WaveSound& sound) noexcept
{
    const double frames = sound.sample ? std::min<double>(sound.sample->Frames(), kMostFrames) : 0;
    first_ = Limited(static_cast<double>(sound.start), 0.0, frames);
    last_ = Limited(static_cast<double>(sound.end), first_, frames);
    loopStart_ = Limited(sound.loopStart, first_, last_);
    loopEnd_ = Limited(sound.loopEnd, first_, last_);
    loopType_ = sound.loopType;
    if (loopType_ == LoopType::Off || loopEnd_ - loopStart_ < kShortestLoop)
        loopStart_ = loopEnd_ = last_;
    breaks_ = sound.breakOnRelease;
    loopRatio_ = sound.loopTuning != 0 ? SemitonesToRatio(sound.loopTuning) : 1;
}

void WavePlayer::Enter(Segment segment, bool isReleased) noexcept
{
    segment_ = segment;
    hasTurned_ = false;
    isBackward_ = false;
    turn_ = LoopType::Forward;
    repeats_ = 1;
    const bool hasLoop = loopStart_ < loopEnd_;
    switch (segment) {
    case kHead:
        start_ = first_;
        end_ = hasLoop ? loopStart_ : last_;
        break;
    case kLoop:
        start_ = loopStart_;
        end_ = loopEnd_;
        turn_ = loopType_;
        repeats_ = breaks_ && isReleased ? 1 : kForever;
        break;
    case kTail:
        start_ = loopEnd_;
        end_ = last_;
        break;
    }
}

/// @return false behind the last segment
bool WavePlayer::EnterNext(bool isReleased) noexcept
{
    if (segment_ == kHead && loopStart_ < loopEnd_)
        Enter(kLoop, isReleased);
    else if (segment_ == kLoop && breaks_)
        Enter(kTail, isReleased);
    else
        return false;
    return true;
}

void WavePlayer::Start(const WaveSound& sound) noexcept
{
    SetBounds(sound);
    position_ = first_;
    hasEnded_ = false;
    Enter(kHead, false);
}

void WavePlayer::Edit(const WaveSound& sound, bool isReleased) noexcept
{
    const bool wasBackward = isBackward_, hadTurned = hasTurned_;
    SetBounds(sound);
    if (hasEnded_)
        return;
    if (!(position_ >= first_ && position_ < last_)) {
        Start(sound);
        return;
    }
    const bool isBehind = breaks_ && position_ >= loopEnd_ && !wasBackward;
    if (position_ < loopStart_ || loopStart_ == loopEnd_) {
        Enter(kHead, isReleased);
    } else if (isBehind) {
        Enter(kTail, isReleased);
    } else {
        Enter(kLoop, isReleased);
        hasTurned_ = hadTurned;
        isBackward_ = wasBackward && turn_ != LoopType::Forward;
        if (isReleased)
            Release();
    }
}

void WavePlayer::Release() noexcept
{
    if (segment_ != kLoop || !breaks_)
        return;
    repeats_ = 1;
    if (isBackward_) { // once more round at the start, to leave forward
        turn_ = LoopType::Forward;
        repeats_ = 2;
    }
}

/// One turn of the segment: back to its other end, or the other way round.
void WavePlayer::Wrap() noexcept
{
    hasTurned_ = segment_ == kLoop;
    if (!isBackward_ && turn_ == LoopType::Forward) {
        position_ -= end_ - start_;
    } else if (isBackward_ && turn_ == LoopType::Reverse) {
        position_ += end_ - start_;
    } else {
        position_ = isBackward_ ? start_ + (start_ - position_) : end_ - (position_ - end_);
        isBackward_ = !isBackward_;
    }
}

/// Of an endless loop: leaves out turns that end where they began.
void WavePlayer::SkipWholeTurns(double beyond) noexcept
{
    double period = end_ - start_;
    if (turn_ == LoopType::Alternating)
        period *= 2;
    else if (isBackward_ != (turn_ == LoopType::Reverse))
        return; // on its way to its first turn
    if (beyond < period)
        return;
    const double rest = std::fmod(beyond, period); // exact
    position_ = isBackward_ ? start_ - rest : end_ + rest;
}

/// What happens between two frames: turns and changes of segment until the position lies inside one.
void WavePlayer::Cross(bool isReleased) noexcept
{
    for (;;) {
        if (repeats_ == kForever)
            SkipWholeTurns(isBackward_ ? start_ - position_ : position_ - end_);
        if (isBackward_ ? position_ >= start_ : position_ < end_)
            return;
        if (repeats_ == kForever || --repeats_ != 0) {
            Wrap();
        } else if (!EnterNext(isReleased)) {
            hasEnded_ = true;
            return;
        }
    }
}

/// Frames that can be read until the position passes the border in its direction; at least one.
std::size_t WavePlayer::FramesBefore(double border, double rate, std::size_t most) const noexcept
{
    const double frames =
        isBackward_ ? std::floor((position_ - border) / rate) + 1 : std::ceil((border - position_) / rate);
    if (frames >= static_cast<double>(most))
        return most;
    auto count = static_cast<std::size_t>(std::max(frames, 1.0));
    // Rounding of the division must not let a frame be read beyond.
    const double last = static_cast<double>(count - 1) * rate;
    if (count > 1 && (isBackward_ ? position_ - last < border : position_ + last >= border))
        --count;
    return count;
}

/// Of a loop at the sample's start: where in it stands what was played in place of the frame before the
/// first.
double WavePlayer::PlayedBeforeFirst() const noexcept
{
    const double length = loopEnd_ - loopStart_;
    if (turn_ == LoopType::Alternating)
        return loopStart_ + std::min(loopStart_ + 1, length);
    const double rest = std::fmod(loopStart_ + 1, length);
    return rest == 0 ? loopStart_ : loopEnd_ - rest;
}

/// Reads at the position and on, all inside the segment and, at a seam, on one side of frame 1.
template <std::size_t channels>
void WavePlayer::ReadRun(const float* frames, double step,
                         const std::array<std::span<float>, channels>& out) const noexcept
{
    if (!IsAtSeam() || position_ >= 1)
        return ReadCubic(frames, position_, step, out);
    // One frame more than is read: rounding may take a position to 1.
    std::array<float, (kCubicFramesBefore + 1 + kCubicFramesAfter + 1) * channels> seam;
    std::array<float, channels> before;
    std::array<std::span<float>, channels> sides;
    for (std::size_t i = 0; i < channels; ++i)
        sides[i] = std::span(before).subspan(i, 1);
    ReadCubic(frames, PlayedBeforeFirst(), 1, sides);
    std::ranges::copy(before, seam.begin());
    std::copy_n(frames, seam.size() - channels, seam.begin() + channels);
    ReadCubic(seam.data() + channels, position_, step, out);
}

template <std::size_t channels>
void WavePlayer::ReadRuns(const WaveSound& sound, double rate, bool isReleased,
                          const std::array<std::span<float>, channels>& out) noexcept
{
    const std::size_t count = out[0].size();
    std::size_t done = 0;
    std::array<std::span<float>, channels> part;
    while (done < count && !hasEnded_ && first_ < last_) {
        const double step = Limited(hasTurned_ ? rate * loopRatio_ : rate, kSlowest, kFastest);
        std::size_t run = FramesBefore(isBackward_ ? start_ : end_, step, count - done);
        if (IsAtSeam() && isBackward_ == (position_ >= 1))
            run = FramesBefore(1, step, run);
        for (std::size_t i = 0; i < channels; ++i)
            part[i] = out[i].subspan(done, run);
        const double signedStep = isBackward_ ? -step : step;
        ReadRun(sound.sample->Data(), signedStep, part);
        position_ += static_cast<double>(run) * signedStep;
        Cross(isReleased);
        done += run;
    }
    for (const std::span<float> side : out)
        std::ranges::fill(side.subspan(done), 0.0f);
}

void WavePlayer::Read(const WaveSound& sound, double rate, bool isReleased, std::span<float> mono) noexcept
{
    ReadRuns<1>(sound, rate, isReleased, {mono});
}

void WavePlayer::Read(const WaveSound& sound, double rate, bool isReleased, std::span<float> left,
                      std::span<float> right) noexcept
{
    ReadRuns<2>(sound, rate, isReleased, {left, right});
}

} // namespace vimbo::synth
