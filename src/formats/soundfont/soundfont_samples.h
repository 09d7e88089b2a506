// The samples of a bank as waveforms.
#pragma once

#include "formats/soundfont/soundfont_tables.h"
#include "model/collection.h"
#include "model/waveform.h"

namespace vimbo::sf2 {

/// What the samples of a bank became; one for each sample header.
struct BankSample {
    Waveform* wave = nullptr; ///< null: dropped
    bool isUnpitched = false;
    enum class Side : std::uint8_t { None, Left, Right } side = Side::None; ///< of a linked pair
    static constexpr std::size_t kSides = 3;
};

/// Makes a waveform of each sample that has data. Nothing is read but the heads of compressed streams. Asks
/// the host once whether samples of the ROM should come from a file.
std::vector<BankSample> ReadSamples(Collection& items, FileObject& file, const Tables& bank);

} // namespace vimbo::sf2
