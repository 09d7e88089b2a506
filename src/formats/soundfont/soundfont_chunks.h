// The chunks of a bank around its samples.
#pragma once

#include "base/byte_reader.h"
#include "formats/soundfont/soundfont_data.h"

namespace vimbo::sf2 {

void WriteChunkHead(ByteWriter& out, FourCc id, std::uint64_t bytes);
void WriteList(ByteWriter& out, FourCc type, const ByteWriter& body);

/// The body of `INFO`.
ByteWriter MakeInfo(const TextItem& root, std::uint16_t major, std::uint16_t minor);
/// The body of `pdta`.
/// @param headers  as HeadersOf gives them
ByteWriter MakeTables(const OutTables& tables, const std::vector<SampleHeader>& headers, unsigned major);
/// The chunk `snam` of version 1.
ByteWriter MakeNames(const std::vector<OutSample>& samples);
/// With the terminal one.
std::vector<SampleHeader> HeadersOf(const std::vector<OutSample>& samples, const DataPlan& plan,
                                    const Streams& streams);

/// What `INFO` does not hold of the texts.
void NoteBankTexts(ConversionNotes& notes, const TextItem& root);

} // namespace vimbo::sf2
