// The modulators that the articulation has places for. Sources: SoundFont specification 2.04, section 8.2.
#include "formats/soundfont/soundfont_units.h"

#include <algorithm>

namespace vimbo::sf2 {
namespace {

constexpr std::uint16_t kNegative = 0x100; ///< direction bit: 1 at the controller's minimum
constexpr std::uint16_t kBipolar = 0x200;

// Linear sources.
constexpr std::uint16_t kVel = 2;
constexpr std::uint16_t kKey = 3;
constexpr std::uint16_t kTouch = 13; ///< channel pressure
constexpr std::uint16_t kVelBi = kVel | kBipolar;
constexpr std::uint16_t kKeyBi = kKey | kBipolar;
constexpr std::uint16_t kVelDown = kVel | kNegative;
constexpr std::uint16_t kBend = 14 | kBipolar;
constexpr std::uint16_t kWheel = 1 | 0x80; ///< controllers have bit 0x80
constexpr std::uint16_t kCc10 = 10 | 0x80 | kBipolar;
constexpr std::uint16_t kCc91 = 91 | 0x80;
constexpr std::uint16_t kCc93 = 93 | 0x80;

std::optional<std::size_t> Lookup(unsigned source, unsigned destination) noexcept
{
    const auto found = std::ranges::find_if(kSlotTable, [&](const SlotKey& key) {
        return key.source == source && key.destination == destination;
    });
    if (found == kSlotTable.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - kSlotTable.begin());
}

Zone MakeDefaultZone() noexcept
{
    Zone zone;
    auto& g = zone.generators;
    for (const Gen time : {kGenModLfoDelay, kGenVibLfoDelay, kGenModEnvDelay, kGenModEnvAttack,
                           kGenModEnvHold, kGenModEnvDecay, kGenModEnvRelease, kGenVolEnvDelay,
                           kGenVolEnvAttack, kGenVolEnvHold, kGenVolEnvDecay, kGenVolEnvRelease})
        g[time] = -12000;
    g[kGenCutoff] = 13500;
    g[kGenScaleTuning] = 100;
    g[kGenKey] = g[kGenVelocity] = g[kGenRootKey] = -1;
    zone.slots[kSlotVelToVolume] = 2400;
    zone.slots[kSlotCc10ToPan] = 500;
    zone.slots[kSlotCc91ToReverb] = zone.slots[kSlotCc93ToChorus] = 1000;
    return zone;
}

} // namespace

// clang-format off
const std::array<SlotKey, kSlots> kSlotTable{{
    {kVel,     kGenVolEnvDelay}, {kVel, kGenVolEnvAttack}, {kVel, kGenVolEnvHold}, {kVel, kGenVolEnvDecay}, {kVel, kGenVolEnvRelease},
    {kKey,     kGenVolEnvDelay}, {kKey, kGenVolEnvAttack}, {kKey, kGenVolEnvRelease},
    {kVelBi,   kGenVolEnvDelay}, {kVelBi, kGenVolEnvAttack}, {kVelBi, kGenVolEnvHold}, {kVelBi, kGenVolEnvDecay}, {kVelBi, kGenVolEnvRelease},
    {kKeyBi,   kGenVolEnvDelay}, {kKeyBi, kGenVolEnvAttack}, {kKeyBi, kGenVolEnvRelease},
    {kVel,     kGenModEnvDelay}, {kVel, kGenModEnvAttack}, {kVel, kGenModEnvHold}, {kVel, kGenModEnvDecay}, {kVel, kGenModEnvRelease},
    {kKey,     kGenModEnvDelay}, {kKey, kGenModEnvAttack}, {kKey, kGenModEnvRelease},
    {kVelBi,   kGenModEnvDelay}, {kVelBi, kGenModEnvAttack}, {kVelBi, kGenModEnvHold}, {kVelBi, kGenModEnvDecay}, {kVelBi, kGenModEnvRelease},
    {kKeyBi,   kGenModEnvDelay}, {kKeyBi, kGenModEnvAttack}, {kKeyBi, kGenModEnvRelease},
    {kVelDown, kGenAttenuation}, // 32
    {kKey,     kGenAttenuation},
    {kKeyBi,   kGenAttenuation},
    {kWheel,   kGenAttenuation},
    {kTouch,   kGenAttenuation},
    {kWheel,   kGenModLfoToVolume}, // 37
    {kTouch,   kGenModLfoToVolume},
    {kVelBi,   kGenModLfoToVolume},
    {kBend,    kGenFineTune}, // 40
    {kWheel,   kGenModLfoToPitch},
    {kVelBi,   kGenModLfoToPitch},
    {kTouch,   kGenModLfoToPitch},
    {kWheel,   kGenVibLfoToPitch}, // 44
    {kVelBi,   kGenVibLfoToPitch},
    {kTouch,   kGenVibLfoToPitch},
    {kVel,     kGenModEnvToPitch}, // 47
    {kVelBi,   kGenModEnvToPitch},
    {kVelDown, kGenCutoff}, // 49
    {kKey,     kGenCutoff},
    {kKeyBi,   kGenCutoff},
    {kWheel,   kGenCutoff},
    {kTouch,   kGenCutoff},
    {kWheel,   kGenModLfoToCutoff}, // 54
    {kTouch,   kGenModLfoToCutoff},
    {kVelBi,   kGenModLfoToCutoff},
    {kVel,     kGenModEnvToCutoff}, // 57
    {kVelBi,   kGenModEnvToCutoff},
    {kKeyBi,   kGenPan}, // 59
    {kCc10,    kGenPan},
    {kCc91,    kGenReverbSend}, // 61
    {kCc93,    kGenChorusSend},
    {kVelBi,   kGenResonance}, // 63
    {kWheel,   kGenResonance},
    {kTouch,   kGenResonance},
}};
// clang-format on

std::optional<SlotAmount> FindSlot(const Modulator& modulator) noexcept
{
    if (modulator.amountSource.Get() != 0 || modulator.transform.Get() != 0)
        return std::nullopt;
    const unsigned source = modulator.source.Get(), destination = modulator.destination.Get();
    const std::int32_t amount = modulator.amount.Get();
    if (const auto slot = Lookup(source, destination))
        return SlotAmount{*slot, amount};
    // The other direction says the same with the amount's sign turned. Bipolar sources: exactly; unipolar
    // ones: but for a constant.
    if (const auto slot = Lookup(source ^ kNegative, destination))
        return SlotAmount{*slot, -amount};
    return std::nullopt;
}

const Zone& DefaultZone() noexcept
{
    static const Zone kDefault = MakeDefaultZone();
    return kDefault;
}

} // namespace vimbo::sf2
