#include "synth/note_measure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

namespace vimbo::synth {
namespace {

constexpr double kSilenceDb = -120;
constexpr double kWindowSeconds = 0.005;
constexpr double kHeardDb = -80; ///< below, a note counts as silent
constexpr double kEnvelopeRangeDb = 40;
constexpr double kReleaseDb = 30;

double ToDb(double power)
{
    return power > 1e-12 ? 10 * std::log10(power) : kSilenceDb;
}

double Power(std::span<const float> x)
{
    double sum = 0;
    for (const float sample : x)
        sum += double{sample} * sample;
    return x.empty() ? 0 : sum / static_cast<double>(x.size());
}

/// Second moment of the spectrum, from the power of the differences between neighbours.
double RmsFrequency(std::span<const float> left, std::span<const float> right, double rateHz)
{
    double power = 0, change = 0;
    for (const auto side : {left, right})
        for (std::size_t i = 1; i < side.size(); ++i) {
            const double step = double{side[i]} - side[i - 1];
            power += double{side[i]} * side[i];
            change += step * step;
        }
    if (power <= 0)
        return 0;
    return rateHz / std::numbers::pi * std::asin(std::min(0.5 * std::sqrt(change / power), 1.0));
}

std::vector<float> EnvelopeOf(const NoteSound& note)
{
    const auto window = static_cast<std::size_t>(note.rateHz * kWindowSeconds);
    std::vector<float> envelope;
    for (std::size_t i = 0; i + window <= note.left.size(); i += window)
        envelope.push_back(static_cast<float>(ToDb(Power(std::span(note.left).subspan(i, window)) +
                                                   Power(std::span(note.right).subspan(i, window)))));
    return envelope;
}

double AttackOf(const std::vector<float>& envelope)
{
    if (envelope.empty())
        return 0;
    const float half = *std::ranges::max_element(envelope) - 6.02f;
    const auto first = std::ranges::find_if(envelope, [half](float db) { return db >= half; });
    return static_cast<double>(first - envelope.begin()) * kWindowSeconds;
}

double ReleaseOf(const std::vector<float>& envelope, double heldSeconds)
{
    const auto start = static_cast<std::size_t>(heldSeconds / kWindowSeconds);
    if (start == 0 || start >= envelope.size())
        return 0;
    const double target = envelope[start - 1] - kReleaseDb;
    std::size_t i = start;
    while (i < envelope.size() && envelope[i] > target)
        ++i;
    return static_cast<double>(i - start) * kWindowSeconds;
}

/// Normalised likeness of a signal with itself `lag` frames later.
class Likeness {
public:
    explicit Likeness(std::span<const float> x) : x_(x), energy_(x.size() + 1)
    {
        for (std::size_t i = 0; i < x.size(); ++i)
            energy_[i + 1] = energy_[i] + double{x[i]} * x[i];
    }
    double At(std::size_t lag) const noexcept
    {
        if (lag >= x_.size())
            return 0;
        // Eight sums side by side: compilers keep the order of one sum, which is slow.
        constexpr std::size_t kLanes = 8;
        std::array<float, kLanes> same{};
        const std::size_t count = (x_.size() - lag) / kLanes * kLanes;
        for (std::size_t i = 0; i < count; i += kLanes)
            for (std::size_t k = 0; k < kLanes; ++k)
                same[k] += x_[i + k] * x_[i + k + lag];
        const double power = energy_[count] * (energy_[lag + count] - energy_[lag]);
        return power > 0 ? std::accumulate(same.begin(), same.end(), 0.0) / std::sqrt(power) : 0;
    }

private:
    std::span<const float> x_;
    std::vector<double> energy_;
};

/// The exact place of the peak around a lag; nothing if there is none within `reach`.
std::optional<double> PeakNear(const Likeness& likeness, double lag, std::size_t reach)
{
    auto at = static_cast<std::size_t>(std::lround(lag));
    double here = likeness.At(at);
    for (std::size_t steps = 0;; ++steps) {
        if (steps > reach || at < 2)
            return std::nullopt;
        const double before = likeness.At(at - 1), behind = likeness.At(at + 1);
        if (before <= here && behind <= here) {
            const double bend = before - 2 * here + behind;
            return static_cast<double>(at) + (bend < 0 ? 0.5 * (before - behind) / bend : 0);
        }
        at = before > here ? at - 1 : at + 1;
        here = std::max(before, behind);
    }
}

/// The shortest lag at which the signal is like itself, 40 to 2000 Hz.
std::optional<double> PeriodOf(std::span<const float> x, double rateHz)
{
    constexpr double kLike = 0.8;
    constexpr std::size_t kMostFrames = 6000; // three of the longest periods, and quick
    x = x.first(std::min(x.size(), kMostFrames));
    const Likeness self(x);
    const auto shortest = static_cast<std::size_t>(rateHz / 2000);
    const auto longest = std::min(static_cast<std::size_t>(rateHz / 40), x.size() / 2);
    double best = 0;
    std::vector<double> likeness;
    for (std::size_t lag = shortest; lag < longest; ++lag)
        best = std::max(best, likeness.emplace_back(self.At(lag)));
    if (best < kLike)
        return std::nullopt;
    for (std::size_t i = 1; i + 1 < likeness.size(); ++i)
        if (likeness[i] > best * 0.95 && likeness[i] >= likeness[i - 1] && likeness[i] >= likeness[i + 1])
            return static_cast<double>(shortest + i);
    return std::nullopt;
}

/// Eight periods are compared, so that a period's fraction counts eightfold.
std::optional<double> PitchDifference(std::span<const float> a, std::span<const float> b, double rateHz)
{
    constexpr double kPeriods = 8;
    const auto rough = PeriodOf(a, rateHz);
    if (!rough)
        return std::nullopt;
    const Likeness selfA(a), selfB(b);
    const auto one = PeakNear(selfA, *rough, 4);
    if (!one || *one * kPeriods * 2 > static_cast<double>(a.size()))
        return std::nullopt;
    const double lag = *one * kPeriods;
    const auto reach = static_cast<std::size_t>(*one / 3) + 1;
    const auto lagA = PeakNear(selfA, lag, reach), lagB = PeakNear(selfB, lagA.value_or(lag), reach);
    if (!lagA || !lagB)
        return std::nullopt;
    const auto nearA = static_cast<std::size_t>(std::lround(*lagA)),
               nearB = static_cast<std::size_t>(std::lround(*lagB));
    if (selfA.At(nearA) < 0.7 || selfB.At(nearB) < 0.7)
        return std::nullopt;
    return 1200 * std::log2(*lagA / *lagB);
}

std::vector<float> MiddleOf(const NoteSound& note)
{
    std::vector<float> mono;
    for (std::size_t i = note.held / 4; i < std::min(note.held, note.left.size()); ++i)
        mono.push_back(note.left[i] + note.right[i]);
    return mono;
}

} // namespace

NoteMeasure MeasureNote(const NoteSound& note)
{
    NoteMeasure measure;
    const std::size_t held = std::min(note.held, note.left.size());
    const auto left = std::span(note.left).first(held), right = std::span(note.right).first(held);
    const double leftPower = Power(left), rightPower = Power(right);
    measure.levelDb = ToDb(leftPower + rightPower);
    measure.brightnessHz = RmsFrequency(left, right, note.rateHz);
    measure.balanceDb = std::clamp(ToDb(rightPower) - ToDb(leftPower), -60.0, 60.0);
    measure.envelopeDb = EnvelopeOf(note);
    measure.attackSeconds = AttackOf(measure.envelopeDb);
    measure.releaseSeconds = ReleaseOf(measure.envelopeDb, static_cast<double>(held) / note.rateHz);
    return measure;
}

NoteDifference CompareNotes(const NoteSound& a, const NoteSound& b)
{
    const NoteMeasure first = MeasureNote(a), second = MeasureNote(b);
    NoteDifference difference;
    difference.levelDb = second.levelDb - first.levelDb;
    if (first.levelDb < kHeardDb || second.levelDb < kHeardDb) {
        difference.isSilentInOne = (first.levelDb < kHeardDb) != (second.levelDb < kHeardDb);
        if (!difference.isSilentInOne)
            difference.levelDb = 0;
        return difference;
    }
    difference.pitchCents = PitchDifference(MiddleOf(a), MiddleOf(b), a.rateHz);
    difference.brightnessOctaves = std::log2(second.brightnessHz / std::max(first.brightnessHz, 1e-3));
    difference.balanceDb = second.balanceDb - first.balanceDb;
    difference.attackSeconds = second.attackSeconds - first.attackSeconds;
    difference.releaseSeconds = second.releaseSeconds - first.releaseSeconds;
    const float loudest = *std::ranges::max_element(first.envelopeDb);
    for (std::size_t i = 0; i < std::min(first.envelopeDb.size(), second.envelopeDb.size()); ++i)
        if (std::max(first.envelopeDb[i], second.envelopeDb[i]) > loudest - kEnvelopeRangeDb)
            difference.envelopeDb =
                std::max(difference.envelopeDb, std::abs(double{first.envelopeDb[i]} - second.envelopeDb[i]));
    return difference;
}

} // namespace vimbo::synth
