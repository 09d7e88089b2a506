#include "dsp/kernels/voice_filter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>
#include <string>
#include <vector>

namespace {

using namespace vimbo;
using Complex = std::complex<double>;

constexpr std::size_t kFrames = kFilterFrames;
using Block = std::array<float, kFrames>;

class Noise {
public:
    explicit Noise(std::uint32_t seed) : seed_(seed) {}
    float Next()
    {
        seed_ = seed_ * 1664525 + 1013904223;
        return static_cast<float>(seed_ >> 8) * 0x1p-23f - 1.0f;
    }
    void Fill(Block& block)
    {
        std::ranges::generate(block, [this] { return Next(); });
    }

private:
    std::uint32_t seed_;
};

// ---- The filters as they are defined: two passes of the recursion for each frame.

enum class Section { None, PoleLow, PoleHigh, Low, High, Band, Notch };
struct Definition {
    Section first = Section::None, last = Section::None;
};
constexpr Definition kDefinitions[kVoiceFilterKinds] = {
    {},
    {Section::PoleLow, Section::None},
    {Section::None, Section::Low},
    {Section::PoleLow, Section::Low},
    {Section::Low, Section::Low},
    {Section::PoleHigh, Section::None},
    {Section::None, Section::High},
    {Section::PoleHigh, Section::High},
    {Section::High, Section::High},
    {Section::None, Section::Band},
    {Section::Band, Section::Band},
    {Section::None, Section::Notch},
    {Section::Notch, Section::Notch},
};

struct Setting {
    double ratio, resonanceDb;
};

/// T is double for signals and Complex for responses.
template <class T>
struct SectionState {
    T low{}, band{}, x1{}, y1{};
};

template <class T>
T DefinedStep(Section section, const Setting& setting, SectionState<T>& s, T x)
{
    const double decay = std::exp(-2 * std::numbers::pi * setting.ratio);
    if (section == Section::None)
        return x;
    if (section == Section::PoleLow)
        return s.y1 = (1 - decay) * x + decay * s.y1;
    if (section == Section::PoleHigh) {
        s.y1 = (1 + decay) / 2 * x - (1 + decay) / 2 * s.x1 + decay * s.y1;
        s.x1 = x;
        return s.y1;
    }
    const double f = 2 * std::sin(std::numbers::pi / 2 * setting.ratio);
    const double set = setting.resonanceDb >= 96 ? 0 : std::pow(10.0, -setting.resonanceDb / 20);
    const double q = std::min(set, 2 - f);
    T notch{}, high{};
    for (int pass = 0; pass < 2; ++pass) {
        s.low += s.band * f;
        notch = x - s.band * q;
        high = notch - s.low;
        s.band += high * f;
    }
    return section == Section::Low    ? s.low
           : section == Section::Band ? s.band
           : section == Section::High ? high
                                      : notch;
}

Setting FirstSetting(const Setting& setting)
{
    return {setting.ratio, 0};
}

/// Response of a section at w radians per frame: its state is what a frame turns into itself, times e^jw.
Complex DefinedResponse(Section section, const Setting& setting, double w)
{
    const double decay = std::exp(-2 * std::numbers::pi * setting.ratio);
    const Complex z = std::polar(1.0, w);
    if (section == Section::None)
        return 1;
    if (section == Section::PoleLow)
        return (1 - decay) / (1.0 - decay / z);
    if (section == Section::PoleHigh)
        return (1 + decay) / 2 * (1.0 - 1.0 / z) / (1.0 - decay / z);
    const auto after = [&](Complex low, Complex band, Complex x) {
        SectionState<Complex> s{low, band, {}, {}};
        DefinedStep(section, setting, s, x);
        return s;
    };
    const auto fromLow = after(1, 0, 0), fromBand = after(0, 1, 0), fromInput = after(0, 0, 1);
    const Complex a = z - fromLow.low, b = -fromBand.low, c = -fromLow.band, d = z - fromBand.band;
    const Complex determinant = a * d - b * c;
    SectionState<Complex> s{(d * fromInput.low - b * fromInput.band) / determinant,
                            (a * fromInput.band - c * fromInput.low) / determinant,
                            {},
                            {}};
    return DefinedStep(section, setting, s, Complex(1));
}

VoiceFilterKind KindOf(int index)
{
    return static_cast<VoiceFilterKind>(index);
}

VoiceFilterCoefs CoefsOf(int kind, const Setting& setting)
{
    return ComputeVoiceFilter(KindOf(kind), static_cast<float>(setting.ratio), 0,
                              static_cast<float>(setting.resonanceDb));
}

/// Runs `blocks` blocks through one lane; `fill` writes each one's input. @return all outputs
template <class Fill>
std::vector<float> RunAlone(int kind, const VoiceFilterCoefs& coefs, VoiceFilterState& state,
                            std::size_t blocks, const Fill& fill)
{
    std::vector<float> out;
    for (std::size_t b = 0; b < blocks; ++b) {
        Block block{};
        fill(b, block);
        const FilterLane lane{block.data(), &coefs, &state};
        RunVoiceFilter(KindOf(kind), {&lane, 1});
        out.insert(out.end(), block.begin(), block.end());
    }
    return out;
}

constexpr Setting kSettings[] = {{0.0004, 0}, {0.0004, 24}, {0.01, 0}, {0.01, 12}, {0.1, 0}, {0.1, 30},
                                 {0.33, 0},   {0.34, 6},    {0.45, 0}, {0.45, 18}, {0.5, 0}, {0.5, 12}};

TEST(VoiceFilter, LanesSideBySideGiveTheBitsOfOneByOne)
{
    for (int kind = 0; kind < kVoiceFilterKinds; ++kind) {
        for (const std::size_t count : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 13u, 16u, 17u, 31u, 40u}) {
            std::vector<VoiceFilterCoefs> coefs;
            for (std::size_t i = 0; i < count; ++i)
                coefs.push_back(CoefsOf(kind, kSettings[(i * 5 + count) % std::size(kSettings)]));
            std::vector<VoiceFilterState> fast(count), plain(count);
            Noise noise(static_cast<std::uint32_t>(count));
            for (int repeat = 0; repeat < 3; ++repeat) {
                std::vector<Block> a(count), b;
                for (Block& block : a)
                    noise.Fill(block);
                if (repeat == 2)
                    a[count / 2].fill(std::nanf("")); // spoils its own lane only
                b = a;
                std::vector<FilterLane> lanes, plainLanes;
                for (std::size_t i = 0; i < count; ++i) {
                    lanes.push_back({a[i].data(), &coefs[i], &fast[i]});
                    plainLanes.push_back({b[i].data(), &coefs[i], &plain[i]});
                }
                RunVoiceFilter(KindOf(kind), lanes);
                RunVoiceFilterPlain(KindOf(kind), plainLanes);
                for (std::size_t i = 0; i < count; ++i) {
                    if (repeat == 2 && i == count / 2)
                        continue;
                    ASSERT_EQ(std::memcmp(a[i].data(), b[i].data(), sizeof(Block)), 0)
                        << "kind " << kind << ", lane " << i << " of " << count;
                    ASSERT_EQ(std::memcmp(&fast[i], &plain[i], sizeof(VoiceFilterState)), 0);
                }
            }
        }
    }
}

TEST(VoiceFilter, FollowsTheTwoPassRecursion)
{
    for (int kind = 0; kind < kVoiceFilterKinds; ++kind) {
        for (const Setting& setting : kSettings) {
            Noise noise(7);
            std::vector<float> in;
            VoiceFilterState state;
            const auto out =
                RunAlone(kind, CoefsOf(kind, setting), state, 40, [&](std::size_t, Block& block) {
                    noise.Fill(block);
                    in.insert(in.end(), block.begin(), block.end());
                });
            SectionState<double> first, last;
            double largest = 0, error = 0;
            for (std::size_t i = 0; i < in.size(); ++i) {
                const Definition& d = kDefinitions[kind];
                const double middle = DefinedStep(d.first, FirstSetting(setting), first, double{in[i]});
                const double expected = DefinedStep(d.last, setting, last, middle);
                largest = std::max(largest, std::abs(expected));
                error = std::max(error, std::abs(expected - out[i]));
            }
            EXPECT_LT(error, largest * 2e-5)
                << "kind " << kind << ", ratio " << setting.ratio << ", " << setting.resonanceDb << " dB";
        }
    }
}

TEST(VoiceFilter, HasTheTransferFunctionOfItsSections)
{
    for (int kind = 0; kind < kVoiceFilterKinds; ++kind) {
        for (const Setting& setting : {Setting{0.01, 0}, {0.03, 12}, {0.1, 20}, {0.3, 6}, {0.5, 0}}) {
            VoiceFilterState state;
            const auto out = RunAlone(kind, CoefsOf(kind, setting), state, 100,
                                      [](std::size_t b, Block& block) { block[0] = b == 0 ? 1.0f : 0.0f; });
            double largest = 0, error = 0;
            for (const double frequency : {0.0, 0.002, 0.01, 0.03, 0.07, 0.1, 0.2, 0.3, 0.4, 0.5}) {
                const double w = 2 * std::numbers::pi * frequency;
                Complex measured = 0;
                for (std::size_t n = 0; n < out.size(); ++n)
                    measured += double{out[n]} * std::polar(1.0, -w * static_cast<double>(n));
                const Definition& d = kDefinitions[kind];
                const Complex expected =
                    DefinedResponse(d.first, FirstSetting(setting), w) * DefinedResponse(d.last, setting, w);
                largest = std::max(largest, std::abs(expected));
                error = std::max(error, std::abs(measured - expected));
            }
            EXPECT_LT(error, largest * 1e-4)
                << "kind " << kind << ", ratio " << setting.ratio << ", " << setting.resonanceDb << " dB";
        }
    }
}

/// Known from outside the recursion: gains in dB at 0, at the cutoff of 480 Hz in 48 kHz, and well away.
TEST(VoiceFilter, PassesAndStopsWhatItsNameSays)
{
    struct Row {
        int kind;
        double resonanceDb, atZero, atCutoff, fourOctavesBelow, fourOctavesAbove;
    };
    constexpr double kNone = -200; // anything below -80
    constexpr Row kRows[] = {
        {1, 0, 0, -3.01, -0.02, -23.9},  {2, 0, 0, 0, 0, -48},
        {2, 12, 0, 12, 0, -48},          {3, 12, 0, 9, 0, -72},
        {4, 12, 0, 12, 0, kNone},        {5, 0, kNone, -3.01, -24.1, 0},
        {6, 12, kNone, 12, -48.1, 0},    {7, 12, kNone, 9, -72.3, 0},
        {8, 12, kNone, 12, kNone, 0},    {9, 12, kNone, 12, -24.1, -23.9},
        {10, 0, kNone, 0, -48.2, -47.7}, {11, 6, 0, kNone, 0, 0},
    };
    constexpr double kRatio = 0.01;
    for (const Row& row : kRows) {
        VoiceFilterState state;
        const auto coefs = ComputeVoiceFilter(KindOf(row.kind), 0.005f, 12, // an octave up
                                              static_cast<float>(row.resonanceDb));
        const auto out = RunAlone(row.kind, coefs, state, 200,
                                  [](std::size_t b, Block& block) { block[0] = b == 0 ? 1.0f : 0.0f; });
        const auto expectGain = [&](double frequency, double expectedDb) {
            Complex sum = 0;
            for (std::size_t n = 0; n < out.size(); ++n)
                sum += double{out[n]} *
                       std::polar(1.0, -2 * std::numbers::pi * frequency * static_cast<double>(n));
            const double db = 20 * std::log10(std::abs(sum) + 1e-12);
            if (expectedDb == kNone) {
                EXPECT_LT(db, row.kind == 11 ? -20 : -80) << "kind " << row.kind << " at " << frequency;
            } else {
                EXPECT_NEAR(db, expectedDb, 0.6) << "kind " << row.kind << " at " << frequency;
            }
        };
        expectGain(0, row.atZero);
        expectGain(kRatio, row.atCutoff);
        expectGain(kRatio / 16, row.fourOctavesBelow);
        expectGain(kRatio * 16, row.fourOctavesAbove);
    }
}

TEST(VoiceFilter, StaysFiniteAtEveryExtreme)
{
    const float nan = std::nanf("");
    for (int kind = 0; kind < kVoiceFilterKinds; ++kind) {
        for (const float ratio : {-1.0f, 0.0f, 1e-6f, 0.3f, 0.5f, 10.0f, nan}) {
            for (const float semitones : {-1000.0f, 0.0f, 90.0f, 1e6f, nan}) {
                for (const float resonance : {-20.0f, 0.0f, 5.4f, 40.0f, 96.0f, 1e9f}) {
                    Noise noise(3);
                    VoiceFilterState state;
                    const auto out =
                        RunAlone(kind, ComputeVoiceFilter(KindOf(kind), ratio, semitones, resonance), state,
                                 100, [&](std::size_t, Block& block) { noise.Fill(block); });
                    for (const float sample : out)
                        ASSERT_LT(std::abs(sample), 5000)
                            << kind << " " << ratio << " " << semitones << " " << resonance;
                }
            }
        }
    }
}

bool IsDenormal(float x)
{
    return std::fpclassify(x) == FP_SUBNORMAL;
}

/// Denormals are slow, so neither the sound nor the states may ever hold one while they decay.
TEST(VoiceFilter, DecaysToSilenceWithoutDenormals)
{
    for (int kind = 1; kind < kVoiceFilterKinds; ++kind) {
        for (const Setting& setting : kSettings) {
            Noise noise(5);
            const auto coefs = CoefsOf(kind, setting);
            VoiceFilterState state;
            std::vector<float> out;
            for (int repeat = 0; repeat < 1200; ++repeat) {
                out = RunAlone(kind, coefs, state, 1, [&](std::size_t, Block& block) {
                    if (repeat < 2)
                        noise.Fill(block);
                });
                ASSERT_FALSE(std::ranges::any_of(out, IsDenormal))
                    << kind << " " << setting.ratio << " " << repeat;
                ASSERT_FALSE(IsDenormal(state.low1) || IsDenormal(state.band1) || IsDenormal(state.low2) ||
                             IsDenormal(state.band2) || IsDenormal(state.y1));
            }
            if (setting.ratio >= 0.01) {
                EXPECT_LT(std::abs(out.back()), 1e-18f) << kind << " " << setting.ratio;
            }
        }
    }
}

} // namespace
