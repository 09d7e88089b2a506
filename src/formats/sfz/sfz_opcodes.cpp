#include "formats/sfz/sfz_opcodes.h"

#include "base/numeric.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <unordered_map>

namespace vimbo::sfz {
namespace {

constexpr double kLargest = 1e9; ///< numbers beyond it stand for it
constexpr Generation kSecond = Generation::Second;
using enum ValueKind;

// The first row of an opcode holds its written name and its default; further ones are aliases. Names of
// controllers are listed with "_oncc" (see Canonical); aftertouch is controller 129, velocity 131, random
// numbers 135 and 136.
constexpr OpcodeRow kRows[] = {
    {"offset", kOffset, Integer},
    {"end", kEnd, Integer, kUnset},
    {"loop_mode", kLoopMode, LoopMode, kUnset},
    {"loopmode", kLoopMode, LoopMode},
    {"loop_type", kLoopType, LoopType, kUnset, kSecond},
    {"looptype", kLoopType, LoopType},
    {"loop_start", kLoopStart, Integer, kUnset},
    {"loopstart", kLoopStart, Integer},
    {"loop_end", kLoopEnd, Integer, kUnset},
    {"loopend", kLoopEnd, Integer},
    {"loop_tune", kLoopTune, Float, 0, kSecond},
    {"loop_tune01", kLoopTune, Float},
    {"lokey", kLowKey, Key},
    {"hikey", kHighKey, Key, 127},
    {"pitch_keycenter", kKeyCenter, Key, 60},
    {"key", kKey, Key},
    {"xfin_lokey", kXfInLowKey, Key, kUnset},
    {"xfin_hikey", kXfInHighKey, Key, kUnset},
    {"xfout_lokey", kXfOutLowKey, Key, kUnset},
    {"xfout_hikey", kXfOutHighKey, Key, kUnset},
    {"xf_keycurve", kXfKeyCurve, Curve},
    {"lovel", kLowVel, Integer},
    {"hivel", kHighVel, Integer, 127},
    {"xfin_lovel", kXfInLowVel, Integer, kUnset},
    {"xfin_hivel", kXfInHighVel, Integer, kUnset},
    {"xfout_lovel", kXfOutLowVel, Integer, kUnset},
    {"xfout_hivel", kXfOutHighVel, Integer, kUnset},
    {"xf_velcurve", kXfVelCurve, Curve},
    {"on_locc64", kPedalLow, Integer},
    {"locc64", kPedalLow, Integer},
    {"on_hicc64", kPedalHigh, Integer, 127},
    {"hicc64", kPedalHigh, Integer},
    {"trigger", kTrigger, Trigger},
    {"lorand", kLowRandom},
    {"hirand", kHighRandom, Float, 1},
    {"seq_length", kSeqLength, Integer, 1},
    {"group", kGroup, Integer},
    {"polyphony_group", kGroup, Integer},
    {"off_by", kOffBy, Integer},
    {"offby", kOffBy, Integer},
    {"delay", kDelay},
    {"delay_samples", kDelaySamples, Integer},
    {"pitch_keytrack", kKeyTrack, Float, 100},
    {"tune", kTune},
    {"pitch", kTune},
    {"transpose", kTranspose, Integer},
    {"bend_up", kBendUp, Float, 200},
    {"bendup", kBendUp, Float},
    {"bend_down", kBendDown, Float, -200},
    {"benddown", kBendDown, Float},
    {"pitch_random", kPitchRandom},
    {"pitch_oncc136", kPitchRandom},
    {"tune_oncc136", kPitchRandom},
    {"tune_random", kTuneRandom},
    {"pitch_oncc135", kTuneRandom},
    {"tune_oncc135", kTuneRandom},
    {"cutoff", kCutoff, Precise, kUnset},
    {"cutoff_oncc1", kCutoffWheel},
    {"cutoff_oncc129", kCutoffTouch},
    {"fil_type", kFilType, FilterType, 2},
    {"filtype", kFilType, FilterType},
    {"fil_keytrack", kFilKeyTrack},
    {"fil_keycenter", kFilKeyCenter, Key, 60},
    {"fil_veltrack", kFilVelTrack},
    {"cutoff_oncc131", kFilVelTrack},
    {"resonance", kResonance},
    {"resonance_oncc1", kResonanceWheel, Float, 0, kSecond},
    {"resonance_oncc129", kResonanceTouch, Float, 0, kSecond},
    {"resonance_oncc131", kResonanceVelocity, Float, 0, kSecond},
    {"volume", kVolume},
    {"gain", kVolume},
    {"amplitude", kAmplitude, Float, 100, kSecond},
    {"group_volume", kGroupVolume, Float, 0, kSecond},
    {"master_volume", kMasterVolume, Float, 0, kSecond},
    {"global_volume", kGlobalVolume, Float, 0, kSecond},
    {"amp_keytrack", kAmpKeyTrack},
    {"amp_keycenter", kAmpKeyCenter, Key, 60},
    {"amp_veltrack", kAmpVelTrack, Float, 100},
    {"gain_oncc1", kGainWheel},
    {"volume_oncc1", kGainWheel},
    {"gain_oncc129", kGainTouch},
    {"volume_oncc129", kGainTouch},
    {"pan", kPan},
    {"pan_keytrack", kPanKeyTrack, Float, 0, kSecond},
    {"pan_keycenter", kPanKeyCenter, Key, 60, kSecond},
    {"pan_oncc10", kPanCc10, Float, 100, kSecond},
    {"pan_oncc136", kPanRandom, Float, 0, kSecond},
    {"pan_random", kPanRandom},
    {"effect1", kEffect1, Float, 0, kSecond},
    {"effect2", kEffect2, Float, 0, kSecond},
    {"effect3", kEffect3, Float, 0, kSecond},
    {"effect4", kEffect4, Float, 0, kSecond},
};

struct Prefix {
    std::string_view name;
    std::size_t base;
};
constexpr Prefix kEgPrefixes[] = {{"pitcheg_", kPitchEg}, {"fileg_", kFilEg}, {"ampeg_", kAmpEg}};
constexpr Prefix kLfoPrefixes[] = {{"pitchlfo_", kPitchLfo}, {"fillfo_", kFilLfo}, {"amplfo_", kAmpLfo}};

// Rows of the common lists; `op` is the field.
constexpr OpcodeRow kEgRows[] = {
    {"delay", Op(kEgDelay)},
    {"start", Op(kEgStart)},
    {"attack", Op(kEgAttack)},
    {"hold", Op(kEgHold)},
    {"decay", Op(kEgDecay)},
    {"sustain", Op(kEgSustain), Float, 100},
    {"release", Op(kEgRelease)},
    {"depth", Op(kEgDepth)},
    {"vel2depth", Op(kEgVelToDepth)},
    {"vel2delay", Op(kEgVelToDelay)},
    {"delay_oncc131", Op(kEgVelToDelay)},
    {"vel2attack", Op(kEgVelToAttack)},
    {"attack_oncc131", Op(kEgVelToAttack)},
    {"vel2hold", Op(kEgVelToHold)},
    {"hold_oncc131", Op(kEgVelToHold)},
    {"vel2decay", Op(kEgVelToDecay)},
    {"decay_oncc131", Op(kEgVelToDecay)},
    {"vel2release", Op(kEgVelToRelease)},
    {"release_oncc131", Op(kEgVelToRelease)},
    {"release131", Op(kEgVelToRelease)},
};
constexpr OpcodeRow kLfoRows[] = {
    {"freq", Op(kLfoFreq)},
    {"delay", Op(kLfoDelay)},
    {"fade", Op(kLfoFade)},
    {"depth", Op(kLfoDepth)},
    {"depthcc1", Op(kLfoDepthWheel)},
    {"depth_oncc1", Op(kLfoDepthWheel)},
    {"depthchanaft", Op(kLfoDepthTouch)},
    {"depth_oncc129", Op(kLfoDepthTouch)},
    {"depthcc131", Op(kLfoDepthVelocity), Float, 0, kSecond},
    {"depth_oncc131", Op(kLfoDepthVelocity)},
};
constexpr OpcodeRow kEqRows[] = {{"freq", Op(0), Precise},
                                 {"gain", Op(1)},
                                 {"bw", Op(2), Precise, 1},
                                 {"type", Op(3), EqType, 0, kSecond}};
constexpr std::array<double, kEqs> kEqFrequencies = {50, 500, 5000};

/// Names under which controllers are written, where the second generation did not rename them.
struct WrittenName {
    std::string_view canonical, written;
};
constexpr WrittenName kWrittenNames[] = {{"cutoff_oncc1", "cutoff_cc1"},
                                         {"cutoff_oncc129", "cutoff_chanaft"},
                                         {"gain_oncc1", "gain_cc1"},
                                         {"gain_oncc129", "gain_cc129"}};

/// "depthcc1", "cutoff_cc1", "cutoff_chanaft" with "_oncc" and the number.
std::string Canonical(std::string_view name)
{
    constexpr std::string_view kTouch = "chanaft";
    if (name.ends_with(kTouch)) {
        name.remove_suffix(kTouch.size());
        return std::string(name) + (name.ends_with('_') ? "oncc129" : "_oncc129");
    }
    const std::size_t digits = name.find_last_not_of("0123456789") + 1;
    std::string_view base = name.substr(0, digits);
    if (digits == name.size() || !base.ends_with("cc"))
        return std::string(name);
    base.remove_suffix(2);
    if (base.ends_with("_on"))
        base.remove_suffix(3);
    else if (base.ends_with('_'))
        base.remove_suffix(1);
    std::string_view number = name.substr(digits);
    while (number.size() > 1 && number.front() == '0')
        number.remove_prefix(1);
    return std::string(base) + "_oncc" + std::string(number);
}

class OpcodeIndex {
public:
    OpcodeIndex()
    {
        for (const OpcodeRow& row : kRows)
            Add(std::string(row.name), row, row.op);
        for (const Prefix& prefix : kEgPrefixes)
            AddList(prefix, kEgRows);
        for (const Prefix& prefix : kLfoPrefixes)
            AddList(prefix, kLfoRows);
        for (std::size_t band = 0; band < kEqs; ++band)
            for (OpcodeRow row : kEqRows) {
                if (row.op == Op(0))
                    row.defaultValue = kEqFrequencies[band];
                Add("eq" + std::to_string(band + 1) + "_" + std::string(row.name), row,
                    kEq + band * kEqFields + row.op);
            }
        for (const WrittenName& names : kWrittenNames)
            Rename(names);
    }

    const OpcodeRow* Find(std::string_view name) const
    {
        if (const OpcodeRow* exact = FindExactly(std::string(name)))
            return exact;
        return FindExactly(Canonical(name));
    }
    const OpcodeRow* Of(std::size_t op) const noexcept { return written_[op]; }

private:
    template <std::size_t N>
    void AddList(const Prefix& prefix, const OpcodeRow (&rows)[N])
    {
        for (const OpcodeRow& row : rows)
            Add(std::string(prefix.name) + std::string(row.name), row, prefix.base + row.op);
    }
    void Add(std::string name, OpcodeRow row, std::size_t op)
    {
        row.op = static_cast<Op>(op);
        const auto place = rows_.insert_or_assign(std::move(name), row).first;
        place->second.name = place->first;
        if (op < kOps && written_[op] == nullptr)
            written_[op] = &place->second;
    }
    void Rename(const WrittenName& names)
    {
        const OpcodeRow* old = FindExactly(std::string(names.canonical));
        const auto place = rows_.emplace(names.written, *old).first;
        place->second.name = place->first;
        written_[old->op] = &place->second;
    }
    const OpcodeRow* FindExactly(const std::string& name) const
    {
        const auto found = rows_.find(name);
        return found == rows_.end() ? nullptr : &found->second;
    }

    std::unordered_map<std::string, OpcodeRow> rows_;
    std::array<const OpcodeRow*, kOps> written_{};
};

const OpcodeIndex& Index()
{
    static const OpcodeIndex kIndex;
    return kIndex;
}

struct Word {
    ValueKind kind;
    std::string_view text;
    double value;
};
/// The first word of a value is written.
constexpr Word kWords[] = {
    {LoopMode, "no_loop", kNoLoop},
    {LoopMode, "one_shot", kOneShot},
    {LoopMode, "loop_continuous", kLoopContinuous},
    {LoopMode, "loop_sustain", kLoopSustain},
    {LoopType, "forward", kLoopForward},
    {LoopType, "backward", kLoopBackward},
    {LoopType, "alternate", kLoopAlternate},
    {Curve, "power", 0},
    {Curve, "gain", 1},
    {Trigger, "attack", kTriggerAttack},
    {Trigger, "release", kTriggerRelease},
    {Trigger, "release_key", kTriggerReleaseKey},
    {FilterType, "lpf_1p", 1},
    {FilterType, "lpf_2p", 2},
    {FilterType, "lpf_4p", 4},
    {FilterType, "hpf_1p", 5},
    {FilterType, "hpf_2p", 6},
    {FilterType, "hpf_4p", 8},
    {FilterType, "bpf_1p", 9},
    {FilterType, "bpf_2p", 10},
    {FilterType, "brf_1p", 11},
    {FilterType, "brf_2p", 12},
    {FilterType, "peak", kFilPeak},
    {FilterType, "hshelf", kFilHighShelf},
    {FilterType, "lshelf", kFilLowShelf},
    {FilterType, "hsh", kFilHighShelf},
    {FilterType, "lsh", kFilLowShelf},
    {EqType, "peak", 0},
    {EqType, "lshelf", 1},
    {EqType, "hshelf", 2},
};

std::string Lower(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

bool ParseNumber(std::string_view text, double& out)
{
    if (text.starts_with('+'))
        text.remove_prefix(1);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    if (error != std::errc() || end == text.data() || !std::isfinite(out))
        return false;
    out = std::clamp(out, -kLargest, kLargest);
    return true;
}

bool ParseWord(ValueKind kind, std::string_view text, double& out)
{
    const std::string lower = Lower(text);
    const auto* found = std::ranges::find_if(
        kWords, [&](const Word& word) { return word.kind == kind && word.text == lower; });
    if (found == std::end(kWords))
        return false;
    out = found->value;
    return true;
}

bool IsWordKind(ValueKind kind) noexcept
{
    return kind >= LoopMode;
}

std::string KeyText(double key)
{
    return Lower(NoteName(static_cast<int>(key)));
}

// Opcodes of envelopes and LFOs with a number.

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

std::array<double, kOps> DefaultValues()
{
    std::array<double, kOps> values{};
    for (std::size_t op = 0; op < kOps; ++op)
        values[op] = RowOf(op)->defaultValue;
    return values;
}

} // namespace

const OpcodeRow* FindOpcode(std::string_view name)
{
    return Index().Find(name);
}

const OpcodeRow* RowOf(std::size_t op) noexcept
{
    return Index().Of(op);
}

void RoundToText(Record& record)
{
    for (std::size_t op = 0; op < kOps; ++op) {
        double& value = record[op];
        const ValueKind kind = RowOf(op)->kind;
        if (value == kUnset || value == std::trunc(value))
            continue;
        if (kind == Integer)
            value = std::round(value);
        else if (kind == Float || kind == Precise)
            static_cast<void>(ParseNumber(fmt::format("{:.{}g}", value, kind == Float ? 6 : 8), value));
    }
}

Record::Record()
{
    static const std::array<double, kOps> kDefaults = DefaultValues();
    values = kDefaults;
}

bool ParseKey(std::string_view text, double& out)
{
    constexpr std::array<int, 7> kNotes = {9, 11, 0, 2, 4, 5, 7}; // a to g
    constexpr int kOctave = 12;
    if (ParseNumber(text, out))
        return true;
    if (text.empty())
        return false;
    const char letter = static_cast<char>(text.front() | 0x20);
    if (letter < 'a' || letter > 'g')
        return false;
    int key = kNotes[static_cast<std::size_t>(letter - 'a')];
    text.remove_prefix(1);
    if (text.starts_with('#') || text.starts_with('b')) {
        key += text.front() == '#' ? 1 : -1;
        text.remove_prefix(1);
    }
    int octave = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), octave);
    if (error != std::errc() || end != text.data() + text.size() || std::abs(octave) > kOctave)
        return false;
    out = (octave + 1) * kOctave + key;
    return true;
}

bool ParseValue(const OpcodeRow& row, std::string_view text, double& out)
{
    if (row.kind == Key) {
        if (row.op == kKeyCenter && Lower(text) == "sample") {
            out = kKeyOfSample;
            return true;
        }
        return ParseKey(text, out);
    }
    return IsWordKind(row.kind) ? ParseWord(row.kind, text, out) : ParseNumber(text, out);
}

void AppendNumber(std::string& out, std::string_view name, double value)
{
    fmt::format_to(std::back_inserter(out), " {}={:g}", name, value);
}

void AppendOpcode(std::string& out, const OpcodeRow& row, double value)
{
    if (row.kind == Key) {
        out += fmt::format(" {}={}", row.name, KeyText(value));
    } else if (row.kind == Integer) {
        out += fmt::format(" {}={:.0f}", row.name, value);
    } else if (row.kind == Precise) {
        out += fmt::format(" {}={:.8g}", row.name, value);
    } else if (!IsWordKind(row.kind)) {
        AppendNumber(out, row.name, value);
    } else {
        const auto* word = std::ranges::find_if(
            kWords, [&](const Word& each) { return each.kind == row.kind && each.value == value; });
        if (word != std::end(kWords))
            out += fmt::format(" {}={}", row.name, word->text);
    }
}

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
