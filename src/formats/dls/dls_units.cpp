// Units, level, tuning, filter, pan and sends; the whole articulation.
#include "formats/dls/dls_unit_parts.h"

#include <array>

namespace vimbo::dls {
namespace {

constexpr double kScalePerOctave = 1200.0 * 65536;
constexpr double kHzOfA = 440;
constexpr double kScaleOfA = 6900.0 * 65536;
constexpr double kLogOfSemitone = 0.057762265;
/// Octaves over which the format's key number runs.
constexpr double kOctaves = 128.0 / 12;
/// Octaves from key 0, the middle of the format's key number, to middle C, ours.
constexpr double kOctavesToMiddleC = 5;
/// dB per octave of a key number that runs from -1 to 1 over 127 keys.
constexpr double kKeyToGainUnit = 3467946.7;
constexpr double kHzPerStep = 100; ///< frequencies have two decimals
constexpr double kLowestRoundedHz = 2;

/// Cutoffs in cents, and dB of resonance, that the levels hold.
struct FilterLimits {
    double lowestCents, highestCents, highestDb;
};
FilterLimits FilterLimitsOf(std::uint32_t level) noexcept
{
    return level >= kDlsLevel2Plus ? FilterLimits{1548, 13507, 96} : FilterLimits{5535, 11921, 22.5};
}

/// A value that is a plain multiple of a connection's scale.
struct Linear {
    std::uint16_t source, destination;
    std::uint16_t transform; ///< as written from level 2 on
    ParamId id;
    double unit;
    std::uint32_t level = kDlsLevel2; ///< the first that has it
    double limit = 1e6;
};
constexpr std::array kLevelValues{
    Linear{kSrcKey, kDstPitch, 0, kArtKeyToPitch, kScalePerSemitone * 128, kDlsLevel1},
    Linear{kSrcNone, kDstPan, 0, kArtPan, kScalePerPan, kDlsLevel1},
    Linear{kSrcVelocity, kDstGain, kTransformInverted | kTransformConcave, kArtVelToVolume, -kScalePerDb},
    Linear{kSrcKey, kDstGain, kTransformBipolar, kArtKeyToVolume, kKeyToGainUnit},
    Linear{kSrcWheel, kDstGain, 0, kArtWheelToVolume, kScalePerDb},
    Linear{kSrcPressure, kDstGain, 0, kArtTouchToVolume, kScalePerDb},
    Linear{kSrcKey, kDstPan, 0, kArtKeyToPan, kScalePerPan* kOctaves},
    Linear{kSrcCc10, kDstPan, kTransformBipolar, kArtCc10ToPan, kScalePerPan * 508 / 500},
};
constexpr std::array kFilterValues{
    Linear{kSrcNone, kDstResonance, 0, kArtResonance, kScalePerDb},
    Linear{kSrcVelocity, kDstResonance, kTransformBipolar, kArtVelToResonance, kScalePerDb},
    Linear{kSrcWheel, kDstResonance, 0, kArtWheelToResonance, kScalePerDb},
    Linear{kSrcPressure, kDstResonance, 0, kArtTouchToResonance, kScalePerDb},
    Linear{kSrcKey, kDstCutoff, 0, kArtKeyToCutoff, kScalePerSemitone* kOctaves, kDlsLevel2, 12},
    Linear{kSrcWheel, kDstCutoff, 0, kArtWheelToCutoff, kScalePerSemitone},
    Linear{kSrcPressure, kDstCutoff, 0, kArtTouchToCutoff, kScalePerSemitone},
};
constexpr double kMaxVelocityToCutoff = 64;
/// A velocity that runs from 0 to 1 moves twice as far as one that runs from -1 to 1.
constexpr double kVelocityToCutoffUnit = 2 * kScalePerSemitone;

template <std::size_t Count>
void ReadValues(const ConnectionTable& table, const std::array<Linear, Count>& rows, ArticulationBlock& out)
{
    for (const Linear& row : rows)
        if (const Connection* found = table.Find(row.source, kSrcNone, row.destination))
            out.Set(row.id, Stored(row.id, LinearOf(found, row.unit, 0)));
}

template <std::size_t Count>
void WriteValues(const ArticulationBlock& block, const std::array<Linear, Count>& rows, std::uint32_t level,
                 std::vector<Connection>& out)
{
    for (const Linear& row : rows) {
        const double value = std::clamp<double>(block[row.id], -row.limit, row.limit);
        if (level < row.level || block[row.id] == DefaultArticulation()[row.id])
            continue;
        const std::uint16_t transform = level >= kDlsLevel2 ? row.transform : std::uint16_t{0};
        out.push_back({row.source, kSrcNone, row.destination, transform, LinearScaleOf(value, row.unit)});
    }
}

/// Pan of early files: signed low word, in tenths of a percent of both sides.
void ReadPan(const ConnectionTable& table, ArticulationBlock& out)
{
    if (table.Find(kDstPan) != nullptr)
        return;
    if (const Connection* early = table.Find(kDstEarlyPan))
        out.Set(kArtPan,
                Stored(kArtPan, static_cast<std::int16_t>(static_cast<std::uint32_t>(early->scale)) * 0.002));
}

double ExactHzOf(std::int32_t scale) noexcept
{
    return scale == kScaleOfZero ? 0 : kHzOfA * std::exp2((scale - kScaleOfA) / kScalePerOctave);
}

/// From the cutoff where velocity and key number are 0 to that at the parameters' centres.
double CutoffFactor(double velocity, double key) noexcept
{
    return std::exp(kLogOfSemitone * (velocity + kOctavesToMiddleC * key));
}

/// The filter is on from here on.
void ReadFilter(const ConnectionTable& table, const Connection& cutoff, ArticulationBlock& out)
{
    out.Set(kArtFilterType, static_cast<float>(FilterType::LowPass12));
    ReadValues(table, kFilterValues, out);
    double unipolar = 0;
    if (const Connection* velocity = table.Find(kSrcVelocity, kSrcNone, kDstCutoff)) {
        const bool isBipolar = (velocity->transform & kTransformBipolar) != 0;
        const double unit = isBipolar ? kScalePerSemitone : kVelocityToCutoffUnit;
        out.Set(kArtVelToCutoff, Stored(kArtVelToCutoff, LinearOf(velocity, unit, 0)));
        unipolar = isBipolar ? 0 : out[kArtVelToCutoff];
    }
    const double hz = ExactHzOf(cutoff.scale) * CutoffFactor(unipolar, out[kArtKeyToCutoff]);
    out.Set(kArtCutoff, Stored(kArtCutoff, hz));
}

void WriteFilter(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out)
{
    if (static_cast<FilterType>(block[kArtFilterType]) == FilterType::PassThru)
        return;
    const FilterLimits limits = FilterLimitsOf(level);
    const double velocity =
        std::clamp<double>(block[kArtVelToCutoff], -kMaxVelocityToCutoff, kMaxVelocityToCutoff);
    const double key = std::clamp<double>(block[kArtKeyToCutoff], -12, 12);
    const std::int32_t scale = PitchScaleOf(block[kArtCutoff] / CutoffFactor(velocity, key));
    out.push_back({kSrcNone, kSrcNone, kDstCutoff, 0,
                   std::clamp(scale, static_cast<std::int32_t>(limits.lowestCents * 65536),
                              static_cast<std::int32_t>(limits.highestCents * 65536))});
    ArticulationBlock limited = block;
    limited.Set(kArtResonance, std::clamp(block[kArtResonance], 0.0f, static_cast<float>(limits.highestDb)));
    WriteValues(limited, kFilterValues, level, out);
    if (velocity != 0)
        out.push_back(
            {kSrcVelocity, kSrcNone, kDstCutoff, 0, LinearScaleOf(velocity, kVelocityToCutoffUnit)});
}

struct SendEnds {
    std::uint16_t controller, destination;
};
constexpr SendEnds kReverb{kSrcCc91, kDstReverb}, kChorus{kSrcCc93, kDstChorus};

ParamId SendId(ParamId first, std::size_t slot) noexcept
{
    return static_cast<ParamId>(first + kSendParams * slot);
}

void ReadSend(const ConnectionTable& table, SendEnds send, std::optional<std::size_t> slot,
              ArticulationBlock& out)
{
    if (!slot)
        return;
    const auto read = [&](std::uint16_t source, ParamId id) {
        if (const Connection* found = table.Find(source, kSrcNone, send.destination))
            out.Set(id, Stored(id, LinearOf(found, kScalePerWhole, 0)));
    };
    read(kSrcNone, SendId(kArtSend, *slot));
    read(send.controller, SendId(kArtCcToSend, *slot));
}

void WriteSend(const ArticulationBlock& block, SendEnds send, std::optional<std::size_t> slot,
               std::vector<Connection>& out)
{
    if (!slot)
        return;
    const auto write = [&](std::uint16_t source, ParamId id) {
        if (block[id] != DefaultArticulation()[id])
            out.push_back({source, kSrcNone, send.destination, 0, LinearScaleOf(block[id], kScalePerWhole)});
    };
    write(kSrcNone, SendId(kArtSend, *slot));
    write(send.controller, SendId(kArtCcToSend, *slot));
}

/// A unipolar LFO swings around half of its depth.
double LfoMeanDb(const ArticulationBlock& block) noexcept
{
    Lfo lfo;
    GetLfo(block, lfo, LfoIndex::Volume);
    const double half = block[kArtVLfoToVolume] / 2.0;
    return lfo.polarity == LfoPolarity::Bipolar ? 0 : lfo.polarity == LfoPolarity::Unipolar ? half : -half;
}

constexpr std::array kFilterDepths{
    kArtVelToCutoff,       kArtKeyToCutoff,       kArtWheelToCutoff,   kArtTouchToCutoff, kArtFLfoToCutoff,
    kArtWheelFLfoToCutoff, kArtTouchFLfoToCutoff, kArtVelFLfoToCutoff, kArtFEnvToCutoff,  kArtVelFEnvToCutoff,
    kArtVelToResonance,    kArtWheelToResonance,  kArtTouchToResonance};

bool IsWritable(FilterType type) noexcept
{
    return (type >= FilterType::LowPass6 && type <= FilterType::LowPass24) || type == FilterType::BandPass6 ||
           type == FilterType::BandPass12;
}

/// The block without filters that the level has no place for, and all that moves them.
ArticulationBlock WritablePart(const ArticulationBlock& block, std::uint32_t level)
{
    ArticulationBlock part = block;
    if (level >= kDlsLevel2 && IsWritable(static_cast<FilterType>(block[kArtFilterType])))
        return part;
    for (const ParamId id : kFilterDepths)
        part.Inherit(id, 0);
    for (const ParamId id : {kArtFilterType, kArtCutoff, kArtResonance})
        part.Inherit(id, DefaultArticulation()[id]);
    return part;
}

Sound WriteSound(const ArticulationBlock& block, const SendSlots& sends, std::uint32_t level)
{
    const ArticulationBlock part = WritablePart(block, level);
    Sound sound;
    WriteLfos(part, level, sound.connections);
    WriteEnvelopes(part, level, sound.connections);
    WriteValues(part, kLevelValues, level, sound.connections);
    double resonanceDb = 0;
    if (level >= kDlsLevel2) {
        WriteFilter(part, level, sound.connections);
        WriteSend(part, kReverb, sends.reverb, sound.connections);
        WriteSend(part, kChorus, sends.chorus, sound.connections);
        resonanceDb = std::clamp<double>(part[kArtResonance], 0, FilterLimitsOf(level).highestDb);
    }
    // The format's filter boosts the peak, ours keeps the passband.
    sound.level.gainDb = part[kArtVolume] + resonanceDb / 2 + LfoMeanDb(part);
    sound.level.cents = static_cast<int>(std::lround(part[kArtTuning] * 100.0));
    return sound;
}

template <std::size_t Count>
bool HasRow(const std::array<Linear, Count>& rows, const Connection& at) noexcept
{
    return std::ranges::any_of(rows, [&](const Linear& row) {
        return row.source == at.source && row.destination == at.destination;
    });
}

/// Values, times of the envelopes and what is there in every player: volume and expression controllers, and
/// the pitch wheel with its range.
bool IsKnownSource(const Connection& at) noexcept
{
    const std::uint16_t to = at.destination;
    switch (at.source) {
    case kSrcNone:
        return to == kDstEarlyPan || to == kDstPitch || to == kDstCutoff || to == kDstChorus ||
               to == kDstReverb || to == kDstLfoFrequency || to == kDstLfoDelay ||
               to == kDstVibratoFrequency || to == kDstVibratoDelay ||
               (to >= kDstEg1 && to <= kDstEg1 + kEgShutdown) || (to >= kDstEg2 && to <= kDstEg2 + kEgHold);
    case kSrcVelocity:
        return to == kDstCutoff || to == kDstEg1 + kEgAttack || to == kDstEg1 + kEgDecay ||
               to == kDstEg2 + kEgAttack || to == kDstEg2 + kEgDecay;
    case kSrcKey:
        return to == kDstEg1 + kEgDecay || to == kDstEg1 + kEgHold || to == kDstEg2 + kEgDecay ||
               to == kDstEg2 + kEgHold;
    case kSrcLfo:
        return to == kDstPan;
    case kSrcEg2:
        return to == kDstPitch || to == kDstCutoff || to == kDstPan;
    case kSrcCc91:
        return to == kDstReverb;
    case kSrcCc93:
        return to == kDstChorus;
    case kSrcCc7:
    case kSrcCc11:
        return to == kDstGain;
    default:
        return false;
    }
}

bool IsKnown(const Connection& at) noexcept
{
    if (at.source == kSrcPitchWheel && at.control == kSrcWheelRange && at.destination == kDstPitch)
        return true;
    const bool isDepth =
        (at.source == kSrcVibrato && at.destination == kDstPitch) ||
        (at.source == kSrcLfo &&
         (at.destination == kDstPitch || at.destination == kDstGain || at.destination == kDstCutoff));
    if (isDepth)
        return at.control == kSrcNone || at.control == kSrcWheel || at.control == kSrcPressure ||
               at.control == kSrcVelocity;
    return at.control == kSrcNone &&
           (IsKnownSource(at) || HasRow(kLevelValues, at) || HasRow(kFilterValues, at));
}

} // namespace

float Stored(ParamId id, double value) noexcept
{
    constexpr double kAnyLimit = 1e6; // beyond every parameter's limits
    return RoundAndClamp(ArticulationParamRow(id),
                         static_cast<float>(std::clamp(value, -kAnyLimit, kAnyLimit)));
}

double SecondsOf(std::int32_t scale) noexcept
{
    return scale == kScaleOfZero ? 0 : std::exp2(scale / kScalePerOctave);
}

std::int32_t TimeScaleOf(double seconds) noexcept
{
    return seconds > 0 ? LinearScaleOf(std::log2(seconds), kScalePerOctave) : kScaleOfZero;
}

double HzOf(std::int32_t scale) noexcept
{
    const double hz = ExactHzOf(scale);
    return hz > kLowestRoundedHz ? std::round(hz * kHzPerStep) / kHzPerStep : hz;
}

std::int32_t PitchScaleOf(double hz) noexcept
{
    return hz > 0 ? LinearScaleOf(std::log2(hz / kHzOfA) + kScaleOfA / kScalePerOctave, kScalePerOctave)
                  : kScaleOfZero;
}

std::int32_t LinearScaleOf(double value, double unit) noexcept
{
    const double scale = std::clamp(value * unit, kScaleOfZero + 1.0, kNoFilter - 1.0);
    return static_cast<std::int32_t>(std::lround(scale));
}

SendSlots FindSends(const Instrument& instrument) noexcept
{
    return {FindChannelFx(instrument, ChannelFxType::Reverb),
            FindChannelFx(instrument, ChannelFxType::Chorus)};
}

SendSlots ProvideSends(std::span<const Connection> connections, Instrument& instrument, int& lost) noexcept
{
    const ConnectionTable table(connections);
    const auto has = [&](SendEnds send) {
        return table.Find(send.destination) != nullptr ||
               table.Find(send.controller, kSrcNone, send.destination) != nullptr;
    };
    SendSlots slots;
    if (has(kReverb) && !(slots.reverb = ProvideChannelFx(instrument, kDefaultReverb)))
        ++lost;
    if (has(kChorus) && !(slots.chorus = ProvideChannelFx(instrument, kDefaultChorus)))
        ++lost;
    return slots;
}

bool SaysPan(std::span<const Connection> connections) noexcept
{
    const ConnectionTable table(connections);
    return table.Find(kDstPan) != nullptr || table.Find(kDstEarlyPan) != nullptr;
}

std::uint64_t CountUnknown(std::span<const Connection> connections) noexcept
{
    return static_cast<std::uint64_t>(
        std::ranges::count_if(connections, [](const Connection& at) { return !IsKnown(at); }));
}

ArticulationBlock ToArticulation(std::span<const Connection> connections, const RegionLevel& level,
                                 const SendSlots& sends)
{
    const ConnectionTable table(connections);
    ArticulationBlock out;
    const Connection* cutoff = table.Find(kDstCutoff);
    const bool hasFilter = cutoff != nullptr && cutoff->scale != kNoFilter;
    if (hasFilter)
        ReadFilter(table, *cutoff, out);
    ReadValues(table, kLevelValues, out);
    ReadPan(table, out);
    ReadSend(table, kReverb, sends.reverb, out);
    ReadSend(table, kChorus, sends.chorus, out);
    ReadLfos(table, hasFilter, out);
    ReadEnvelopes(table, hasFilter, out);
    const double semitones = LinearOf(table.Find(kDstPitch), kScalePerSemitone, 0);
    out.Set(kArtTuning, Stored(kArtTuning, semitones + level.cents * 0.01));
    out.Set(kArtVolume, Stored(kArtVolume, level.gainDb - out[kArtResonance] / 2.0));
    out.MarkDifferences(DefaultArticulation());
    return out;
}

Sound ToSound(const ArticulationBlock& block, const SendSlots& sends, std::uint32_t level,
              ArticulationBlock& held)
{
    Sound sound = WriteSound(block, sends, level);
    held = ToArticulation(sound.connections, sound.level, sends);
    if (held.SameValues(block))
        return sound;
    // Where a value lies outside what the format holds, the rest of it may be written in another way.
    sound = WriteSound(held, sends, level);
    held = ToArticulation(sound.connections, sound.level, sends);
    return sound;
}

} // namespace vimbo::dls
