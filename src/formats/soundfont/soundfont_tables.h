// What a SoundFont file holds beside its samples: the nine tables, and where the samples lie.
#pragma once

#include "formats/soundfont/soundfont_records.h"

#include "base/file_object.h"
#include "formats/wave/wave_chunks.h"

#include <string>
#include <string_view>
#include <vector>

namespace vimbo::sf2 {

/// Half-open range of a table.
struct IndexRange {
    std::size_t first = 0;
    std::size_t end = 0;
    std::size_t Count() const noexcept { return end - first; }
};

/// Zones with their generators and modulators, of all presets or of all instruments.
class ZoneTables {
public:
    std::vector<Generator> generators;
    std::vector<Modulator> modulators;

    /// The indices of the file are 16 bits wide; where a table is longer than that, they are taken to have
    /// wrapped around.
    /// @param owners  first zones of presets or instruments, the terminal record's included
    void SetIndices(std::span<const std::uint16_t> owners, std::span<const Bag> bags);

    /// Presets or instruments, without the terminal one.
    std::size_t Owners() const noexcept { return owners_.empty() ? 0 : owners_.size() - 1; }
    /// Zones of an owner; indices out of order or outside the tables give an empty range.
    IndexRange Zones(std::size_t owner) const noexcept;
    std::span<const Generator> GeneratorsOf(std::size_t zone) const noexcept;
    std::span<const Modulator> ModulatorsOf(std::size_t zone) const noexcept;

private:
    std::vector<std::size_t> owners_;
    std::vector<std::size_t> generatorStarts_; ///< of each zone, and one more
    std::vector<std::size_t> modulatorStarts_;
};

struct ByteRange {
    std::uint64_t offset = 0; ///< in the file
    std::uint64_t bytes = 0;
};

struct Tables {
    std::uint16_t major = 0; ///< of the format; 1: first SoundFonts, 3: compressed samples
    std::uint16_t minor = 0;
    bool isPacked = false;             ///< form "sfpk"
    ByteRange samples;                 ///< `smpl`
    ByteRange lowBytes;                ///< `sm24`, empty if there is none that fits
    std::vector<PresetHeader> presets; ///< the terminal one included, likewise instruments
    std::vector<InstrumentHeader> instruments;
    std::vector<SampleHeader> sampleHeaders; ///< terminal one left out
    ZoneTables presetZones;
    ZoneTables instrumentZones;
    std::vector<ChunkCursor> info; ///< the INFO lists; they refer to the file
};

/// Reads everything but texts and samples. Version 1 has no rates and pitches: its sample headers get 44.1
/// kHz, key 60, and the type that the place of the first sample in RAM tells.
/// @return false if the form or a table is not there, or damaged; without an error text
[[nodiscard]] bool ReadTables(FileObject& file, Tables& out);
/// The same of a bank that lies in [start, start + length) of a larger file. All places in `out` are the
/// file's.
[[nodiscard]] bool ReadTables(FileObject& file, std::uint64_t start, std::uint64_t length, Tables& out);

/// A name field up to its first NUL, without blanks around it.
std::u16string NameOf(const std::array<char, 20>& field);

} // namespace vimbo::sf2
