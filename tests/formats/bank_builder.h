// Small instruments spelled out as text, for the tests of what writers get to see.
#pragma once

#include "base/text.h"
#include "model/collection.h"
#include "model/consistency.h"
#include "model/instrument.h"
#include "model/waveform.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vimbo::testing {

struct Zone4 {
    unsigned lowKey, highKey, lowVelocity, highVelocity;
    unsigned type = 0;
};

/// A collection with one mono waveform "w" that regions play unless they are given another.
struct Bank {
    Instrument& Add(std::u16string_view name, std::uint32_t location,
                    const std::vector<std::vector<Zone4>>& layers)
    {
        Instrument& instrument = items.Create<Instrument>(name);
        instrument.location.word = location;
        for (const auto& zones : layers) {
            Layer& layer = instrument.AddLayer();
            for (const Zone4& zone : zones)
                AddRegion(layer, zone);
        }
        return instrument;
    }
    Region& AddRegion(Layer& layer, const Zone4& zone)
    {
        const auto byte = [](unsigned value) { return static_cast<std::uint8_t>(value); };
        Region& region = layer.AddRegion(wave.Handle(), {byte(zone.lowKey), byte(zone.highKey)},
                                         {byte(zone.lowVelocity), byte(zone.highVelocity)});
        if (zone.type != 0)
            region.SetParam(kParamTriggerType, static_cast<float>(zone.type));
        return region;
    }
    /// Every item's record, by handle.
    std::map<ItemHandle, std::vector<std::byte>> Records() const
    {
        std::map<ItemHandle, std::vector<std::byte>> records;
        const auto add = [&](const auto& all) {
            for (const Item& item : all) {
                ByteWriter out;
                item.Serialize(out);
                records.emplace(item.Handle(), out.Release());
            }
        };
        add(items.All<Waveform>());
        add(items.All<Region>());
        add(items.All<Layer>());
        add(items.All<Instrument>());
        return records;
    }

    Collection items;
    Waveform& wave = AddWave(u"w");

    Waveform& AddWave(std::u16string_view name)
    {
        Waveform& made = items.Create<Waveform>(name);
        made.frames = 100;
        return made;
    }
};

/// "0-63:0-127 64-127:1-5 | 60-60:0-127": regions as keys:velocities, layers apart by "|".
inline std::string Zones(const Instrument& instrument)
{
    std::ostringstream out;
    const char* bar = "";
    for (const Layer* layer : instrument.Layers()) {
        out << bar;
        bar = " | ";
        const char* blank = "";
        for (const Region* region : layer->Regions()) {
            const TriggerParams& t = region->trigger;
            out << blank << +t.keys.low << '-' << +t.keys.high << ':' << +t.velocities.low << '-'
                << +t.velocities.high;
            blank = " ";
        }
    }
    return out.str();
}

} // namespace vimbo::testing
