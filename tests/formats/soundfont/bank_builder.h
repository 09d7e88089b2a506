// SoundFont banks spelled out table by table.
#pragma once

#include "formats/soundfont/soundfont_records.h"

#include "base/byte_reader.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

namespace vimbo::sf2 {

struct Gen2 {
    unsigned type;
    int amount;
};
constexpr int Range(int low, int high) noexcept
{
    return low | high << 8;
}
using ZoneSpec = std::vector<Gen2>;

/// Tables in, bytes out; terminal records are added.
class BankBuilder {
public:
    std::uint16_t major = 2, minor = 1;
    std::string_view form = "sfbk";
    std::vector<std::byte> samples, lowBytes;
    std::vector<Modulator> presetModulators, instrumentModulators; ///< of the first zone of the table
    bool padsSamples = true;

    static std::array<char, 20> Name(std::string_view text)
    {
        std::array<char, 20> name{};
        std::copy_n(text.begin(), std::min(text.size(), name.size()), name.begin());
        return name;
    }
    void AddWords(std::initializer_list<int> words)
    {
        for (const int word : words) {
            samples.push_back(static_cast<std::byte>(word & 0xFF));
            samples.push_back(static_cast<std::byte>(word >> 8 & 0xFF));
        }
    }
    SampleHeader& AddSample(std::string_view name, std::uint32_t start, std::uint32_t end,
                            std::uint16_t type = kSampleMono)
    {
        SampleHeader header{};
        header.name = Name(name);
        header.start = start;
        header.end = end;
        header.loopStart = start;
        header.loopEnd = start;
        header.rateHz = 32000u;
        header.originalPitch = 60;
        header.type = type;
        return headers_.emplace_back(header);
    }
    void AddInstrument(std::string_view name, const std::vector<ZoneSpec>& zones)
    {
        instruments_.push_back({Name(name), Count(instrumentBags_)});
        AddZones(zones, instrumentBags_, instrumentGens_, instrumentModulators.size());
    }
    void AddPreset(std::string_view name, unsigned bank, unsigned program, const std::vector<ZoneSpec>& zones)
    {
        PresetHeader header{};
        header.name = Name(name);
        header.bank = static_cast<std::uint16_t>(bank);
        header.preset = static_cast<std::uint16_t>(program);
        header.bagIndex = Count(presetBags_);
        presets_.push_back(header);
        AddZones(zones, presetBags_, presetGens_, presetModulators.size());
    }

    std::vector<std::byte> Build()
    {
        ByteWriter info, data, tables, whole;
        U16le version[] = {major, minor};
        Chunk(info, "ifil", std::as_bytes(std::span(version)));
        Chunk(info, "INAM", std::as_bytes(std::span("Test bank\0", 10)));
        Chunk(info, "ICMT", std::as_bytes(std::span("Remark\0\0", 8)));
        if (major == 1)
            Chunk(data, "snam", Names());
        Chunk(data, "smpl", samples, padsSamples);
        if (!lowBytes.empty())
            Chunk(data, "sm24", lowBytes);
        AddTables(tables);
        whole.Append(form);
        List(whole, "INFO", info);
        List(whole, "sdta", data, padsSamples);
        List(whole, "pdta", tables);
        ByteWriter file;
        Chunk(file, "RIFF", whole.Bytes());
        return file.Release();
    }

private:
    template <class T>
    static std::uint16_t Count(const std::vector<T>& table) noexcept
    {
        return static_cast<std::uint16_t>(table.size());
    }
    template <class T>
    static void Records(ByteWriter& out, std::string_view id, std::vector<T> table, const T& terminal)
    {
        table.push_back(terminal);
        Chunk(out, id, std::as_bytes(std::span(table)));
    }
    static void Chunk(ByteWriter& out, std::string_view id, std::span<const std::byte> body, bool pads = true)
    {
        out.Append(id);
        out.Write(U32le(static_cast<std::uint32_t>(body.size())));
        out.Append(body);
        if (pads)
            out.Fill(body.size() % 2);
    }
    static void List(ByteWriter& out, std::string_view type, const ByteWriter& body, bool pads = true)
    {
        ByteWriter list;
        list.Append(type);
        list.Append(body.Bytes());
        Chunk(out, "LIST", list.Bytes(), pads);
    }
    static void AddZones(const std::vector<ZoneSpec>& zones, std::vector<Bag>& bags,
                         std::vector<Generator>& gens, std::size_t firstModulators)
    {
        for (const ZoneSpec& zone : zones) {
            const std::size_t modulators = bags.empty() ? 0 : firstModulators;
            bags.push_back({Count(gens), static_cast<std::uint16_t>(modulators)});
            for (const Gen2& gen : zone)
                gens.push_back(
                    {static_cast<std::uint16_t>(gen.type), static_cast<std::uint16_t>(gen.amount)});
        }
    }
    std::vector<std::byte> Names() const
    {
        ByteWriter names;
        for (const SampleHeader& header : headers_)
            names.Write(header.name);
        return names.Release();
    }
    void AddTables(ByteWriter& out) const
    {
        PresetHeader lastPreset{};
        lastPreset.name = Name("EOP");
        lastPreset.bagIndex = Count(presetBags_);
        Records(out, "phdr", presets_, lastPreset);
        Records(out, "pbag", presetBags_, {Count(presetGens_), Count(presetModulators)});
        Records(out, "pmod", presetModulators, {});
        Records(out, "pgen", presetGens_, {});
        Records(out, "inst", instruments_, {Name("EOI"), Count(instrumentBags_)});
        Records(out, "ibag", instrumentBags_, {Count(instrumentGens_), Count(instrumentModulators)});
        Records(out, "imod", instrumentModulators, {});
        Records(out, "igen", instrumentGens_, {});
        if (major != 1) {
            SampleHeader last{};
            last.name = Name("EOS");
            Records(out, "shdr", headers_, last);
            return;
        }
        std::vector<std::array<U32le, 4>> headers;
        for (const SampleHeader& from : headers_)
            headers.push_back({from.start, from.end, from.loopStart, from.loopEnd});
        Chunk(out, "shdr", std::as_bytes(std::span(headers)));
    }

    std::vector<PresetHeader> presets_;
    std::vector<Bag> presetBags_, instrumentBags_;
    std::vector<Generator> presetGens_, instrumentGens_;
    std::vector<InstrumentHeader> instruments_;
    std::vector<SampleHeader> headers_;
};

} // namespace vimbo::sf2
