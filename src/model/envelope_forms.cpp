// Envelopes as smaller formats know them: six stages, without delay, without hold, with one release.
#include "model/envelope.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vimbo {
namespace {

constexpr double kVolumeRangeDb = 96;   ///< between the positions 0 and 1
constexpr double kMaxSeconds = 1e6;     ///< of one stage; far above what a block can store
constexpr double kMaxSource = 1e5;      ///< of a stage to be converted, so that sums stay below the above
constexpr double kFullLevel = 1 - 1e-6; ///< levels above count as 1

double Bounded(double value, double low, double high) noexcept
{
    return value > low ? std::min(value, high) : low; // NaN: low
}

double ToGain(double position) noexcept
{
    return position > 0 ? std::pow(10.0, (position - 1) * kVolumeRangeDb / 20) : 0;
}

double ToPosition(double gain) noexcept
{
    return gain > 0 ? std::max(0.0, std::log10(gain) * 20 / kVolumeRangeDb + 1) : 0;
}

/// Levels in 0..1, times finite and not negative.
Envelope WithPositiveLevels(Envelope e) noexcept
{
    for (float* level : {&e.initialLevel, &e.attack1.level, &e.attack2.level, &e.decay1.level,
                         &e.decay2.level, &e.release1Level, &e.release2Level, &e.release3Level})
        *level = static_cast<float>(Bounded(*level, 0, 1));
    for (float* time : {&e.attack1.seconds, &e.attack2.seconds, &e.decay1.seconds, &e.decay2.seconds,
                        &e.release1Rate, &e.release2Seconds, &e.release3Seconds})
        *time = static_cast<float>(Bounded(*time, 0, kMaxSource));
    return e;
}

/// The envelope up to its sustain level as it sounds.
class HeldCurve {
public:
    HeldCurve(const Envelope& e, bool isVolume) noexcept
        : stages_{&e.attack1, &e.attack2, &e.decay1, &e.decay2}, isVolume_(isVolume)
    {
        levels_[0] = e.initialLevel;
        for (std::size_t i = 0; i < stages_.size(); ++i) {
            times_[i + 1] = times_[i] + stages_[i]->seconds;
            levels_[i + 1] = stages_[i]->level;
        }
    }
    const std::array<double, 5>& Times() const noexcept { return times_; }
    const std::array<double, 5>& Levels() const noexcept { return levels_; }
    double End() const noexcept { return times_.back(); }

    double LevelAt(double seconds) const noexcept
    {
        for (std::size_t i = 0; i < stages_.size(); ++i) {
            if (seconds >= times_[i + 1])
                continue;
            const double part = (seconds - times_[i]) / (times_[i + 1] - times_[i]);
            // The attacks of a volume envelope are straight in gain, all else is straight in level.
            if (isVolume_ && i < 2)
                return ToPosition(std::lerp(ToGain(levels_[i]), ToGain(levels_[i + 1]), part));
            return std::lerp(levels_[i], levels_[i + 1], part);
        }
        return levels_.back();
    }
    /// The stage that covers most of a span, `preferred` if none does.
    const EnvelopeStage& MainStage(double from, double to, std::size_t preferred) const noexcept
    {
        double longest = 0;
        for (std::size_t i = 0; i < stages_.size(); ++i) {
            const double overlap = std::min(to, times_[i + 1]) - std::max(from, times_[i]);
            if (overlap > longest) {
                longest = overlap;
                preferred = i;
            }
        }
        return *stages_[preferred];
    }

private:
    std::array<const EnvelopeStage*, 4> stages_;
    std::array<double, 5> times_{}, levels_{};
    bool isVolume_;
};

/// One straight way between two levels, flat before and behind it; in parts of the span that it replaces.
struct Ramp {
    double start = 0, end = 0;
};

/// Least squares of the level over time, with a light hand on the time at which the ramp ends.
class RampFit {
public:
    template <class LevelAt>
    RampFit(double from, double to, LevelAt levelAt) noexcept : from_(from), to_(to)
    {
        for (std::size_t i = 0; i < samples_.size(); ++i)
            samples_[i] = levelAt(TimeOf(i));
    }
    /// Corners first, since a ramp between corners may be exact; then the neighbourhood of the best.
    /// @param corners  rising, in parts of the span; 0 and 1 among them
    Ramp Best(std::span<const double> corners) noexcept
    {
        for (std::size_t i = 0; i < corners.size(); ++i)
            for (std::size_t j = i; j < corners.size(); ++j)
                Try({corners[i], corners[j]});
        constexpr double kExact = 1e-12;
        for (double step = 0.125; step > 1e-4 && leastCost_ > kExact; step /= 2)
            for (int moves = 0; moves < kMovesPerStep && Improve(step); ++moves) {
            }
        return best_;
    }

private:
    static constexpr std::size_t kSamples = 64;
    /// Cost of a ramp that ends at once where the original takes the whole span, as a squared level.
    static constexpr double kShorteningCost = 0.02;
    static constexpr int kMovesPerStep = 16;

    static double TimeOf(std::size_t sample) noexcept
    {
        return (static_cast<double>(sample) + 0.5) / kSamples;
    }
    double Cost(const Ramp& ramp) const noexcept
    {
        double sum = 0;
        for (std::size_t i = 0; i < samples_.size(); ++i) {
            const double t = TimeOf(i);
            const double part = t < ramp.start  ? 0
                                : t >= ramp.end ? 1
                                                : (t - ramp.start) / (ramp.end - ramp.start);
            const double error = std::lerp(from_, to_, part) - samples_[i];
            sum += error * error;
        }
        return sum / kSamples + kShorteningCost * (1 - ramp.end) * (1 - ramp.end);
    }
    bool Try(const Ramp& ramp) noexcept
    {
        if (ramp.start < 0 || ramp.end > 1 || ramp.start > ramp.end)
            return false;
        const double cost = Cost(ramp);
        if (!(cost < leastCost_ - 1e-9 * leastCost_))
            return false;
        leastCost_ = cost;
        best_ = ramp;
        return true;
    }
    bool Improve(double step) noexcept
    {
        const Ramp at = best_;
        bool isBetter = false;
        for (const Ramp& move : {Ramp{-1, 0}, Ramp{1, 0}, Ramp{0, -1}, Ramp{0, 1}, Ramp{1, 1}, Ramp{-1, -1},
                                 Ramp{1, -1}, Ramp{-1, 1}})
            isBetter |= Try({at.start + step * move.start, at.end + step * move.end});
        return isBetter;
    }

    double from_, to_;
    std::array<double, kSamples> samples_{};
    Ramp best_{0, 1};
    double leastCost_ = 1e300;
};

/// Fits a ramp to the curve's part between two times. `scale` turns a position into what is compared.
template <class Scale>
Ramp FitBetween(const HeldCurve& curve, double begin, double end, double from, double to,
                Scale scale) noexcept
{
    const double span = end - begin;
    if (!(span > 0))
        return {begin, begin};
    std::array<double, 7> corners{0};
    std::size_t count = 1;
    for (const double time : curve.Times())
        if (time > begin && time < end)
            corners[count++] = (time - begin) / span;
    corners[count++] = 1;
    RampFit fit(from, to, [&](double part) { return scale(curve.LevelAt(begin + part * span)); });
    const Ramp best = fit.Best(std::span(corners).first(count));
    return {begin + best.start * span, begin + best.end * span};
}

/// Seconds from the key's release at level `from` to silence.
double ReleaseSeconds(const Envelope& e, double from) noexcept
{
    double seconds = double{e.release1Rate} * std::abs(from - double{e.release1Level});
    if (e.release2Level != e.release1Level)
        seconds += e.release2Seconds;
    if (e.release3Level != e.release2Level)
        seconds += e.release3Seconds;
    return seconds;
}

bool HasMoreReleases(const Envelope& e) noexcept
{
    return e.release2Level != e.release1Level || e.release3Level != e.release2Level;
}

/// The rate of a single release that is silent after the same time, seen from the sustain level or, if that
/// is silence, from full level.
float SingleReleaseRate(const Envelope& e) noexcept
{
    if (e.release1Level == 0 && !HasMoreReleases(e))
        return e.release1Rate;
    const double from = e.decay2.level != 0 ? double{e.decay2.level} : 1.0;
    return static_cast<float>(Bounded(ReleaseSeconds(e, from) / std::abs(from), 0, kMaxSeconds));
}

/// The six stages, with the decay as the time that it really takes.
struct SixStages {
    DahdsrEnvelope form;
    double decaySeconds = 0;
};

void CopyFactors(SixStages& out, const HeldCurve& curve) noexcept
{
    DahdsrEnvelope& form = out.form;
    const double attackStart = form.delay, peak = attackStart + form.attack, decayStart = peak + form.hold;
    const EnvelopeStage& delay = curve.MainStage(0, attackStart, 0);
    const EnvelopeStage& attack = curve.MainStage(attackStart, peak, 1);
    const EnvelopeStage& hold = curve.MainStage(peak, decayStart, 2);
    const EnvelopeStage& decay = curve.MainStage(decayStart, decayStart + out.decaySeconds, 3);
    form.velocityToDelay = delay.velocity;
    form.velocityToAttack = attack.velocity;
    form.velocityToHold = hold.velocity;
    form.velocityToDecay = decay.velocity;
    form.keyToDelay = delay.key;
    form.keyToAttack = attack.key;
    form.keyToHold = hold.key;
    form.keyToDecay = decay.key;
}

/// What needs no fit: sustain level and release.
DahdsrEnvelope HeldAndReleased(const Envelope& e) noexcept
{
    DahdsrEnvelope form;
    form.sustain = e.decay2.level;
    form.release = SingleReleaseRate(e);
    form.releaseMode = e.releaseMode;
    form.velocityToRelease = e.releaseVelocity;
    form.keyToRelease = e.releaseKey;
    return form;
}

SixStages FitSixStages(const Envelope& source, bool isVolume) noexcept
{
    const Envelope e = WithPositiveLevels(source);
    const HeldCurve curve(e, isVolume);
    const auto& levels = curve.Levels();
    const auto peakCorner = static_cast<std::size_t>(std::ranges::max_element(levels) - levels.begin());
    const double peak = levels[peakCorner], peakTime = curve.Times()[peakCorner];

    SixStages out{HeldAndReleased(e)};
    DahdsrEnvelope& form = out.form;
    if (peak > 0) {
        const auto loudness = [&](double level) { return isVolume ? ToGain(level) : level; };
        const Ramp rise = FitBetween(curve, 0, peakTime, 0, 1,
                                     [&](double level) { return loudness(level) / loudness(peak); });
        Ramp fall = FitBetween(curve, peakTime, curve.End(), 1, levels.back(), [](double l) { return l; });
        if (levels.back() > kFullLevel)
            fall = {curve.End(), curve.End()};
        form.delay = static_cast<float>(rise.start);
        form.attack = static_cast<float>(rise.end - rise.start);
        form.hold = static_cast<float>(fall.start - rise.end);
        out.decaySeconds = fall.end - fall.start;
    }
    CopyFactors(out, curve);
    return out;
}

/// Half level at the same time as before, unless the peak then came later than the sustain level did; hold
/// and decay give up what the attack takes.
void DropDelay(SixStages& six) noexcept
{
    DahdsrEnvelope& form = six.form;
    const double later = std::min(double{form.delay}, form.hold + six.decaySeconds);
    const double fromHold = std::min(later, double{form.hold});
    if (form.delay > form.attack) {
        form.velocityToAttack = form.velocityToDelay;
        form.keyToAttack = form.keyToDelay;
    }
    form.attack = static_cast<float>(form.delay + form.attack + later);
    form.hold = static_cast<float>(form.hold - fromHold);
    six.decaySeconds = std::max(0.0, six.decaySeconds - (later - fromHold));
    form.delay = 0;
    form.velocityToDelay = form.keyToDelay = 1;
}

void DropHold(SixStages& six) noexcept
{
    DahdsrEnvelope& form = six.form;
    if (form.hold > six.decaySeconds) {
        form.velocityToDecay = form.velocityToHold;
        form.keyToDecay = form.keyToHold;
    }
    six.decaySeconds += form.hold;
    form.hold = 0;
    form.velocityToHold = form.keyToHold = 1;
}

DahdsrEnvelope Finished(SixStages six) noexcept
{
    const double fall = 1 - double{six.form.sustain};
    six.form.decay = fall > 1 - kFullLevel ? static_cast<float>(six.decaySeconds / fall) : 0;
    return six.form;
}

void Store(const SixStages& six, Envelope& envelope) noexcept
{
    const float shutdownRate = envelope.shutdownRate;
    envelope = FromDahdsr(six.form);
    envelope.decay2.seconds = static_cast<float>(six.decaySeconds);
    envelope.shutdownRate = shutdownRate;
}

/// Levels as FromDahdsr makes them. A decay that has no way to go is none of its stages.
bool HasSixStages(const Envelope& e) noexcept
{
    return e.initialLevel == 0 && e.attack1.level == 0 && e.attack2.level == 1 && e.decay1.level == 1 &&
           e.release1Level == 0 && (e.decay2.level < 1 || e.decay2.seconds <= 0);
}

/// True if velocity and key move all times up to the sustain level by the same factors, so that it does not
/// matter which stage a factor is taken from.
bool HasOneFactor(const Envelope& e) noexcept
{
    return std::ranges::all_of(std::array{&e.attack2, &e.decay1, &e.decay2}, [&](const EnvelopeStage* stage) {
        return stage->velocity == e.attack1.velocity && stage->key == e.attack1.key;
    });
}

DahdsrEnvelope WithOneFactor(const Envelope& e) noexcept
{
    DahdsrEnvelope form = HeldAndReleased(WithPositiveLevels(e));
    form.velocityToDelay = form.velocityToAttack = form.velocityToHold = form.velocityToDecay =
        e.attack1.velocity;
    form.keyToDelay = form.keyToAttack = form.keyToHold = form.keyToDecay = e.attack1.key;
    return form;
}

} // namespace

Envelope FromDahdsr(const DahdsrEnvelope& from) noexcept
{
    const auto seconds = [](double value) { return static_cast<float>(Bounded(value, 0, kMaxSeconds)); };
    const double sustain = Bounded(from.sustain, 0, 1);
    Envelope e;
    e.attack1 = {seconds(from.delay), 0, from.velocityToDelay, from.keyToDelay};
    e.attack2 = {seconds(from.attack), 1, from.velocityToAttack, from.keyToAttack};
    e.decay1 = {seconds(from.hold), 1, from.velocityToHold, from.keyToHold};
    e.decay2 = {seconds((1 - sustain) * from.decay), static_cast<float>(sustain), from.velocityToDecay,
                from.keyToDecay};
    e.release1Rate = seconds(from.release);
    e.releaseVelocity = from.velocityToRelease;
    e.releaseKey = from.keyToRelease;
    e.releaseMode = from.releaseMode;
    return e;
}

DahdsrEnvelope ToDahdsr(const Envelope& envelope, bool isVolume) noexcept
{
    const bool isExact = HasSixStages(envelope);
    // The fit takes far longer than all else.
    DahdsrEnvelope six = isExact && HasOneFactor(envelope) ? WithOneFactor(envelope)
                                                           : Finished(FitSixStages(envelope, isVolume));
    if (!isExact)
        return six;
    // Taken as they stand: a fit could lose a stage of a millisecond beside a long one.
    const float fall = 1 - six.sustain;
    six.delay = envelope.attack1.seconds;
    six.attack = envelope.attack2.seconds;
    six.hold = envelope.decay1.seconds;
    six.decay = fall > 0 ? envelope.decay2.seconds / fall : 0;
    return six;
}

DahdsrEnvelope ToAhdsr(const Envelope& envelope, bool isVolume) noexcept
{
    SixStages six = FitSixStages(envelope, isVolume);
    DropDelay(six);
    return Finished(six);
}

DahdsrEnvelope ToAdsr(const Envelope& envelope, bool isVolume) noexcept
{
    SixStages six = FitSixStages(envelope, isVolume);
    DropDelay(six);
    DropHold(six);
    return Finished(six);
}

void ReduceToSixStages(Envelope& envelope, bool isVolume) noexcept
{
    Store(FitSixStages(envelope, isVolume), envelope);
}

void ReduceToAhdsr(Envelope& envelope, bool isVolume) noexcept
{
    SixStages six = FitSixStages(envelope, isVolume);
    DropDelay(six);
    Store(six, envelope);
}

void FoldReleases(Envelope& envelope) noexcept
{
    if (!HasMoreReleases(envelope))
        return;
    envelope.release1Rate = SingleReleaseRate(envelope);
    envelope.release1Level = envelope.release2Level = envelope.release3Level = 0;
    envelope.release2Seconds = envelope.release3Seconds = 0;
}

} // namespace vimbo
