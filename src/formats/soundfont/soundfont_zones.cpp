#include "formats/soundfont/soundfont_zones.h"

#include "formats/soundfont/soundfont_units1.h"

#include <algorithm>
#include <cmath>

namespace vimbo::sf2 {
namespace {

/// Frames of a coarse offset's step.
constexpr std::int32_t kCoarseFrames = 32768;
/// Stands for nothing; ends the lists of some banks.
constexpr unsigned kGenEnd = 60;
constexpr int kMiddleC = 60;
constexpr int kCentsPerKey = 100;

enum class Level { Instrument, Preset };

/// Places in the sample and replacements of the note's own values, which have no meaning in presets
/// (SoundFont 2.04, section 8.5).
bool IsOfSample(unsigned type) noexcept
{
    constexpr std::array<unsigned, 14> kTypes = {
        kGenStartOffset, kGenEndOffset,       kGenLoopStartOffset, kGenLoopEndOffset, kGenStartCoarse,
        kGenEndCoarse,   kGenLoopStartCoarse, kGenLoopEndCoarse,   kGenKey,           kGenVelocity,
        kGenSampleModes, kGenExclusiveClass,  kGenRootKey,         kGenSamplePitch};
    return std::ranges::find(kTypes, type) != kTypes.end();
}

/// Numbers that the standard gives no meaning.
bool IsReserved(unsigned type, bool isVersion1) noexcept
{
    return type == 14 || (type >= 18 && type <= 20) || type == 42 || type == 49 || type >= 59 ||
           (type == kGenSamplePitch && !isVersion1);
}

MidiRange RangeOf(std::uint16_t word) noexcept
{
    constexpr std::uint8_t kHighest = 127;
    MidiRange range = MidiRange::FromWord(word);
    range.low = std::min(range.low, kHighest);
    range.high = std::min(range.high, kHighest);
    if (range.low > range.high)
        std::swap(range.low, range.high);
    return range;
}

/// Takes what concerns the sample out of the values, so that zones which sound alike are equal.
SampleSettings TakeSampleSettings(BankZone& zone) noexcept
{
    const auto take = [&zone](unsigned type, int otherwise) {
        if (!zone.given[type])
            return otherwise;
        const int value = zone.values.generators[type];
        zone.values.generators[type] = DefaultZone().generators[type];
        return value;
    };
    const auto takeKey = [&take](unsigned type) {
        const int value = take(type, -1);
        return value >= 0 && value <= 127 ? value : -1;
    };
    const auto takeFrames = [&take](unsigned fine, unsigned coarse) {
        return take(fine, 0) + take(coarse, 0) * kCoarseFrames;
    };
    SampleSettings sample;
    sample.startOffset = takeFrames(kGenStartOffset, kGenStartCoarse);
    sample.endOffset = takeFrames(kGenEndOffset, kGenEndCoarse);
    sample.loopStartOffset = takeFrames(kGenLoopStartOffset, kGenLoopStartCoarse);
    sample.loopEndOffset = takeFrames(kGenLoopEndOffset, kGenLoopEndCoarse);
    sample.modes = static_cast<unsigned>(take(kGenSampleModes, 0)) & 3;
    sample.exclusiveClass = static_cast<unsigned>(std::max(take(kGenExclusiveClass, 0), 0));
    sample.rootKey = takeKey(kGenRootKey);
    sample.fixedKey = takeKey(kGenKey);
    sample.fixedVelocity = takeKey(kGenVelocity);
    sample.samplePitch = std::max(take(kGenSamplePitch, -1), -1);
    return sample;
}

class ZoneReader {
public:
    ZoneReader(const Tables& bank, Level level, Unplaced& unplaced) noexcept
        : tables_(level == Level::Preset ? bank.presetZones : bank.instrumentZones), level_(level),
          isVersion1_(bank.major == 1), unplaced_(unplaced)
    {
    }

    /// A first zone without a link gives defaults to the others; later ones without say nothing.
    std::vector<BankZone> Read(std::size_t owner)
    {
        std::vector<BankZone> zones;
        BankZone global;
        if (level_ == Level::Instrument)
            global.values = DefaultZone();
        const IndexRange range = tables_.Zones(owner);
        zones.reserve(range.end - range.first);
        for (std::size_t i = range.first; i < range.end; ++i) {
            BankZone zone = global;
            Apply(i, zone);
            if (zone.link == BankZone::kNoLink) {
                if (i == range.first)
                    global = zone;
                continue;
            }
            if (level_ == Level::Instrument)
                zone.sample = TakeSampleSettings(zone);
            zones.push_back(zone);
        }
        return zones;
    }

private:
    /// The order of generators and modulators is not looked at: where it is wrong, what they say is not.
    void Apply(std::size_t index, BankZone& zone)
    {
        for (const Generator& generator : tables_.GeneratorsOf(index))
            Apply(generator, zone);
        if (isVersion1_) // has none
            return;
        for (const Modulator& modulator : tables_.ModulatorsOf(index))
            Apply(modulator, zone);
    }

    void Apply(const Modulator& modulator, BankZone& zone)
    {
        if (const std::optional<SlotAmount> found = FindSlot(modulator)) {
            zone.values.slots[found->slot] = found->amount;
            zone.hasLinearVelocity = zone.hasLinearVelocity || found->slot == kSlotVelToVolume;
        } else if (!ApplyCurve(modulator, zone) && modulator.amount.Get() != 0) {
            ++unplaced_.modulators[{modulator.source.Get(), modulator.destination.Get()}];
        }
    }

    /// The standard's default curve from velocity to level, which is the articulation's own, with another
    /// amount. A linear one beside it stands for both, in whichever order they come. @return false if there
    /// is no place for it
    bool ApplyCurve(const Modulator& modulator, BankZone& zone) const noexcept
    {
        constexpr double kSlotPerCentibel = 2.5; // the slot counts by 0.04 dB
        const std::int32_t centibels = modulator.amount.Get();
        const bool isCurve = modulator.source.Get() == kConcaveVelocity &&
                             modulator.destination.Get() == kGenAttenuation &&
                             modulator.amountSource.Get() == 0 && modulator.transform.Get() == 0;
        if (!isCurve || (zone.hasLinearVelocity && centibels != 0) ||
            (level_ == Level::Instrument && centibels < 0)) // louder when struck softly
            return false;
        if (!zone.hasLinearVelocity)
            zone.values.slots[kSlotVelToVolume] =
                static_cast<std::int32_t>(std::lround(centibels * kSlotPerCentibel));
        return true;
    }

    void Apply(const Generator& generator, BankZone& zone)
    {
        const unsigned type = generator.type.Get();
        const std::uint16_t word = generator.amount.Get();
        if (type == (level_ == Level::Preset ? kGenInstrument : kGenSample))
            zone.link = word;
        else if (type == kGenKeyRange)
            zone.keys = RangeOf(word);
        else if (type == kGenVelocityRange)
            zone.velocities = RangeOf(word);
        else if (IsPlaced(type))
            SetValue(type, static_cast<std::int16_t>(word), zone);
        else if (type != kGenEnd)
            ++unplaced_.generators[type];
    }

    bool IsPlaced(unsigned type) const noexcept
    {
        const bool isLink = type == kGenInstrument || type == kGenSample;
        return !isLink && !IsReserved(type, isVersion1_) &&
               (level_ == Level::Instrument || !IsOfSample(type));
    }

    void SetValue(unsigned type, std::int32_t amount, BankZone& zone) const noexcept
    {
        zone.values.generators[type] = isVersion1_ ? FromVersion1(type, amount) : amount;
        zone.given.set(type);
    }

    const ZoneTables& tables_;
    Level level_;
    bool isVersion1_;
    Unplaced& unplaced_;
};

/// Root key and tuning of a sample whose pitch is given in cents: the nearest key, and how far to raise it.
struct Pitch {
    int key, raiseCents;
};
Pitch PitchOf(int cents) noexcept
{
    const int key = (cents + kCentsPerKey / 2) / kCentsPerKey;
    return {key, key * kCentsPerKey - cents};
}

} // namespace

std::vector<BankZone> InstrumentZones(const Tables& bank, std::size_t instrument, Unplaced& unplaced)
{
    return ZoneReader(bank, Level::Instrument, unplaced).Read(instrument);
}

std::vector<BankZone> PresetZones(const Tables& bank, std::size_t preset, Unplaced& unplaced)
{
    return ZoneReader(bank, Level::Preset, unplaced).Read(preset);
}

/// Presets fill in what the instrument leaves open. Tuning goes along the scale.
Zone SumOfVersion1(const BankZone& instrument, const BankZone& preset) noexcept
{
    Zone sum = instrument.values;
    auto& generators = sum.generators;
    for (std::size_t i = 0; i < kGenerators; ++i)
        if (!instrument.given[i] && preset.given[i])
            generators[i] = preset.values.generators[i];
    const auto fill = [&](unsigned type, std::int32_t value) {
        if (!instrument.given[type] && !preset.given[type])
            generators[type] = value;
    };
    fill(kGenModLfoFrequency, kModLfoFrequency1);
    fill(kGenVibLfoFrequency, kVibLfoFrequency1);
    int cents = generators[kGenCoarseTune] * kCentsPerKey + generators[kGenFineTune];
    if (instrument.sample.samplePitch >= 0)
        cents += PitchOf(instrument.sample.samplePitch).raiseCents;
    generators[kGenCoarseTune] = 0;
    generators[kGenFineTune] = cents * generators[kGenScaleTuning] / kCentsPerKey;
    return sum;
}

int RootKeyOf(const SampleSettings& sample, int originalPitch, unsigned major) noexcept
{
    if (major != 1)
        return sample.rootKey >= 0 ? sample.rootKey : originalPitch;
    int key = sample.samplePitch >= 0 ? PitchOf(sample.samplePitch).key : originalPitch;
    if (sample.rootKey >= 0)
        key += sample.rootKey - kMiddleC;
    return std::clamp(key, 0, 127);
}

} // namespace vimbo::sf2
