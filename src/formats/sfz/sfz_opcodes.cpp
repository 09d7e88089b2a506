#include "formats/sfz/sfz_opcodes.h"

#include <unordered_map>

namespace vimbo::sfz {
namespace {

constexpr Generation kSecond = Generation::Second;
using enum ValueKind;

// The first row of an opcode holds its written name and its default; further ones are aliases. Names of
// controllers are listed with "_oncc" (see Canonical); aftertouch is controller 129, velocity 131, the key
// 133, random numbers 135 and 136.
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
    {"seq_position", kSeqPosition, Integer, 1},
    {"group", kGroup, Integer},
    {"polyphony_group", kGroup, Integer},
    {"off_by", kOffBy, Integer},
    {"offby", kOffBy, Integer},
    {"off_mode", kOffMode, OffMode, kOffFast},
    {"offmode", kOffMode, OffMode},
    {"off_time", kOffTime, Float, kOffSeconds},
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
    {"delay_oncc133", Op(kEgKeyToDelay), Float, 0, kSecond},
    {"attack_oncc133", Op(kEgKeyToAttack), Float, 0, kSecond},
    {"hold_oncc133", Op(kEgKeyToHold), Float, 0, kSecond},
    {"decay_oncc133", Op(kEgKeyToDecay), Float, 0, kSecond},
    {"release_oncc133", Op(kEgKeyToRelease), Float, 0, kSecond},
    {"release133", Op(kEgKeyToRelease)},
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

std::array<double, kOps> DefaultValues()
{
    std::array<double, kOps> values{};
    for (std::size_t op = 0; op < kOps; ++op)
        values[op] = RowOf(op)->defaultValue;
    return values;
}

} // namespace

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

const OpcodeRow* FindOpcode(std::string_view name)
{
    return Index().Find(name);
}

const OpcodeRow* RowOf(std::size_t op) noexcept
{
    return Index().Of(op);
}

Record::Record()
{
    static const std::array<double, kOps> kDefaults = DefaultValues();
    values = kDefaults;
}

} // namespace vimbo::sfz
