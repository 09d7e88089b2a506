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
    isTuned_ = false;
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
    const bool wasBackward = isBackward_, wasTuned = isTuned_;
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
        isTuned_ = wasTuned;
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
    isTuned_ = segment_ == kLoop;
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

/// Frames that can be read up to and with the one after which the position leaves the segment.
std::size_t WavePlayer::FramesToCrossing(double rate, std::size_t most) const noexcept
{
    const double frames =
        isBackward_ ? std::floor((position_ - start_) / rate) + 1 : std::ceil((end_ - position_) / rate);
    if (frames >= static_cast<double>(most))
        return most;
    auto count = static_cast<std::size_t>(std::max(frames, 1.0));
    // Rounding of the division must not let a frame be read beyond.
    const double last = static_cast<double>(count - 1) * rate;
    if (count > 1 && (isBackward_ ? position_ - last < start_ : position_ + last >= end_))
        --count;
    return count;
}

template <class ReadRun>
void WavePlayer::ReadRuns(double rate, bool isReleased, std::size_t count, ReadRun readRun) noexcept
{
    std::size_t done = 0;
    while (done < count && !hasEnded_ && first_ < last_) {
        const double step = Limited(isTuned_ ? rate * loopRatio_ : rate, kSlowest, kFastest);
        const std::size_t run = FramesToCrossing(step, count - done);
        const double signedStep = isBackward_ ? -step : step;
        readRun(done, run, signedStep);
        position_ += static_cast<double>(run) * signedStep;
        Cross(isReleased);
        done += run;
    }
    readRun(done, count - done, 0.0);
}

void WavePlayer::Read(const WaveSound& sound, double rate, bool isReleased, std::span<float> mono) noexcept
{
    ReadRuns(rate, isReleased, mono.size(), [&](std::size_t at, std::size_t count, double step) {
        const std::span<float> out = mono.subspan(at, count);
        if (step != 0)
            ReadCubicMono(sound.sample->Data(), position_, step, out);
        else
            std::ranges::fill(out, 0.0f);
    });
}

void WavePlayer::Read(const WaveSound& sound, double rate, bool isReleased, std::span<float> left,
                      std::span<float> right) noexcept
{
    ReadRuns(rate, isReleased, left.size(), [&](std::size_t at, std::size_t count, double step) {
        const std::span<float> outLeft = left.subspan(at, count), outRight = right.subspan(at, count);
        if (step != 0) {
            ReadCubicStereo(sound.sample->Data(), position_, step, outLeft, outRight);
        } else {
            std::ranges::fill(outLeft, 0.0f);
            std::ranges::fill(outRight, 0.0f);
        }
    });
}

} // namespace vimbo::synth
