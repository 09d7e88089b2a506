// Random instruments, and what is heard of them, for tests of the three levels.
#pragma once

#include "model_builders.h"

#include <algorithm>
#include <random>

namespace vimbo {

class RandomLevels {
public:
    RandomLevels(Collection& items, unsigned seed) : items_(items), random_(seed)
    {
        for (int i = 0; i < 3; ++i)
            waves_.push_back(&items.Create<Waveform>(u"w"));
        for (Waveform* wave : waves_)
            wave->frames = 1000;
    }

    unsigned Below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
    bool OneIn(unsigned n) { return Below(n) == 0; }

    MidiRange Range(unsigned maxWidth)
    {
        const unsigned low = Below(128);
        const unsigned high = std::min(127u, low + Below(maxWidth));
        return {static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(high)};
    }

    /// Sets a few values of few ids, so that blocks often agree.
    void Shape(ArticulationBlock& block)
    {
        for (unsigned n = Below(4); n-- > 0;) {
            static constexpr ParamId kIds[] = {0, 14, 15, 23, 24, 51, 66, 90, 120, 188};
            block.Set(kIds[Below(std::size(kIds))], static_cast<float>(Below(2)));
        }
    }

    Instrument& Make(unsigned layers, unsigned regionsPerLayer, unsigned maxWidth)
    {
        auto& instrument = items_.Create<Instrument>(u"i");
        Shape(instrument.articulation);
        for (unsigned l = 0; l < layers; ++l) {
            Layer& layer = instrument.AddLayer();
            Shape(layer.articulation);
            if (OneIn(3))
                layer.trigger.Set(kParamHighVelocity, static_cast<float>(Below(128)));
            if (OneIn(4))
                layer.trigger.Set(kParamKeyFadeIn, static_cast<float>(Below(30)));
            for (unsigned r = 0; r < regionsPerLayer; ++r)
                AddRegion(layer, maxWidth);
        }
        return instrument;
    }

    Region& AddRegion(Layer& layer, unsigned maxWidth)
    {
        const ItemHandle wave = waves_[Below(static_cast<unsigned>(waves_.size()))]->Handle();
        const MidiRange velocities =
            OneIn(3) ? MidiRange{MidiRange::kKeep, MidiRange::kKeep} : Range(maxWidth);
        Region& region = layer.AddRegion(wave, Range(maxWidth), velocities);
        Shape(region.articulation);
        if (OneIn(5))
            region.trigger.Set(kParamTriggerType, static_cast<float>(Below(3)));
        if (OneIn(5))
            region.trigger.Set(kParamDelay, 0.5f);
        if (OneIn(5))
            region.trigger.Set(kParamExclusionGroup, 7);
        return region;
    }

private:
    Collection& items_;
    std::mt19937 random_;
    std::vector<Waveform*> waves_;
};

/// The model's part of the fix-up pass.
inline void ValidateLevels(Instrument& instrument)
{
    instrument.Validate();
    for (Layer* layer : instrument.Layers())
        layer->Validate();
    for (Layer* layer : instrument.Layers())
        for (Region* region : layer->Regions())
            region->Validate();
}

/// Everything that decides how a region sounds, without marks and names.
inline std::vector<float> Heard(const Region& region)
{
    std::vector<float> values;
    for (ParamId id = 0; id <= kLastTriggerParam; ++id)
        values.push_back(region.GetParam(id));
    const ItemHandle sound = region.Children().empty() ? NO_ITEM : region.Children()[0];
    values.push_back(static_cast<float>(sound.Serial()));
    return values;
}

/// The same for a whole instrument, in an order that does not depend on its layers.
inline std::vector<std::vector<float>> Heard(const Instrument& instrument)
{
    std::vector<std::vector<float>> all;
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions())
            all.push_back(Heard(*region));
    std::sort(all.begin(), all.end());
    return all;
}

/// Records of an instrument and everything below.
inline std::vector<std::vector<std::byte>> Records(const Instrument& instrument)
{
    std::vector<std::vector<std::byte>> records;
    const auto add = [&](const Item& item) {
        ByteWriter out;
        item.Serialize(out);
        records.push_back(out.Release());
    };
    add(instrument);
    for (const Layer* layer : instrument.Layers()) {
        add(*layer);
        for (const Region* region : layer->Regions())
            add(*region);
    }
    return records;
}

/// Values without a mark are those of the level above.
inline void ExpectInherited(const Instrument& instrument)
{
    for (const Layer* layer : instrument.Layers()) {
        ArticulationBlock block = layer->articulation;
        EXPECT_FALSE(block.InheritFrom(instrument.articulation));
        for (const Region* region : layer->Regions()) {
            ArticulationBlock own = region->articulation;
            EXPECT_FALSE(own.InheritFrom(layer->articulation));
            TriggerParams trigger = region->trigger;
            EXPECT_FALSE(trigger.InheritFrom(layer->trigger));
        }
    }
}

inline void ExpectNoOverlap(const Layer& layer)
{
    const std::vector<Region*> regions = layer.Regions();
    for (std::size_t i = 0; i < regions.size(); ++i)
        for (std::size_t j = i + 1; j < regions.size(); ++j)
            ASSERT_FALSE(regions[i]->trigger.Overlaps(regions[j]->trigger)) << i << " and " << j;
}

} // namespace vimbo
