// Envelopes and LFOs of an articulation.
#include "formats/dls/dls_unit_parts.h"

#include <array>

namespace vimbo::dls {
namespace {

/// The format's own defaults.
constexpr float kUsualRateHz = 5;
constexpr float kUsualLfoDelay = 0.01f;
constexpr float kUsualShutdown = 0.015f;

constexpr double kMostFactor = 16; ///< of times, over the whole range of velocities or keys
/// From the factor over all keys to that of an octave, and from key 0 to middle C in octaves.
constexpr double kOctavePart = 12.0 / 128;
constexpr double kOctavesToMiddleC = 5;

/// An LFO's way to one destination.
struct DepthEnds {
    std::uint16_t source, destination;
    double unit;
};
constexpr DepthEnds kVibratoPitch{kSrcVibrato, kDstPitch, kScalePerSemitone};
constexpr DepthEnds kLfoPitch{kSrcLfo, kDstPitch, kScalePerSemitone};
constexpr DepthEnds kLfoGain{kSrcLfo, kDstGain, kScalePerDb};
constexpr DepthEnds kLfoCutoff{kSrcLfo, kDstCutoff, kScalePerSemitone};
constexpr double kPanUnit = kScalePerWhole / 2;

/// Where an LFO's rate and delay stand.
struct LfoEnds {
    std::uint16_t frequency, delay;
};
constexpr LfoEnds kModLfo{kDstLfoFrequency, kDstLfoDelay};
constexpr LfoEnds kVibratoLfo{kDstVibratoFrequency, kDstVibratoDelay};

LfoDepth ReadDepth(const ConnectionTable& table, const DepthEnds& ends) noexcept
{
    const auto read = [&](std::uint16_t control) {
        return static_cast<float>(LinearOf(table.Find(ends.source, control, ends.destination), ends.unit, 0));
    };
    return {read(kSrcNone), read(kSrcWheel), read(kSrcPressure), read(kSrcVelocity)};
}

/// @param part  of the depth: half for unipolar LFOs, which swing to one side only
void WriteDepth(const LfoDepth& depth, const DepthEnds& ends, double part, std::uint32_t level,
                std::vector<Connection>& out)
{
    const bool isLevel2 = level >= kDlsLevel2;
    const auto write = [&](std::uint16_t control, float value) {
        if (value == 0)
            return;
        unsigned transform = isLevel2 ? kTransformBipolar : 0u;
        if (control == kSrcVelocity)
            transform |= kControlBipolar;
        out.push_back({ends.source, control, ends.destination, static_cast<std::uint16_t>(transform),
                       LinearScaleOf(value * part, ends.unit)});
    };
    write(kSrcNone, depth.fixed);
    write(kSrcWheel, depth.wheel);
    if (!isLevel2)
        return;
    write(kSrcPressure, depth.touch);
    write(kSrcVelocity, depth.velocity);
}

/// As the block stores it, so that comparisons give the same for what was stored.
Lfo ReadLfo(const ConnectionTable& table, LfoEnds ends) noexcept
{
    constexpr ParamId kBase = LfoBase(LfoIndex::Pitch);
    const Connection* frequency = table.Find(ends.frequency);
    Lfo lfo;
    lfo.frequencyHz =
        Stored(kBase + kLfoFrequency, frequency != nullptr ? HzOf(frequency->scale) : kUsualRateHz);
    lfo.delaySeconds = Stored(kBase + kLfoDelay, TimeOf(table.Find(ends.delay), kUsualLfoDelay));
    return lfo;
}

void WriteLfo(const Lfo& lfo, LfoEnds ends, std::vector<Connection>& out)
{
    if (lfo.frequencyHz != kUsualRateHz)
        out.push_back({kSrcNone, kSrcNone, ends.frequency, 0, PitchScaleOf(lfo.frequencyHz)});
    // The format's LFOs do not fade in: half of the ramp stands for it.
    const double seconds = lfo.delaySeconds + lfo.rampSeconds / 2.0;
    if (static_cast<float>(seconds) != kUsualLfoDelay)
        out.push_back({kSrcNone, kSrcNone, ends.delay, 0, TimeScaleOf(seconds)});
}

double PartOf(const Lfo& lfo) noexcept
{
    switch (lfo.polarity) {
    case LfoPolarity::Unipolar:
        return 0.5;
    case LfoPolarity::NegativeUnipolar:
        return -0.5;
    default:
        return 1;
    }
}

/// True for the rate and delay of an LFO that nothing is said of.
bool SaysNothing(const Lfo& lfo) noexcept
{
    const Lfo usual{LfoShape::Sine, LfoPolarity::Bipolar, kUsualRateHz, kUsualLfoDelay, 0};
    return lfo == usual || lfo == Lfo{};
}

void ReadVibrato(const ConnectionTable& table, ArticulationBlock& out)
{
    const LfoDepth depth = ReadDepth(table, kVibratoPitch);
    const Lfo lfo = ReadLfo(table, kVibratoLfo);
    // Without a depth it stays if it says something: many players move it by the wheel of their own accord.
    if (depth.IsZero() && SaysNothing(lfo))
        return;
    SetLfo(out, lfo, LfoIndex::Pitch);
    out.Set(kArtPLfoToPitch, depth.fixed);
    out.Set(kArtWheelPLfoToPitch, depth.wheel);
    out.Set(kArtTouchPLfoToPitch, depth.touch);
    out.Set(kArtVelPLfoToPitch, depth.velocity);
}

void WriteVibrato(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out)
{
    Lfo lfo;
    LfoDepths depths;
    GetLfoEx(block, lfo, depths, LfoIndex::Pitch);
    if (depths.pitch.IsZero() && SaysNothing(lfo))
        return;
    WriteLfo(lfo, kVibratoLfo, out);
    WriteDepth(depths.pitch, kVibratoPitch, PartOf(lfo), level, out);
}

/// One of the two envelopes: where its values stand, and whose rows they are stored by.
struct EnvelopeEnds {
    std::uint16_t first;
    EnvelopeIndex index;
};
constexpr EnvelopeEnds kEg1{kDstEg1, EnvelopeIndex::Volume}, kEg2{kDstEg2, EnvelopeIndex::Pitch};

std::uint16_t At(const EnvelopeEnds& ends, std::uint16_t place) noexcept
{
    return static_cast<std::uint16_t>(ends.first + place);
}
float StoredFactor(const EnvelopeEnds& ends, ParamId offset, double factor) noexcept
{
    return Stored(static_cast<ParamId>(EnvelopeBase(ends.index) + offset), factor);
}

double LimitFactor(double factor) noexcept
{
    return std::clamp(factor, 1 / kMostFactor, kMostFactor);
}
/// Per octave, and over all keys.
double OctaveFactor(double factor) noexcept
{
    return std::pow(factor, kOctavePart);
}
double KeysFactor(double octave) noexcept
{
    return LimitFactor(std::pow(octave, 1 / kOctavePart));
}
/// From the time at key 0 to that at middle C, by the factor over all keys.
double MiddleCFactor(double factor) noexcept
{
    return std::pow(OctaveFactor(factor), kOctavesToMiddleC);
}

float SustainOf(const ConnectionTable& table, const EnvelopeEnds& ends) noexcept
{
    double sustain = 1;
    if (const Connection* found = table.Find(At(ends, kEgSustain)))
        sustain = LinearOf(found, kScalePerWhole, 1);
    else if (const Connection* early = table.Find(At(ends, kEgEarlySustain)))
        sustain = (static_cast<std::uint32_t>(early->scale) & 0xFFFF) * 0.001;
    return static_cast<float>(std::clamp(sustain, 0.0, 1.0));
}

/// The factor of a connection from velocity or key to a time; 1 if there is none.
double FactorOf(const ConnectionTable& table, Source source, std::uint16_t destination) noexcept
{
    const Connection* found = table.Find(source, kSrcNone, destination);
    return found != nullptr && found->scale != kScaleOfZero ? SecondsOf(found->scale) : 1;
}

DahdsrEnvelope ReadEnvelope(const ConnectionTable& table, const EnvelopeEnds& ends) noexcept
{
    constexpr double kLongest = 1e4; // beyond the parameters' limits
    const auto seconds = [&](std::uint16_t place, double factor) {
        return static_cast<float>(std::min(TimeOf(table.Find(At(ends, place)), 0) * factor, kLongest));
    };
    const double velocityToAttack = FactorOf(table, kSrcVelocity, At(ends, kEgAttack));
    const double velocityToDecay = FactorOf(table, kSrcVelocity, At(ends, kEgDecay));
    const double keyToDecay = FactorOf(table, kSrcKey, At(ends, kEgDecay));
    const double keyToHold = FactorOf(table, kSrcKey, At(ends, kEgHold));
    DahdsrEnvelope out;
    out.delay = seconds(kEgDelay, 1);
    out.attack = seconds(kEgAttack, std::sqrt(velocityToAttack));
    out.hold = seconds(kEgHold, MiddleCFactor(keyToHold));
    out.decay = seconds(kEgDecay, MiddleCFactor(keyToDecay));
    out.sustain = SustainOf(table, ends);
    out.release = seconds(kEgRelease, 1);
    out.velocityToAttack = StoredFactor(ends, kEnvVelToAttack2, velocityToAttack);
    out.velocityToDecay = StoredFactor(ends, kEnvVelToDecay2, velocityToDecay);
    out.keyToHold = StoredFactor(ends, kEnvKeyToDecay1, OctaveFactor(keyToHold));
    out.keyToDecay = StoredFactor(ends, kEnvKeyToDecay2, OctaveFactor(keyToDecay));
    return out;
}

DahdsrEnvelope StagesOf(const Envelope& envelope, bool isVolume, std::uint32_t level) noexcept
{
    constexpr float kNeverReleased = 100; // the longest time of the parameters
    const DahdsrEnvelope six = ToDahdsr(envelope, isVolume);
    DahdsrEnvelope stages =
        level >= kDlsLevel2 || (six.delay == 0 && six.hold == 0) ? six : ToAdsr(envelope, isVolume);
    if (stages.releaseMode == ReleaseMode::NoRelease)
        stages.release = kNeverReleased;
    return stages;
}

class EnvelopeWriter {
public:
    EnvelopeWriter(const EnvelopeEnds& ends, std::vector<Connection>& out) noexcept : ends_(ends), out_(out)
    {
    }

    void Write(const DahdsrEnvelope& e, std::uint32_t level)
    {
        const double velocityToAttack = LimitFactor(e.velocityToAttack);
        const double keyToDecay = KeysFactor(e.keyToDecay), keyToHold = KeysFactor(e.keyToHold);
        const bool isLevel2 = level >= kDlsLevel2;
        Time(kEgAttack, e.attack / std::sqrt(velocityToAttack));
        Time(kEgDecay, e.decay / MiddleCFactor(keyToDecay));
        if (e.sustain != 1)
            Add(kSrcNone, kEgSustain, LinearScaleOf(e.sustain, kScalePerWhole));
        Time(kEgRelease, e.release);
        if (isLevel2) {
            Time(kEgDelay, e.delay);
            Time(kEgHold, e.hold / MiddleCFactor(keyToHold));
        }
        Factor(kSrcVelocity, kEgAttack, velocityToAttack);
        Factor(kSrcKey, kEgDecay, keyToDecay);
        if (!isLevel2)
            return;
        Factor(kSrcVelocity, kEgDecay, LimitFactor(e.velocityToDecay));
        Factor(kSrcKey, kEgHold, keyToHold);
    }

private:
    void Add(Source source, std::uint16_t place, std::int32_t scale)
    {
        out_.push_back({source, kSrcNone, At(ends_, place), 0, scale});
    }
    void Time(std::uint16_t place, double seconds)
    {
        if (seconds > 0)
            Add(kSrcNone, place, TimeScaleOf(seconds));
    }
    void Factor(Source source, std::uint16_t place, double factor)
    {
        if (factor != 1)
            Add(source, place, TimeScaleOf(factor));
    }

    const EnvelopeEnds& ends_;
    std::vector<Connection>& out_;
};

void WriteModEnvelope(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out)
{
    unsigned candidates = IndexBit(EnvelopeIndex::Pitch);
    if (level >= kDlsLevel2)
        candidates |= IndexBit(EnvelopeIndex::Filter) | IndexBit(EnvelopeIndex::X);
    ModEnvelope mod = ComposeModEnv(block, candidates);
    if (mod.used == 0)
        return;
    NormalizeBipolar(mod.envelope, mod.depths);
    const double factor = NormalizeToOne(mod.envelope);
    if (factor == 0)
        return; // flat at 0: nothing moves
    EnvelopeWriter(kEg2, out).Write(StagesOf(mod.envelope, false, level), level);
    const auto depth = [&](std::uint16_t destination, float value, double unit) {
        if (value != 0)
            out.push_back({kSrcEg2, kSrcNone, destination, 0, LinearScaleOf(value * factor, unit)});
    };
    depth(kDstPitch, mod.depths.pitch, kScalePerSemitone);
    if (level < kDlsLevel2)
        return;
    depth(kDstCutoff, mod.depths.cutoff, kScalePerSemitone);
    depth(kDstPan, mod.depths.pan, kPanUnit);
}

} // namespace

void ReadLfos(const ConnectionTable& table, bool hasFilter, ArticulationBlock& out)
{
    ReadVibrato(table, out);
    LfoDepths depths;
    depths.pitch = ReadDepth(table, kLfoPitch);
    depths.volume = ReadDepth(table, kLfoGain);
    if (hasFilter)
        depths.cutoff = ReadDepth(table, kLfoCutoff);
    depths.pan = static_cast<float>(LinearOf(table.Find(kSrcLfo, kSrcNone, kDstPan), kPanUnit, 0));
    MergeLfo(out, ReadLfo(table, kModLfo), depths);
}

void WriteLfos(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out)
{
    const bool isLevel2 = level >= kDlsLevel2;
    if (isLevel2)
        WriteVibrato(block, level, out);
    const unsigned candidates =
        isLevel2 ? IndexBit(LfoIndex::Volume) | IndexBit(LfoIndex::Filter) | IndexBit(LfoIndex::X)
                 : IndexBit(LfoIndex::Pitch) | IndexBit(LfoIndex::Volume);
    const ModLfo mod = ComposeModLfo(block, candidates);
    if (mod.used == 0)
        return;
    const double part = PartOf(mod.lfo);
    WriteLfo(mod.lfo, kModLfo, out);
    WriteDepth(mod.depths.volume, kLfoGain, part, level, out);
    WriteDepth(mod.depths.pitch, kLfoPitch, part, level, out);
    if (!isLevel2)
        return;
    WriteDepth(mod.depths.cutoff, kLfoCutoff, part, level, out);
    if (mod.depths.pan != 0)
        out.push_back(
            {kSrcLfo, kSrcNone, kDstPan, kTransformBipolar, LinearScaleOf(mod.depths.pan * part, kPanUnit)});
}

void ReadEnvelopes(const ConnectionTable& table, bool hasFilter, ArticulationBlock& out)
{
    Envelope volume = FromDahdsr(ReadEnvelope(table, kEg1));
    volume.shutdownRate = static_cast<float>(TimeOf(table.Find(At(kEg1, kEgShutdown)), kUsualShutdown));
    SetEnvelope(out, volume, EnvelopeIndex::Volume);
    const auto depth = [&](std::uint16_t destination, double unit) {
        return static_cast<float>(LinearOf(table.Find(kSrcEg2, kSrcNone, destination), unit, 0));
    };
    EnvelopeDepths depths;
    depths.pitch = depth(kDstPitch, kScalePerSemitone);
    depths.cutoff = hasFilter ? depth(kDstCutoff, kScalePerSemitone) : 0;
    depths.pan = depth(kDstPan, kPanUnit);
    MergeEnvelope(out, FromDahdsr(ReadEnvelope(table, kEg2)), depths);
}

void WriteEnvelopes(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out)
{
    Envelope volume;
    GetEnvelope(block, volume, EnvelopeIndex::Volume);
    EnvelopeWriter(kEg1, out).Write(StagesOf(volume, true, level), level);
    if (level >= kDlsLevel2 && volume.shutdownRate != kUsualShutdown)
        out.push_back({kSrcNone, kSrcNone, At(kEg1, kEgShutdown), 0, TimeScaleOf(volume.shutdownRate)});
    WriteModEnvelope(block, level, out);
}

} // namespace vimbo::dls
