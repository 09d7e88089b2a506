// Envelopes as lists of points, and lists of points as envelopes by line fitting.
#include "model/envelope.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vimbo {
namespace {

constexpr double kMaxPointSeconds = 1e4;
constexpr float kMaxRate = 100; ///< seconds per full level that a block can store
/// Keeps a flat release stage alive: more than the 0.001 that blocks store, so that rounding cannot undo it.
constexpr float kSmallestStep = 0.0015f;
constexpr std::size_t kHeldSegments = 4, kReleaseSegments = 3;

/// Where `seconds` lies between two corners: on the line, or on the vertical between their levels.
double DistanceFromLine(const EnvelopePoint& from, const EnvelopePoint& to,
                        const EnvelopePoint& point) noexcept
{
    const double span = to.seconds - from.seconds;
    if (span > 0)
        return point.level - std::lerp(double{from.level}, double{to.level},
                                       std::min(1.0, (point.seconds - from.seconds) / span));
    const auto [low, high] = std::minmax(from.level, to.level);
    return point.level - std::clamp(point.level, low, high);
}

/// Points with rising times, at most 32: of a longer list the corners that matter least are left out.
class Corners {
public:
    std::size_t Count() const noexcept { return count_; }
    const EnvelopePoint& operator[](std::size_t i) const noexcept { return points_[i]; }
    const EnvelopePoint& Last() const noexcept { return points_[count_ - 1]; }
    double Span() const noexcept { return count_ != 0 ? Last().seconds - points_[0].seconds : 0; }

    void Add(EnvelopePoint point) noexcept
    {
        const double earliest = count_ != 0 ? Last().seconds : 0;
        point.seconds = point.seconds > earliest
                            ? std::min(point.seconds, std::max(kMaxPointSeconds, earliest))
                            : earliest;
        point.level = point.level > -1 ? std::min(point.level, 1.0f) : point.level <= -1 ? -1.0f : 0.0f;
        points_[count_++] = point;
        if (count_ > kMaxEnvelopePoints)
            RemoveLeastCorner();
    }
    void RemoveLast() noexcept { --count_; }

private:
    /// By the area of the triangle with its neighbours; equal areas (all of no width) by the level.
    void RemoveLeastCorner() noexcept
    {
        std::size_t least = 1;
        double leastArea = 1e300, leastDistance = 1e300;
        for (std::size_t i = 1; i + 1 < count_; ++i) {
            const EnvelopePoint &before = points_[i - 1], &after = points_[i + 1];
            const double distance = std::abs(DistanceFromLine(before, after, points_[i]));
            const double area = distance * (after.seconds - before.seconds);
            if (area < leastArea || (area == leastArea && distance < leastDistance)) {
                least = i;
                leastArea = area;
                leastDistance = distance;
            }
        }
        std::copy(points_.begin() + static_cast<std::ptrdiff_t>(least) + 1,
                  points_.begin() + static_cast<std::ptrdiff_t>(count_),
                  points_.begin() + static_cast<std::ptrdiff_t>(least));
        --count_;
    }

    std::array<EnvelopePoint, kMaxEnvelopePoints + 1> points_{};
    std::size_t count_ = 0;
};

/// Which corners are kept, the first and the last included.
struct Fit {
    std::array<std::size_t, kHeldSegments + 1> kept{};
    std::size_t segments = 0;
    double cost = 0;
};

constexpr double kNoWay = 1e300;

/// Squared distance of the corners between two kept ones from the line that replaces them, over time; each
/// corner adds a little by itself, so that jumps without width are seen too.
double SegmentCost(const Corners& corners, std::size_t from, std::size_t to, double cornerWeight) noexcept
{
    double cost = 0, before = 0;
    for (std::size_t i = from + 1; i <= to; ++i) {
        const double here = DistanceFromLine(corners[from], corners[to], corners[i]);
        const double seconds = corners[i].seconds - corners[i - 1].seconds;
        cost += seconds * (before * before + before * here + here * here) / 3 + cornerWeight * here * here;
        before = here;
    }
    return cost;
}

/// The cheapest way from the first to the last corner over at most `maxSegments` lines; of equal ones that of
/// the fewest lines.
/// @param mayStartWith  tells whether the first line may end at a corner
template <class MayStartWith>
Fit FitLines(const Corners& corners, std::size_t maxSegments, MayStartWith mayStartWith) noexcept
{
    Fit fit;
    if (corners.Count() < 2)
        return fit;
    const std::size_t count = corners.Count();
    const double cornerWeight = 1e-3 * corners.Span() + 1e-6;
    std::array<std::array<double, kMaxEnvelopePoints>, kHeldSegments + 1> cost;
    std::array<std::array<std::size_t, kMaxEnvelopePoints>, kHeldSegments + 1> from{};
    for (auto& row : cost)
        row.fill(kNoWay);
    cost[0][0] = 0;
    for (std::size_t end = 1; end < count; ++end) {
        for (std::size_t start = 0; start < end; ++start) {
            const double line = SegmentCost(corners, start, end, cornerWeight);
            for (std::size_t lines = 1; lines <= maxSegments; ++lines) {
                const double total = cost[lines - 1][start] + line;
                if (total < cost[lines][end] && (lines > 1 || mayStartWith(end))) {
                    cost[lines][end] = total;
                    from[lines][end] = start;
                }
            }
        }
    }
    const auto end = count - 1;
    double least = kNoWay;
    for (std::size_t lines = 1; lines <= maxSegments; ++lines)
        least = std::min(least, cost[lines][end]);
    fit.segments = 1;
    while (fit.segments < maxSegments &&
           cost[fit.segments][end] > least + 1e-13 * (corners.Span() + cornerWeight))
        ++fit.segments;
    fit.cost = cost[fit.segments][end];
    std::size_t at = end;
    for (std::size_t lines = fit.segments; lines > 0; --lines) {
        fit.kept[lines] = at;
        at = from[lines][at];
    }
    return fit;
}

double LargestDistance(const Corners& corners, const Fit& fit) noexcept
{
    double largest = 0;
    for (std::size_t line = 0; line < fit.segments; ++line)
        for (std::size_t i = fit.kept[line]; i <= fit.kept[line + 1]; ++i)
            largest = std::max(largest, std::abs(DistanceFromLine(corners[fit.kept[line]],
                                                                  corners[fit.kept[line + 1]], corners[i])));
    return largest;
}

struct Line {
    float seconds = 0, level = 0;
};

Line LineOf(const Corners& corners, const Fit& fit, std::size_t line) noexcept
{
    const EnvelopePoint &from = corners[fit.kept[line]], &to = corners[fit.kept[line + 1]];
    return {static_cast<float>(to.seconds - from.seconds), to.level};
}

/// How many of the lines lead to the corner farthest from silence.
std::size_t LinesToPeak(const Corners& corners, const Fit& fit) noexcept
{
    std::size_t peak = 0;
    for (std::size_t line = 1; line <= fit.segments; ++line)
        if (std::abs(corners[fit.kept[line]].level) > std::abs(corners[fit.kept[peak]].level))
            peak = line;
    return peak;
}

/// The peak ends attack 2 as far as the number of lines allows; stages to spare are empty.
void StoreHeldLines(const Corners& corners, const Fit& fit, Envelope& out) noexcept
{
    const std::size_t spare = fit.segments > 2 ? fit.segments - 2 : 0;
    const std::size_t attacks =
        std::min(fit.segments, std::clamp<std::size_t>(LinesToPeak(corners, fit), spare, 2));
    const std::size_t decays = fit.segments - attacks;
    const std::array stages{&out.attack1, &out.attack2, &out.decay1, &out.decay2};
    const std::array isUsed{attacks == 2, attacks >= 1, decays == 2, decays >= 1};
    float level = out.initialLevel = corners[0].level;
    std::size_t line = 0;
    for (std::size_t i = 0; i < stages.size(); ++i) {
        const Line next = isUsed[i] ? LineOf(corners, fit, line++) : Line{0, level};
        level = next.level;
        *stages[i] = {next.seconds, level};
    }
}

/// True if release 1 can hold the line: its time is stored per difference of level.
bool FitsRate(const EnvelopePoint& from, const EnvelopePoint& to) noexcept
{
    const double seconds = to.seconds - from.seconds;
    return seconds <= kMaxRate * std::abs(double{to.level} - double{from.level});
}

/// A release 2 or 3 whose level does not change would not be played: it moves by the smallest step.
float MovedLevel(float before, const Line& line, float after) noexcept
{
    if (line.level != before || line.seconds == 0)
        return line.level;
    const float lower = line.level - kSmallestStep, higher = line.level + kSmallestStep;
    const bool goesLower = line.level > 0 ? std::abs(lower - after) > kSmallestStep / 2 || higher > 1
                                          : line.level < 0 && std::abs(higher - after) <= kSmallestStep / 2;
    return goesLower ? lower : higher;
}

/// @param isShifted  the first line goes to release 2, since release 1 cannot hold it
float StoreReleaseLines(const Corners& corners, const Fit& fit, bool isShifted, Envelope& out) noexcept
{
    std::array<Line, kReleaseSegments> lines;
    lines.fill({0, corners.Last().level});
    if (isShifted)
        lines[0].level = corners[0].level;
    for (std::size_t line = 0; line < fit.segments; ++line)
        lines[line + (isShifted ? 1 : 0)] = LineOf(corners, fit, line);
    const float difference = std::abs(lines[0].level - corners[0].level);
    out.release1Rate = difference > 0 ? lines[0].seconds / difference : 0;
    out.release1Level = lines[0].level;
    out.release2Seconds = lines[1].seconds;
    out.release2Level = MovedLevel(lines[0].level, lines[1], lines[2].level);
    out.release3Seconds = lines[2].seconds;
    out.release3Level = MovedLevel(out.release2Level, lines[2], 0);
    return std::max(std::abs(out.release2Level - lines[1].level),
                    std::abs(out.release3Level - lines[2].level));
}

struct ReleaseFit {
    Fit fit;
    bool isShifted = false;
};

ReleaseFit FitRelease(const Corners& corners) noexcept
{
    ReleaseFit plain{FitLines(corners, kReleaseSegments,
                              [&](std::size_t end) { return FitsRate(corners[0], corners[end]); })};
    const ReleaseFit shifted{FitLines(corners, kReleaseSegments - 1, [](std::size_t) { return true; }), true};
    return shifted.fit.cost < plain.fit.cost ? shifted : plain;
}

/// @return the largest distance of a point from the lines
double StoreRelease(Corners corners, Envelope& out) noexcept
{
    while (corners.Count() > 1 && corners.Last().level == 0 && corners[corners.Count() - 2].level == 0)
        corners.RemoveLast(); // silence behind silence
    ReleaseFit best = FitRelease(corners);
    const std::size_t count = corners.Count();
    if (count > 2 && corners.Last().level == 0 && corners.Last().seconds == corners[count - 2].seconds) {
        // Every envelope drops to silence behind its last stage: the drop needs no stage of its own.
        Corners withoutDrop = corners;
        withoutDrop.RemoveLast();
        const ReleaseFit other = FitRelease(withoutDrop);
        if (other.fit.cost < best.fit.cost) {
            best = other;
            corners = withoutDrop;
        }
    }
    const double moved = StoreReleaseLines(corners, best.fit, best.isShifted, out);
    return LargestDistance(corners, best.fit) + moved;
}

/// The held part; without a sustain point that is the whole list.
Corners HeldCorners(const EnvelopePoints& points, std::size_t sustain) noexcept
{
    Corners held;
    const EnvelopePoint& first = points.points.front();
    if (first.seconds > 0)
        held.Add({0, first.level});
    for (std::size_t i = 0; i <= sustain; ++i)
        held.Add(points.points[i]);
    return held;
}

Corners ReleaseCorners(const EnvelopePoints& points, std::size_t sustain, float level) noexcept
{
    Corners release;
    release.Add({0, level});
    for (std::size_t i = sustain + 1; i < points.points.size(); ++i)
        release.Add(points.points[i]);
    return release;
}

/// Walks the release segments that are played. @param visit  (seconds, level reached)
template <class Visit>
void EachRelease(const Envelope& e, double from, Visit visit)
{
    if (from != e.release1Level)
        visit(e.release1Rate * std::abs(from - double{e.release1Level}), e.release1Level);
    if (e.release2Level != e.release1Level)
        visit(double{e.release2Seconds}, e.release2Level);
    if (e.release3Level != e.release2Level)
        visit(double{e.release3Seconds}, e.release3Level);
}

double HeldLevelAt(const Envelope& e, double seconds) noexcept
{
    double level = e.initialLevel;
    for (const EnvelopeStage* stage : {&e.attack1, &e.attack2, &e.decay1, &e.decay2}) {
        if (seconds < stage->seconds)
            return std::lerp(level, double{stage->level}, std::max(0.0, seconds / stage->seconds));
        seconds -= stage->seconds;
        level = stage->level;
    }
    return level;
}

double ReleaseLevelAt(const Envelope& e, double from, double seconds) noexcept
{
    double level = from, out = 0;
    bool isInside = false;
    EachRelease(e, from, [&](double length, float target) {
        if (!isInside && seconds < length) {
            out = std::lerp(level, double{target}, seconds / length);
            isInside = true;
        }
        seconds -= length;
        level = target;
    });
    return isInside ? out : 0;
}

} // namespace

EnvelopePoints EnvelopeToPoints(const Envelope& envelope)
{
    EnvelopePoints out;
    out.points.push_back({0, envelope.initialLevel});
    const auto add = [&](double seconds, float level) {
        out.points.push_back({out.points.back().seconds + seconds, level});
    };
    for (const EnvelopeStage* stage :
         {&envelope.attack1, &envelope.attack2, &envelope.decay1, &envelope.decay2})
        if (stage->seconds != 0 || stage->level != out.points.back().level)
            add(stage->seconds, stage->level);
    out.sustainPoint = out.points.size() - 1;
    out.hasSustain = envelope.releaseMode == ReleaseMode::KeyRelease;
    if (!out.hasSustain)
        return out;
    double seconds = 0;
    EachRelease(envelope, envelope.decay2.level, [&](double length, float level) {
        seconds += length;
        out.points.push_back({seconds, level});
    });
    if (out.points.back().level != 0)
        out.points.push_back({seconds, 0});
    return out;
}

float EnvelopeFromPoints(const EnvelopePoints& points, Envelope& out) noexcept
{
    out = {};
    if (points.points.empty())
        return 0;
    const std::size_t last = points.points.size() - 1;
    const std::size_t sustain = points.hasSustain ? std::min(points.sustainPoint, last) : last;
    const Corners held = HeldCorners(points, sustain);
    const Fit fit = FitLines(held, kHeldSegments, [](std::size_t) { return true; });
    StoreHeldLines(held, fit, out);
    out.releaseMode = points.hasSustain ? ReleaseMode::KeyRelease : ReleaseMode::NoRelease;
    double largest = LargestDistance(held, fit);
    const Corners release = ReleaseCorners(points, sustain, held.Last().level);
    if (release.Count() > 1)
        largest = std::max(largest, StoreRelease(release, out));
    return static_cast<float>(largest);
}

float EnvelopeLevelAt(const Envelope& envelope, double seconds, double releaseSeconds) noexcept
{
    const bool isReleased =
        releaseSeconds >= 0 && seconds >= releaseSeconds && envelope.releaseMode == ReleaseMode::KeyRelease;
    if (!isReleased)
        return static_cast<float>(HeldLevelAt(envelope, seconds));
    return static_cast<float>(
        ReleaseLevelAt(envelope, HeldLevelAt(envelope, releaseSeconds), seconds - releaseSeconds));
}

} // namespace vimbo
