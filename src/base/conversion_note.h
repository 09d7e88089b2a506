// What became of a value, a text or an item when it was read from or written to a format.
#pragma once

#include <cstdint>
#include <string>

namespace vimbo {

enum class Fidelity : std::uint8_t {
    Kept,         ///< as it was
    Approximated, ///< nearest value, or another structure that sounds alike
    Lost          ///< the format has no place for it
};

/// What a note is about; reports are grouped by it.
enum class NoteTopic : std::uint8_t {
    Instrument,
    Layer,
    Region,
    Waveform,
    Song,
    Parameter,
    Trigger,
    Loop,
    Text,
    Effect,
    Other
};

/// One remark. Texts are as a user reads them.
struct ConversionNote {
    Fidelity fidelity = Fidelity::Kept;
    NoteTopic topic = NoteTopic::Other;
    std::u16string item;     ///< path of the item: "Grand Piano / Layer 1 / C3..B4"; "" for a remark on many
    std::u16string what;     ///< the parameter, text or thing: "Filter Resonance peak height", "Name"
    std::u16string from;     ///< its value before, with the unit; "" if there is none
    std::u16string to;       ///< what stands in its place; "" for nothing
    std::u16string reason;   ///< why, where that is not plain: "the format holds 20 characters"
    std::uint64_t count = 1; ///< how many values or items the note stands for

    friend bool operator==(const ConversionNote&, const ConversionNote&) = default;
};

} // namespace vimbo
