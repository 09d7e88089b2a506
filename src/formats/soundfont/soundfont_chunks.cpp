#include "formats/soundfont/soundfont_chunks.h"

#include "base/text.h"
#include "formats/wave/wave_records.h"

#include <algorithm>

namespace vimbo::sf2 {
namespace {

constexpr std::size_t kMaxTextBytes = 256;
constexpr std::size_t kMaxCommentBytes = 65536;
constexpr std::string_view kEngine = "EMU8000";
constexpr std::string_view kSoftware = "Vimbo Studio v12.7";
constexpr std::size_t kSoftwareBytes = 20;

struct InfoText {
    FourCc id;
    ParamId text;
    std::size_t maxBytes; ///< with the NUL
};
constexpr std::array kInfoTexts = {InfoText{FourCc{"INAM"}, kTextName, kMaxTextBytes},
                                   InfoText{FourCc{"IENG"}, kTextEngineer, kMaxTextBytes},
                                   InfoText{FourCc{"IPRD"}, kTextProduct, kMaxTextBytes},
                                   InfoText{FourCc{"ICOP"}, kTextCopyright, kMaxTextBytes},
                                   InfoText{FourCc{"ICMT"}, kTextComments, kMaxCommentBytes}};

void WriteChunk(ByteWriter& out, FourCc id, std::string_view text, std::size_t bytes)
{
    WriteChunkHead(out, id, bytes);
    out.Append(text.substr(0, bytes));
    out.Fill(bytes - std::min(bytes, text.size()));
}

template <class T>
void WriteTable(ByteWriter& out, FourCc id, const std::vector<T>& records)
{
    WriteChunkHead(out, id, records.size() * sizeof(T));
    out.Append(std::as_bytes(std::span(records)));
}

/// @param streamBytes  length of a stream, 0 for plain samples
SampleHeader HeaderOf(const OutSample& sample, const Extent& extent, const Streams& streams,
                      std::uint64_t streamBytes)
{
    SampleHeader header{};
    header.name = NameField(sample.name);
    const bool isStream = streamBytes != 0;
    const auto start = static_cast<std::uint32_t>(isStream ? extent.offset : extent.offset / 2);
    const std::uint32_t origin = isStream ? 0 : start;
    header.start = start;
    header.end = start + (isStream ? static_cast<std::uint32_t>(streamBytes) : sample.wave->frames);
    header.loopStart = origin + sample.loopStart;
    header.loopEnd = origin + std::max(sample.loopStart, sample.loopEnd);
    header.rateHz = sample.wave->rateHz;
    header.originalPitch = sample.rootKey;
    header.pitchCorrection = sample.wave->fineTune;
    header.link = sample.link;
    header.type = static_cast<std::uint16_t>(sample.type | (isStream ? streams.type : 0));
    return header;
}

/// The names of version 1.
std::vector<SampleName> NamesOf(const std::vector<OutSample>& samples)
{
    std::vector<SampleName> names;
    for (const OutSample& sample : samples)
        names.push_back({NameField(sample.name)});
    names.push_back({NameField("EOS")});
    return names;
}

std::vector<SampleHeader1> HeadersOfVersion1(const std::vector<SampleHeader>& headers)
{
    std::vector<SampleHeader1> out;
    for (const SampleHeader& header : headers)
        out.push_back({header.start, header.end, header.loopStart, header.loopEnd});
    return out;
}

/// The text as the file holds it, without what reading would change.
std::string TextOf(const TextItem& root, const InfoText& info)
{
    std::string text = WideToNarrow(NarrowToWide(root.GetTextNarrow(info.text)));
    text.resize(std::min(text.size(), info.maxBytes - 1));
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ')
        text.pop_back();
    return text;
}

} // namespace

void WriteChunkHead(ByteWriter& out, FourCc id, std::uint64_t bytes)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(bytes)});
}

void WriteList(ByteWriter& out, FourCc type, const ByteWriter& body)
{
    WriteChunkHead(out, FourCc{"LIST"}, sizeof(FourCc) + body.Size());
    out.Write(type);
    out.Append(body.Bytes());
}

ByteWriter MakeInfo(const TextItem& root, std::uint16_t major, std::uint16_t minor)
{
    ByteWriter info;
    WriteChunkHead(info, FourCc{"ifil"}, 2 * sizeof(U16le));
    info.Write(U16le(major));
    info.Write(U16le(minor));
    WriteChunk(info, FourCc{"isng"}, kEngine, kEngine.size() + 1);
    for (const InfoText& row : kInfoTexts)
        if (const std::string text = TextOf(root, row); !text.empty())
            WriteChunk(info, row.id, text, (text.size() + 2) & ~std::size_t{1});
    WriteChunk(info, FourCc{"ISFT"}, kSoftware, kSoftwareBytes);
    return info;
}

ByteWriter MakeTables(const OutTables& tables, const std::vector<SampleHeader>& headers, unsigned major)
{
    ByteWriter out;
    WriteTable(out, FourCc{"phdr"}, tables.presets);
    WriteTable(out, FourCc{"pbag"}, tables.presetZones.bags);
    WriteTable(out, FourCc{"pmod"}, tables.presetZones.modulators);
    WriteTable(out, FourCc{"pgen"}, tables.presetZones.generators);
    WriteTable(out, FourCc{"inst"}, tables.instruments);
    WriteTable(out, FourCc{"ibag"}, tables.instrumentZones.bags);
    WriteTable(out, FourCc{"imod"}, tables.instrumentZones.modulators);
    WriteTable(out, FourCc{"igen"}, tables.instrumentZones.generators);
    if (major == kVersion1)
        WriteTable(out, FourCc{"shdr"}, HeadersOfVersion1(headers));
    else
        WriteTable(out, FourCc{"shdr"}, headers);
    return out;
}

ByteWriter MakeNames(const std::vector<OutSample>& samples)
{
    ByteWriter names;
    WriteTable(names, FourCc{"snam"}, NamesOf(samples));
    return names;
}

std::vector<SampleHeader> HeadersOf(const std::vector<OutSample>& samples, const DataPlan& plan,
                                    const Streams& streams)
{
    std::vector<SampleHeader> headers;
    for (std::size_t i = 0; i < samples.size(); ++i)
        headers.push_back(HeaderOf(samples[i], plan.extents[i], streams,
                                   plan.extents[i].isStream ? streams.places[i].bytes : 0));
    SampleHeader& terminal = headers.emplace_back();
    terminal.name = NameField("EOS");
    return headers;
}

void NoteBankTexts(ConversionNotes& notes, const TextItem& root)
{
    for (const InfoText& row : kInfoTexts)
        notes.Text(root, row.text, NarrowToWide(TextOf(root, row)),
                   u"the format has 8-bit texts of limited length");
    for (const ParamId id : {kTextArtist, kTextImage})
        notes.Text(root, id, u"", u"the format has no such text");
}

} // namespace vimbo::sf2
