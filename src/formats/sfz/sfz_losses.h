// What readings and writings of SFZ could not hold.
#pragma once

#include "formats/conversion_notes.h"
#include "formats/export_set.h"
#include "formats/sfz/sfz_text.h"
#include "formats/sfz/sfz_units.h"

#include <map>

namespace vimbo::sfz {

/// What could not be placed, to be told at the end.
struct ReadLosses {
    std::map<std::string, std::uint64_t> opcodes;
    std::map<std::string, std::uint64_t> generators;  ///< "*sine" and the like
    std::map<std::string, std::uint64_t> nearEffects; ///< words of effects that another one stands for
    UnitLosses units;
    TextLosses text;
    std::uint64_t withoutSample = 0, unplayable = 0, stacked = 0, offsets = 0, embedded = 0, curves = 0,
                  effects = 0, sequences = 0, otherCount = 0;
};
void TellLosses(Host& host, const ReadLosses& losses);

/// A region as the text has it.
/// @param record  with its loop; @param loop  that the region has
void NoteRegion(ConversionNotes& notes, const Region& region, const Waveform& wave, const Record& record,
                const LoopInfo& loop);
/// The layer's name as the value of an opcode; "" if it has none, or one that would be read as something
/// else.
std::string LabelText(const Layer& layer);
/// Texts, names of layers, location and effects.
/// @param name  of the file
void NoteInstrument(ConversionNotes& notes, const Instrument& instrument, std::u16string_view name,
                    Generation generation);
/// How a sample file holds its waveform.
void NoteSample(ConversionNotes& notes, const Waveform& wave, std::u16string_view fileName,
                DataFormat format);
/// Waveforms, songs and texts of a collection that reach no file.
void NoteRest(ConversionNotes& notes, const Item& root, const ExportSet& set);

} // namespace vimbo::sfz
