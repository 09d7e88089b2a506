// DLS banks built chunk by chunk, and opened, for the tests of the driver.
#pragma once

#include "formats/dls/dls.h"
#include "formats/dls/dls_units.h"
#include "formats/wave/wave_records.h"
#include "model/envelope.h"
#include "model/instrument.h"
#include "model/waveform.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vimbo::dls {

constexpr std::uint32_t kAuto =
    FormatBit(DataFormat::Pcm8) | FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsDualMono;
constexpr std::uint32_t kAutoPlus = 0x2122375;

inline void AddChunk(ByteWriter& out, FourCc id, std::span<const std::byte> body)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(body.size())});
    out.Append(body);
    out.Fill(body.size() & 1);
}
inline void AddList(ByteWriter& out, FourCc type, const ByteWriter& body, FourCc id = FourCc{"LIST"})
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(4 + body.Size())});
    out.Write(type);
    out.Append(body.Bytes());
}
template <class... Records>
ByteWriter Bytes(const Records&... records)
{
    ByteWriter out;
    (out.Write(records), ...);
    return out;
}

struct RegionSpec {
    std::array<std::uint16_t, 4> ranges{0, 127, 0, 127};
    std::uint16_t options = 0, keyGroup = 0, layer = 0;
    WaveLink link{std::uint16_t{0}, std::uint16_t{0}, 1u, 0u};
    std::vector<Connection> connections;
    std::optional<std::pair<WsmpHead, WsmpLoop>> sample;
};

struct BankSpec {
    std::uint32_t bank = 0, program = 0;
    std::vector<Connection> common;
    std::vector<RegionSpec> regions;
    std::vector<std::uint32_t> cues{0};
    bool hasTable = true, hasWave = true;
    std::string software, waveRecord;
};

inline void AddConnections(ByteWriter& out, const std::vector<Connection>& connections)
{
    ByteWriter table = Bytes(TableHead{8u, static_cast<std::uint32_t>(connections.size())}), list;
    for (const Connection& at : connections)
        table.Write(ConnectionBlock{at.source, at.control, at.destination, at.transform, at.scale});
    AddChunk(list, FourCc{"art2"}, table.Bytes());
    AddList(out, FourCc{"lar2"}, list);
}

inline void AddRegion(ByteWriter& out, const RegionSpec& spec)
{
    ByteWriter body;
    const auto& r = spec.ranges;
    AddChunk(
        body, FourCc{"rgnh"},
        Bytes(RegionHeader{r[0], r[1], r[2], r[3], spec.options, spec.keyGroup}, U16le(spec.layer)).Bytes());
    if (spec.sample)
        AddChunk(body, FourCc{"wsmp"}, Bytes(spec.sample->first, spec.sample->second).Bytes());
    AddChunk(body, FourCc{"wlnk"}, Bytes(spec.link).Bytes());
    AddConnections(body, spec.connections);
    AddList(out, FourCc{"rgn2"}, body);
}

inline std::vector<std::byte> Build(const BankSpec& spec)
{
    ByteWriter regions, instrument, instruments, wave, pool, bank, table, file, info;
    for (const RegionSpec& region : spec.regions)
        AddRegion(regions, region);
    AddChunk(instrument, FourCc{"insh"},
             Bytes(InstrumentHeader{static_cast<std::uint32_t>(spec.regions.size()), spec.bank, spec.program})
                 .Bytes());
    AddList(instrument, FourCc{"lrgn"}, regions);
    AddConnections(instrument, spec.common);
    AddList(instruments, FourCc{"ins "}, instrument);
    AddChunk(bank, FourCc{"colh"}, Bytes(U32le(1)).Bytes());
    AddList(bank, FourCc{"lins"}, instruments);
    table = Bytes(TableHead{8u, static_cast<std::uint32_t>(spec.cues.size())});
    for (const std::uint32_t cue : spec.cues)
        table.Write(U32le(cue));
    if (spec.hasTable)
        AddChunk(bank, FourCc{"ptbl"}, table.Bytes());
    AddChunk(wave, FourCc{"fmt "},
             Bytes(FmtCommon{std::uint16_t{1}, std::uint16_t{1}, 22050u, 44100u, std::uint16_t{2}}, U16le(16))
                 .Bytes());
    ByteWriter samples;
    for (int i = 0; i < 10; ++i)
        samples.Write(I16le(static_cast<std::int16_t>(i * 1000)));
    AddChunk(wave, FourCc{"data"}, samples.Bytes());
    if (spec.hasWave)
        AddList(pool, FourCc{"wave"}, wave);
    AddList(bank, FourCc{"wvpl"}, pool);
    if (!spec.software.empty())
        AddChunk(info, FourCc{"ISFT"}, std::as_bytes(std::span(spec.software)));
    AddList(bank, FourCc{"INFO"}, info);
    AddList(file, FourCc{"DLS "}, bank, FourCc{"RIFF"});
    return file.Release();
}

struct Opened {
    explicit Opened(const BankSpec& spec, Host* host = nullptr) : Opened(Build(spec), host) {}
    explicit Opened(std::span<const std::byte> bytes, Host* host = nullptr) : file(bytes, u"bank.dls")
    {
        if (host != nullptr)
            items.SetHost(*host);
        isRead = ReadDls(items, file, 0);
    }
    Region& At(std::size_t index) const { return *items.List<Region>().at(index); }
    MemoryFile file;
    Collection items;
    bool isRead = false;
};

/// Keeps what was changed or lost.
class NotingHost final : public Host {
public:
    bool WantsNotes() const override { return true; }
    void NoteConversion(ConversionNote note) override
    {
        if (note.fidelity != Fidelity::Kept)
            lost.insert(lost.end(), note.count, note.what);
    }
    std::vector<std::u16string> lost;
};

constexpr Connection Fixed(std::uint16_t destination, std::int32_t scale)
{
    return {0, 0, destination, 0, scale};
}
constexpr Connection By(std::uint16_t source, std::uint16_t destination, std::int32_t scale,
                        std::uint16_t control = 0)
{
    return {source, control, destination, 0, scale};
}
constexpr ParamId Env(EnvelopeIndex index, ParamId offset)
{
    return static_cast<ParamId>(EnvelopeBase(index) + offset);
}

} // namespace vimbo::dls
