// Values of opcodes as text.
#include "base/numeric.h"
#include "formats/sfz/sfz_opcodes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <iterator>

namespace vimbo::sfz {
namespace {

using enum ValueKind;

constexpr double kLargest = 1e9; ///< numbers beyond it stand for it

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
    {OffMode, "fast", kOffFast},
    {OffMode, "normal", kOffNormal},
    {OffMode, "time", kOffTimed},
};

std::string Lower(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
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

} // namespace

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

} // namespace vimbo::sfz
