// Envelopes and LFOs with numbers.
#include "formats/sfz/sfz_opcodes.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <iterator>

namespace vimbo::sfz {
namespace {

/// Splits "eg01_" or "lfo1_" off; 0 if there is no such number.
unsigned TakeNumber(std::string_view& name, std::string_view prefix)
{
    unsigned number = 0;
    const std::string_view rest = name.substr(prefix.size());
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    const auto size = static_cast<std::size_t>(end - rest.data());
    if (error != std::errc() || size == rest.size() || rest[size] != '_' || number > kMaxFlex)
        return 0;
    name = rest.substr(size + 1);
    return number;
}

/// The number behind a word: "time12".
bool TakePoint(std::string_view name, std::string_view word, std::size_t& point)
{
    if (!name.starts_with(word))
        return false;
    const std::string_view digits = name.substr(word.size());
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), point);
    return error == std::errc() && end == digits.data() + digits.size() && point < kMaxFlexPoints;
}

constexpr std::string_view kFlexTargetNames[] = {"volume", "pitch", "cutoff", "pan"};
constexpr std::string_view kEgTargetNames[] = {"ampeg", "pitch", "cutoff", "pan"};

std::size_t TargetOf(std::string_view name, const std::string_view (&names)[kFlexTargets])
{
    return static_cast<std::size_t>(std::ranges::find(names, name) - std::begin(names));
}

bool TakeEnvelopeOpcode(FlexEnvelope& envelope, std::string_view name, double value)
{
    std::size_t point = 0;
    const bool isTime = TakePoint(name, "time", point);
    if (isTime || TakePoint(name, "level", point)) {
        (isTime ? envelope.seconds : envelope.levels)[point] = value;
        envelope.points = std::max(envelope.points, point + 1);
        return true;
    }
    if (name == "points") { // the points themselves tell it
        return true;
    }
    if (name == "sustain") {
        envelope.sustain = value;
        return true;
    }
    const std::size_t target = name == "amplitude" ? kFlexVolume : TargetOf(name, kEgTargetNames);
    if (target == kFlexTargets)
        return false;
    envelope.depths[target] = value;
    return true;
}

bool TakeLfoOpcode(FlexLfo& lfo, std::string_view name, double value)
{
    struct Field {
        std::string_view name;
        double FlexLfo::*place;
    };
    constexpr Field kFields[] = {{"wave", &FlexLfo::wave},
                                 {"freq", &FlexLfo::freq},
                                 {"delay", &FlexLfo::delay},
                                 {"fade", &FlexLfo::fade}};
    for (const Field& field : kFields)
        if (field.name == name) {
            lfo.*field.place = value;
            return true;
        }
    const std::string canonical = Canonical(name);
    constexpr std::string_view kSources[] = {"", "_oncc1", "_oncc129", "_oncc131"};
    for (std::size_t source = 0; source < std::size(kSources); ++source)
        for (std::size_t target = 0; target < kFlexTargets; ++target)
            if (canonical == std::string(kFlexTargetNames[target]) + std::string(kSources[source])) {
                lfo.depths[target][source] = value;
                return true;
            }
    return false;
}

void AppendEnvelope(std::string& out, const std::string& prefix, const FlexEnvelope& envelope,
                    const FlexEnvelope* before)
{
    const auto add = [&](std::string_view name, double value) {
        AppendNumber(out, prefix + std::string(name), value);
    };
    const bool isNewForm = before == nullptr || before->points != envelope.points ||
                           before->sustain != envelope.sustain || before->seconds != envelope.seconds ||
                           before->levels != envelope.levels;
    if (isNewForm) {
        add("points", static_cast<double>(envelope.points));
        if (envelope.sustain != kUnset)
            add("sustain", envelope.sustain);
        for (std::size_t i = 0; i < envelope.points; ++i) {
            add("level" + std::to_string(i), envelope.levels[i]);
            add("time" + std::to_string(i), envelope.seconds[i]);
        }
    }
    for (std::size_t target = 0; target < kFlexTargets; ++target)
        if (envelope.depths[target] != (before != nullptr ? before->depths[target] : 0))
            add(kEgTargetNames[target], envelope.depths[target]);
}

void AppendLfo(std::string& out, const std::string& prefix, const FlexLfo& lfo, const FlexLfo* before)
{
    const FlexLfo none{.wave = kUnset};
    const FlexLfo& from = before != nullptr ? *before : none;
    const auto add = [&](const std::string& name, double value, double old) {
        if (value != old)
            AppendNumber(out, prefix + name, value);
    };
    add("wave", lfo.wave, from.wave);
    add("freq", lfo.freq, from.freq);
    add("delay", lfo.delay, from.delay);
    add("fade", lfo.fade, from.fade);
    constexpr std::string_view kSources[] = {"", "_oncc1", "_oncc129", "_oncc131"};
    for (std::size_t target = 0; target < kFlexTargets; ++target)
        for (std::size_t source = 0; source < std::size(kSources); ++source)
            add(std::string(kFlexTargetNames[target]) + std::string(kSources[source]),
                lfo.depths[target][source], from.depths[target][source]);
}

/// Those that the level above has and this one has not are turned off.
template <class Flex, class Append>
void AppendAll(std::string& out, std::string_view word, const std::map<unsigned, Flex>& now,
               const std::map<unsigned, Flex>& before, Append append)
{
    const auto prefix = [word](unsigned number) { return fmt::format("{}{:02}_", word, number); };
    for (const auto& [number, flex] : before)
        if (!now.contains(number)) {
            Flex off = flex;
            off.depths = {};
            append(out, prefix(number), off, &flex);
        }
    for (const auto& [number, flex] : now) {
        const auto old = before.find(number);
        append(out, prefix(number), flex, old == before.end() ? nullptr : &old->second);
    }
}

} // namespace

bool TakeFlexOpcode(Record& record, std::string_view name, std::string_view value)
{
    double number = 0;
    if (!ParseNumber(value, number))
        return false;
    const bool isLfo = name.starts_with("lfo");
    if (!isLfo && !name.starts_with("eg"))
        return false;
    const unsigned index = TakeNumber(name, isLfo ? "lfo" : "eg");
    if (index == 0)
        return false;
    return isLfo ? TakeLfoOpcode(record.lfos[index], name, number)
                 : TakeEnvelopeOpcode(record.envelopes[index], name, number);
}

void AppendFlexDifferences(std::string& out, const Record& record, const Record& before)
{
    AppendAll(out, "eg", record.envelopes, before.envelopes, AppendEnvelope);
    AppendAll(out, "lfo", record.lfos, before.lfos, AppendLfo);
}

} // namespace vimbo::sfz
