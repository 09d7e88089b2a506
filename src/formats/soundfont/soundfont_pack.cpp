// Zones in as few records as say the same.
#include "base/text.h"
#include "formats/soundfont/soundfont_build.h"
#include "formats/soundfont/soundfont_unit_parts.h"
#include "formats/soundfont/soundfont_units1.h"
#include "formats/soundfont/soundfont_word_hash.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace vimbo::sf2 {
namespace {

constexpr std::size_t kMaxRecords = 65535; ///< of a table, the terminal one left out
/// No more are counted to tell how far a bank is too large.
constexpr std::size_t kMaxCounted = std::size_t{1} << 24;
constexpr std::size_t kFirstWritten = kGenerators + 8; ///< of the slots; those before are only read

/// Generators that presets can change by an amount.
bool IsRelative(std::size_t generator) noexcept
{
    switch (generator) {
    case kGenStartOffset:
    case kGenEndOffset:
    case kGenLoopStartOffset:
    case kGenLoopEndOffset:
    case kGenStartCoarse:
    case kGenEndCoarse:
    case kGenLoopStartCoarse:
    case kGenLoopEndCoarse:
    case kGenKey:
    case kGenVelocity:
    case kGenSampleModes:
    case kGenExclusiveClass:
    case kGenSamplePitch:
    case kGenRootKey:
        return false;
    default:
        return true;
    }
}

/// An amount by its number in ZoneMarks.
std::int32_t AmountOf(const Zone& zone, std::size_t amount) noexcept
{
    return amount < kGenerators ? zone.generators[amount] : zone.slots[amount - kGenerators];
}

/// Generators that may stand in an instrument's global zone.
bool MayBeGlobal(std::size_t generator) noexcept
{
    return IsRelative(generator) || generator == kGenSampleModes || generator == kGenExclusiveClass ||
           generator == kGenSamplePitch;
}

struct ZoneRecord {
    MidiRange keys, velocities;
    const Zone* values;
    ZoneMarks unusual; ///< amounts that are not the level's defaults
    std::uint16_t link;
};

/// The value that saves most records if it stands for all that have it; `usual` if none saves any. Where a
/// zone must leave the generator out, no value may stand for all.
std::int32_t Commonest(std::vector<std::int32_t>& values, std::int32_t usual, bool mustBeAll)
{
    if (std::ranges::count(values, values.front()) == std::ssize(values))
        return values.size() > 1 && values.front() != kLeftOut ? values.front() : usual;
    std::ranges::sort(values);
    if (values.front() == kLeftOut)
        return usual;
    const auto usuals = static_cast<std::size_t>(std::ranges::count(values, usual));
    std::int32_t best = usual;
    std::size_t most = usuals + 1; // the record of the global zone
    for (std::size_t first = 0, end = 0; first < values.size(); first = end) {
        while (end < values.size() && values[end] == values[first])
            ++end;
        if (end - first > most && values[first] != usual && (!mustBeAll || end - first == values.size())) {
            most = end - first;
            best = values[first];
        }
    }
    return best;
}

/// What a zone or a global zone says.
struct Said {
    Zone values;
    ZoneMarks unusual; ///< no amount besides these differs from the level's defaults
};

/// What a global zone says for the others. Defaults for less than two.
Said GlobalOf(std::span<const ZoneRecord> zones, const Zone& defaults)
{
    Said global{defaults, {}};
    if (zones.size() < 2)
        return global;
    ZoneMarks unusual;
    for (const ZoneRecord& zone : zones)
        unusual = unusual | zone.unusual;
    std::vector<std::int32_t> values(zones.size());
    unusual.ForEach([&](std::size_t amount) {
        const bool isSlot = amount >= kGenerators;
        if (isSlot ? amount < kFirstWritten : !MayBeGlobal(amount))
            return;
        std::ranges::transform(zones, values.begin(),
                               [=](const ZoneRecord& zone) { return AmountOf(*zone.values, amount); });
        const std::int32_t usual = AmountOf(defaults, amount);
        const std::int32_t common = Commonest(values, usual, amount == kGenerators + kSlotVelToVolume);
        if (common == usual)
            return;
        (isSlot ? global.values.slots[amount - kGenerators] : global.values.generators[amount]) = common;
        global.unusual.Add(amount);
    });
    return global;
}

/// Calls visit(amount) for what has to be written of the values where `base` holds without it.
/// @param marks  no amount besides these differs
template <class Visit>
void ForEachWritten(const Zone& values, const Zone& base, const ZoneMarks& marks, Visit visit)
{
    marks.ForEach([&](std::size_t amount) {
        const bool isWritten = amount < kGenerators || amount >= kFirstWritten;
        if (isWritten && AmountOf(values, amount) != AmountOf(base, amount))
            visit(amount);
    });
}

std::size_t RangesOf(const ZoneRecord& zone) noexcept
{
    return std::size_t{!zone.keys.IsFull()} + std::size_t{!zone.velocities.IsFull()};
}

/// Zones and generators that ZoneWriter makes of the records.
std::size_t CountWritten(std::span<const ZoneRecord> zones, const Zone& defaults)
{
    std::size_t count = 0;
    const auto add = [&](const Zone& values, const Zone& base, const ZoneMarks& marks) {
        ++count; // the zone
        ForEachWritten(values, base, marks,
                       [&](std::size_t amount) { count += amount < kGenerators ? 1 : 0; });
    };
    const Said global = GlobalOf(zones, defaults);
    if (!global.unusual.IsEmpty())
        add(global.values, defaults, global.unusual);
    for (const ZoneRecord& zone : zones) {
        add(*zone.values, global.values, zone.unusual | global.unusual);
        count += RangesOf(zone) + 1; // the link
    }
    return count;
}

/// Appends zones to one level's tables.
class ZoneWriter {
public:
    /// @param defaults  what zones are compared with
    ZoneWriter(OutZoneTables& out, Gen link, const Zone& defaults) noexcept
        : out_(out), link_(link), defaults_(defaults)
    {
    }

    void Write(std::span<const ZoneRecord> zones)
    {
        const Said global = GlobalOf(zones, defaults_);
        if (!global.unusual.IsEmpty()) {
            AddBag();
            AddValues(global.values, defaults_, global.unusual);
        }
        for (const ZoneRecord& zone : zones) {
            AddBag();
            AddRange(kGenKeyRange, zone.keys);
            AddRange(kGenVelocityRange, zone.velocities);
            AddValues(*zone.values, global.values, zone.unusual | global.unusual);
            out_.generators.push_back({static_cast<std::uint16_t>(link_), zone.link});
        }
        AddTerminalCheck();
    }

private:
    void AddBag()
    {
        out_.bags.push_back({static_cast<std::uint16_t>(out_.generators.size()),
                             static_cast<std::uint16_t>(out_.modulators.size())});
    }

    void AddTerminalCheck() noexcept
    {
        out_.isFull = out_.isFull || out_.bags.size() > kMaxRecords || out_.generators.size() > kMaxRecords ||
                      out_.modulators.size() > kMaxRecords;
    }

    void AddRange(Gen type, MidiRange range)
    {
        if (!range.IsFull())
            out_.generators.push_back({static_cast<std::uint16_t>(type), range.Word()});
    }

    /// What differs from what holds without it.
    void AddValues(const Zone& values, const Zone& base, const ZoneMarks& marks)
    {
        ForEachWritten(values, base, marks, [&](std::size_t amount) {
            const std::int32_t value = AmountOf(values, amount);
            if (amount < kGenerators) {
                out_.generators.push_back(
                    {static_cast<std::uint16_t>(amount), static_cast<std::uint16_t>(value)});
                return;
            }
            const SlotKey& key = kSlotTable[amount - kGenerators];
            AddModulator(key.source, key.destination, value);
        });
        // Players would go on to use the standard's curve beside it.
        if (values.slots[kSlotVelToVolume] != base.slots[kSlotVelToVolume])
            AddModulator(kConcaveVelocity, kGenAttenuation, 0);
    }

    void AddModulator(std::uint16_t source, std::uint16_t destination, std::int32_t amount)
    {
        out_.modulators.push_back(
            {source, destination, static_cast<std::int16_t>(amount), std::uint16_t{0}, std::uint16_t{0}});
    }

    OutZoneTables& out_;
    Gen link_;
    const Zone& defaults_;
};

/// A layer's zones as an instrument's.
class InstrumentRecords {
public:
    InstrumentRecords(const OutLayer& layer, bool isVersion1)
        : defaults_(isVersion1 ? DefaultsOfVersion1() : DefaultZone())
    {
        if (isVersion1)
            std::ranges::transform(layer.zones, std::back_inserter(amounts_),
                                   [](const OutZone& zone) { return AmountsOfVersion1(*zone.values); });
        records_.reserve(layer.zones.size());
        for (std::size_t i = 0; i < layer.zones.size(); ++i) {
            const OutZone& zone = layer.zones[i];
            const Zone* const values = isVersion1 ? &amounts_[i] : zone.values;
            const ZoneMarks unusual = isVersion1 ? ZoneMarks(*values, defaults_) : zone.unusual;
            records_.push_back(
                {zone.keys, zone.velocities, values, unusual, static_cast<std::uint16_t>(zone.sample)});
        }
    }
    void WriteTo(OutZoneTables& out) const { ZoneWriter(out, kGenSample, defaults_).Write(records_); }
    std::size_t Count() const { return CountWritten(records_, defaults_); }

private:
    const Zone& defaults_;
    std::vector<Zone> amounts_; ///< of version 1
    std::vector<ZoneRecord> records_;
};

/// The difference that a preset zone has to add.
Zone Difference(const Zone& wanted, const Zone& held) noexcept
{
    Zone difference;
    for (std::size_t i = 0; i < kGenerators; ++i)
        difference.generators[i] = wanted.generators[i] - held.generators[i];
    return difference;
}

/// True for amounts that players take for a generator of a preset.
bool CanAdd(std::size_t generator, std::int32_t amount) noexcept
{
    const Limits limits = LimitsOf(generator);
    return std::abs(amount) <= std::max(std::abs(limits.minimum), std::abs(limits.maximum));
}

bool IsSameShape(const OutZone& one, const OutZone& other, const Zone& difference) noexcept
{
    return one.keys == other.keys && one.velocities == other.velocities && one.sample == other.sample &&
           one.values->slots == other.values->slots &&
           Difference(*one.values, *other.values).generators == difference.generators;
}

/// The difference if `layer` is `held` but for an amount that is the same in all zones.
std::optional<Zone> DifferenceOf(const OutLayer& layer, const OutLayer& held) noexcept
{
    if (layer.zones.size() != held.zones.size())
        return std::nullopt;
    const Zone difference = Difference(*layer.zones.front().values, *held.zones.front().values);
    for (std::size_t i = 0; i < kGenerators; ++i)
        if (difference.generators[i] != 0 && (!IsRelative(i) || !CanAdd(i, difference.generators[i])))
            return std::nullopt;
    for (std::size_t i = 0; i < layer.zones.size(); ++i)
        if (!IsSameShape(layer.zones[i], held.zones[i], difference))
            return std::nullopt;
    return difference;
}

/// Equal for layers that have a difference.
/// @param byName  only if they also have one name
std::uint64_t HashOf(const OutLayer& layer, bool byName) noexcept
{
    if (!byName || !layer.isNamed)
        return layer.shape;
    WordHash hash;
    hash.Add(layer.shape);
    for (const char letter : layer.name)
        hash.Add(static_cast<unsigned char>(letter));
    return hash.Get();
}

} // namespace

ZoneMarks::ZoneMarks(const Zone& one, const Zone& other) noexcept
{
    // Without branches, so that compilers make vector code of it.
    std::array<std::uint8_t, 2 * 64> differs{};
    for (std::size_t i = 0; i < kGenerators; ++i)
        differs[i] = one.generators[i] != other.generators[i] ? 1 : 0;
    for (std::size_t i = 0; i < kSlots; ++i)
        differs[kGenerators + i] = one.slots[i] != other.slots[i] ? 1 : 0;
    for (std::size_t octet = 0; octet < differs.size() / 8; ++octet) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &differs[octet * 8], 8);
        // Brings the lowest bits of the eight bytes side by side, the first one lowest.
        bits *= std::endian::native == std::endian::little ? 0x0102040810204080 : 0x8040201008040201;
        words_[octet / 8] |= (bits >> 56) << octet % 8 * 8;
    }
}

/// Of what is left of the amounts when the first zone's relative ones are taken off.
std::uint64_t ShapeOf(const OutLayer& layer) noexcept
{
    WordHash hash;
    const OutZone& first = layer.zones.front();
    for (const OutZone& zone : layer.zones) {
        hash.Add(std::uint64_t{zone.keys.Word()} << 16 | zone.velocities.Word());
        hash.Add(zone.sample);
        (zone.unusual | first.unusual).ForEach([&](std::size_t amount) {
            const bool isRelative = amount < kGenerators && IsRelative(amount);
            const std::int32_t usual = isRelative ? 0 : AmountOf(DefaultZone(), amount);
            const std::int32_t base = isRelative ? AmountOf(*first.values, amount) : 0;
            if (const std::int32_t left = AmountOf(*zone.values, amount) - base; left != usual)
                hash.Add(std::uint64_t{amount} << 32 | static_cast<std::uint32_t>(left));
        });
    }
    return hash.Get();
}

/// Presets of version 1 only say what instruments leave open.
std::optional<Zone> TablePacker::DifferenceFrom(const OutLayer& layer, const OutLayer& held) const noexcept
{
    if (!MaySharePlace(layer, held))
        return std::nullopt;
    const std::optional<Zone> difference = DifferenceOf(layer, held);
    return isVersion1_ && difference && *difference != Zone() ? std::nullopt : difference;
}

/// Readers give the record's name to the layer.
bool TablePacker::MaySharePlace(const OutLayer& layer, const OutLayer& held) const noexcept
{
    return packing_ == Packing::Tightest ||
           (layer.isNamed == held.isNamed && (!layer.isNamed || layer.name == held.name));
}

std::u16string TablePacker::Excess() const
{
    const std::pair<std::size_t, std::u16string_view> counts[] = {
        {tables_.instrumentZones.generators.size(), u"generators of instruments"},
        {tables_.presetZones.generators.size(), u"generators of presets"},
        {tables_.instrumentZones.modulators.size(), u"modulators of instruments"},
        {tables_.presetZones.modulators.size(), u"modulators of presets"},
        {tables_.instrumentZones.bags.size(), u"zones of instruments"},
        {tables_.presetZones.bags.size(), u"zones of presets"},
        {tables_.instruments.size(), u"instruments"},
        {tables_.presets.size(), u"presets"}};
    const auto& [count, what] =
        *std::ranges::max_element(counts, {}, [](const auto& row) { return row.first; });
    return (IsBeyondCounting() ? u"more than " : u"") + Utf8ToWide(std::to_string(count)) + u" " +
           std::u16string(what);
}

bool TablePacker::IsBeyondCounting() const noexcept
{
    return tables_.presetZones.generators.size() + tables_.instrumentZones.generators.size() +
               tables_.presetZones.modulators.size() + tables_.instrumentZones.modulators.size() >
           kMaxCounted;
}

bool TablePacker::IsFull() const noexcept
{
    return tables_.presetZones.isFull || tables_.instrumentZones.isFull ||
           tables_.presets.size() > kMaxRecords || tables_.instruments.size() > kMaxRecords;
}

/// The record that holds the layer but for an amount, or null.
const OutLayer* TablePacker::FindShared(const OutLayer& layer, std::uint64_t hash, std::size_t* place) const
{
    const auto [first, last] = byShape_.equal_range(hash);
    for (auto found = first; found != last; ++found)
        if (DifferenceFrom(layer, *instruments_[found->second])) {
            if (place != nullptr)
                *place = found->second;
            return instruments_[found->second];
        }
    return nullptr;
}

std::size_t TablePacker::InstrumentFor(const OutLayer& layer)
{
    const std::uint64_t hash = HashOf(layer, packing_ != Packing::Tightest);
    if (std::size_t place = 0; FindShared(layer, hash, &place) != nullptr)
        return place;
    InstrumentHeader header;
    header.name = NameField(layer.name);
    header.bagIndex = static_cast<std::uint16_t>(tables_.instrumentZones.bags.size());
    tables_.instruments.push_back(header);
    InstrumentRecords(layer, isVersion1_).WriteTo(tables_.instrumentZones);
    byShape_.emplace(hash, instruments_.size());
    instruments_.push_back(&layer);
    return instruments_.size() - 1;
}

/// Generators that the bands would add to the instruments and to the preset.
std::size_t TablePacker::CostOf(std::span<const OutLayer> bands) const
{
    std::size_t cost = 0;
    std::unordered_multimap<std::uint64_t, const OutLayer*> fresh;
    for (const OutLayer& band : bands) {
        const std::uint64_t hash = HashOf(band, packing_ != Packing::Tightest);
        const OutLayer* held = FindShared(band, hash, nullptr);
        const auto [first, last] = fresh.equal_range(hash);
        for (auto found = first; held == nullptr && found != last; ++found)
            if (DifferenceFrom(band, *found->second))
                held = found->second;
        if (held == nullptr) {
            cost += InstrumentRecords(band, isVersion1_).Count();
            fresh.emplace(hash, &band);
            held = &band;
        }
        const Zone difference = Difference(*band.zones.front().values, *held->zones.front().values);
        constexpr std::size_t kRangesAndLink = 3;
        cost += kRangesAndLink + kGenerators -
                static_cast<std::size_t>(std::ranges::count(difference.generators, 0));
    }
    return cost;
}

/// Each layer in the form that costs least.
std::vector<const OutLayer*> TablePacker::Divided(std::span<const OutLayer> layers)
{
    const std::vector<Dividable> dividable = FindDividable(layers);
    std::vector<const OutLayer*> result;
    for (std::size_t i = 0; i < layers.size(); ++i) {
        const bool byVelocities = dividable[i].byVelocities || packing_ == Packing::Tightest;
        const bool byKeys = dividable[i].byKeys || packing_ == Packing::Tightest;
        if (!byVelocities && !byKeys) {
            result.push_back(&layers[i]);
            continue;
        }
        std::vector<OutLayer> best; // empty: the layer as it is
        std::size_t least = CostOf(layers.subspan(i, 1));
        for (const BandAxis axis : {BandAxis::Velocities, BandAxis::Keys}) {
            if (!(axis == BandAxis::Keys ? byKeys : byVelocities))
                continue;
            std::vector<OutLayer> bands = BandsOf(layers[i], axis);
            const std::size_t cost = CostOf(bands);
            if (cost >= least)
                continue;
            least = cost;
            best = std::move(bands);
        }
        if (best.empty())
            result.push_back(&layers[i]);
        for (OutLayer& band : best)
            result.push_back(&bands_.emplace_back(std::move(band)));
    }
    return result;
}

void TablePacker::Add(const OutPreset& preset, std::span<const OutLayer> whole)
{
    std::vector<const OutLayer*> layers;
    if (packing_ != Packing::Layers)
        layers = Divided(whole);
    else
        std::ranges::transform(whole, std::back_inserter(layers),
                               [](const OutLayer& layer) { return &layer; });
    PresetHeader header{};
    header.name = NameField(preset.name);
    header.preset = preset.program;
    header.bank = preset.bank;
    header.bagIndex = static_cast<std::uint16_t>(tables_.presetZones.bags.size());
    tables_.presets.push_back(header);
    static const Zone kNothing;
    const Zone& defaults = isVersion1_ ? DefaultsOfVersion1() : kNothing;
    std::vector<Zone> differences(layers.size());
    std::vector<ZoneRecord> records;
    for (std::size_t i = 0; i < layers.size() && !IsBeyondCounting(); ++i) {
        const OutLayer& layer = *layers[i];
        const std::size_t place = InstrumentFor(layer);
        differences[i] = Difference(*layer.zones.front().values, *instruments_[place]->zones.front().values);
        const Zone* values = isVersion1_ ? &defaults : &differences[i];
        records.push_back({layer.keys, layer.velocities, values, ZoneMarks(*values, defaults),
                           static_cast<std::uint16_t>(place)});
    }
    ZoneWriter(tables_.presetZones, kGenInstrument, defaults).Write(records);
}

bool TablePacker::Finish()
{
    if (IsFull())
        return false;
    const auto terminate = [](OutZoneTables& zones) {
        const auto index = static_cast<std::uint16_t>(zones.bags.size());
        zones.bags.push_back({static_cast<std::uint16_t>(zones.generators.size()),
                              static_cast<std::uint16_t>(zones.modulators.size())});
        zones.generators.push_back({});
        zones.modulators.push_back({});
        return index;
    };
    PresetHeader preset{};
    preset.name = NameField("EOP");
    preset.bagIndex = terminate(tables_.presetZones);
    tables_.presets.push_back(preset);
    InstrumentHeader instrument;
    instrument.name = NameField("EOI");
    instrument.bagIndex = terminate(tables_.instrumentZones);
    tables_.instruments.push_back(instrument);
    return true;
}

} // namespace vimbo::sf2
