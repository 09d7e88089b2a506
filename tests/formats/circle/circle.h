// Banks on their way through several formats, and what they lose on it.
#pragma once

#include "base/last_error.h"
#include "base/text.h"
#include "formats/audible.h"
#include "formats/conversion_notes.h"
#include "formats/open.h"
#include "formats/save.h"
#include "model/instrument.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace vimbo::testing {

/// An extension, and the row that writes it.
struct Leg {
    std::string_view word;
    int row;
};
inline constexpr Leg kSf2Leg{"sf2", 381}, kDlsLeg{"dls", 64}, kDlsPlusLeg{"dls", 65}, kSfzLeg{"sfz", 391};

/// Gathers what reports say was changed or lost: "Grand Piano|Filter type", by instrument.
class LossHost final : public Host {
public:
    bool WantsNotes() const override { return true; }
    void NoteConversion(ConversionNote note) override
    {
        if (note.fidelity == Fidelity::Kept)
            return;
        const std::u16string instrument = note.item.substr(0, note.item.find(u" / "));
        named.insert(WideToUtf8(instrument + u"|" + note.what));
        kinds.insert(WideToUtf8(note.what));
    }
    std::set<std::string> named, kinds;
};

/// What tells an instrument apart from others, which not every format holds.
struct Label {
    std::u16string name;
    MidiLocation location;
};

inline std::vector<Label> LabelsOf(const Collection& items)
{
    std::vector<Label> labels;
    for (const Instrument& instrument : items.All<Instrument>())
        labels.push_back({std::u16string(instrument.GetName()), instrument.location});
    std::ranges::stable_sort(labels, {}, [](const Label& label) { return label.location.word; });
    return labels;
}

inline bool LoadPlain(Collection& out, const std::filesystem::path& path)
{
    out.loadOptions.autoCompactLayers = false;
    out.loadOptions.autoMoveTriggerParams = false;
    out.loadOptions.autoMergeStereo = false;
    return LoadFile(out, PathToWide(path.string()), AllowRaw::No);
}

/// One text for each instrument; read back, they get their labels again.
inline bool GoThroughTexts(Collection& bank, const Leg& leg, const std::filesystem::path& folder,
                           Collection& out)
{
    const std::vector<Label> labels = LabelsOf(bank);
    std::vector<Instrument*> instruments = bank.List<Instrument>();
    std::ranges::stable_sort(instruments, {}, [](const Instrument* each) { return each->location.word; });
    FormatChoice choice = AutoChoice(leg.row);
    choice.caps &= ~FormatBit(DataFormat::Compressed);
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        const std::filesystem::path text = folder / ("i" + std::to_string(i) + ".sfz");
        Collection read;
        read.SetHost(out.GetHost());
        if (!SaveItem(instruments[i], leg.row, PathToWide(text.string()), choice) || !LoadPlain(read, text))
            return false;
        Instrument& instrument = *read.List<Instrument>().at(0);
        instrument.SetName(labels[i].name);
        instrument.location = labels[i].location;
        out.Merge(read);
    }
    return true;
}

/// Writes the bank through a row and reads it back into `out`, whose samples lie in `folder` then. Reports of
/// both go to `host`. @return false with the Last error text
inline bool GoThrough(Collection& bank, const Leg& leg, const std::filesystem::path& folder, LossHost& host,
                      Collection& out)
{
    std::filesystem::create_directories(folder);
    bank.SetHost(host);
    out.SetHost(host);
    if (leg.row == kSfzLeg.row)
        return GoThroughTexts(bank, leg, folder, out);
    const std::filesystem::path file = folder / ("bank." + std::string(leg.word));
    return SaveItem(&bank, leg.row, PathToWide(file.string()), AutoChoice(leg.row)) && LoadPlain(out, file);
}

/// The region with what its waveform adds to it.
struct SoundingRegion {
    explicit SoundingRegion(const Region& from) : region(&from), block(from.articulation)
    {
        const Waveform& wave = *from.Wave();
        block.Set(kArtVolume, block[kArtVolume] + wave.volume);
        block.Set(kArtTuning, block[kArtTuning] + static_cast<float>(wave.fineTune) / 100);
    }
    auto Place() const
    {
        const TriggerParams& t = region->trigger;
        return std::tuple(t.keys.low, t.keys.high, std::max<int>(t.velocities.low, 1), t.velocities.high,
                          region->Wave()->frames, std::lround(block[kArtPan] * 50), block[kArtTuning],
                          block[kArtVolume]);
    }
    const Region* region;
    ArticulationBlock block;
};

inline std::vector<SoundingRegion> RegionsOf(const Instrument& instrument)
{
    std::vector<SoundingRegion> regions;
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions())
            if (region->Wave() != nullptr)
                regions.emplace_back(*region);
    std::ranges::stable_sort(regions, {}, &SoundingRegion::Place);
    return regions;
}

struct Difference {
    std::string what; ///< "Grand Piano|Filter type"
    std::string text; ///< for people
};

/// Lists where two collections differ in a way that can be heard.
class Comparison {
public:
    std::vector<Difference> differences;
    std::size_t compared = 0; ///< values that were looked at

    void Compare(const Collection& before, const Collection& after)
    {
        const auto a = InOrder(before), b = InOrder(after);
        if (a.size() != b.size()) {
            Add(u"", u"Instruments", std::to_string(a.size()), std::to_string(b.size()));
            return;
        }
        for (std::size_t i = 0; i < a.size(); ++i)
            CompareInstruments(*a[i], *b[i]);
    }

private:
    static std::vector<const Instrument*> InOrder(const Collection& items)
    {
        std::vector<const Instrument*> list;
        for (const Instrument& instrument : items.All<Instrument>())
            list.push_back(&instrument);
        std::ranges::stable_sort(list, {}, [](const Instrument* each) { return each->location.word; });
        return list;
    }

    void Add(std::u16string_view place, std::u16string_view what, const std::string& from,
             const std::string& to)
    {
        const std::string name = WideToUtf8(instrument_ + u"|" + std::u16string(what));
        differences.push_back({name, name + " at " + WideToUtf8(place) + ": " + from + " -> " + to});
    }

    void CompareInstruments(const Instrument& a, const Instrument& b)
    {
        instrument_ = a.GetName();
        if (a.GetName() != b.GetName())
            Add(u"", u"Name", WideToUtf8(a.GetName()), WideToUtf8(b.GetName()));
        if (a.location != b.location)
            Add(u"", u"Location", std::to_string(a.location.word), std::to_string(b.location.word));
        const auto left = RegionsOf(a), right = RegionsOf(b);
        if (left.size() != right.size()) {
            Add(u"", u"Regions", std::to_string(left.size()), std::to_string(right.size()));
            return;
        }
        for (std::size_t i = 0; i < left.size(); ++i)
            CompareRegions(left[i], right[i]);
    }

    void CompareRegions(const SoundingRegion& a, const SoundingRegion& b)
    {
        const std::u16string place = ItemPath(*a.region);
        EnvelopeMatches envelopes(a.block, b.block);
        for (ParamId id = 0; id < kArticulationParams; ++id)
            if ((IsHeard(a.block, id) || IsHeard(b.block, id)) && !envelopes.Covers(id))
                CompareValues(place, ArticulationParamRow(id), a.block[id], b.block[id]);
        for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id)
            CompareValues(place, AnyParamRow(id), a.region->trigger.Get(id), b.region->trigger.Get(id));
        CompareLoops(place, *a.region, *b.region);
        CompareWaves(place, *a.region, *b.region);
    }

    void CompareValues(std::u16string_view place, const ParamRow& row, float a, float b)
    {
        ++compared;
        if (!SoundsAlike(row, a, b))
            Add(place, row.name, std::to_string(a), std::to_string(b));
    }

    void CompareLoops(std::u16string_view place, const Region& a, const Region& b)
    {
        constexpr double kFrame = 0.51; // sf2 and dls hold whole frames
        const LoopInfo x = GetEffectiveLoop(a), y = GetEffectiveLoop(b);
        compared += 4;
        if (x.type != y.type)
            Add(place, AnyParamRow(kParamLoopType).name, std::to_string(static_cast<int>(x.type)),
                std::to_string(static_cast<int>(y.type)));
        if (x.type == LoopType::Off || y.type == LoopType::Off)
            return;
        if (std::abs(x.start - y.start) > kFrame)
            Add(place, AnyParamRow(kParamLoopStart).name, std::to_string(x.start), std::to_string(y.start));
        if (std::abs(x.end - y.end) > kFrame)
            Add(place, AnyParamRow(kParamLoopEnd).name, std::to_string(x.end), std::to_string(y.end));
        if (x.breakOnRelease != y.breakOnRelease)
            Add(place, AnyParamRow(kParamLoopRelease).name, std::to_string(x.breakOnRelease),
                std::to_string(y.breakOnRelease));
    }

    void CompareWaves(std::u16string_view place, const Region& a, const Region& b)
    {
        compared += 4;
        Waveform &x = *a.Wave(), &y = *b.Wave();
        if (a.EffectiveRootKey() != b.EffectiveRootKey())
            Add(place, AnyParamRow(kParamWaveRootKey).name, std::to_string(a.EffectiveRootKey()),
                std::to_string(b.EffectiveRootKey()));
        if (a.startOffset != b.startOffset || a.endOffset != b.endOffset)
            Add(place, AnyParamRow(kParamStartOffset).name, std::to_string(a.startOffset),
                std::to_string(b.startOffset));
        if (x.frames != y.frames || x.rateHz != y.rateHz || x.channels != y.channels)
            Add(place, u"Frames", std::to_string(x.frames), std::to_string(y.frames));
        else if (!HaveSameSamples(x, y))
            Add(place, u"Samples", "", "");
    }

    static bool HaveSameSamples(Waveform& a, Waveform& b)
    {
        constexpr std::size_t kCheckedFrames = 4096;
        constexpr float kStep = 1.0f / 32768 * 0.51f;
        const auto left = a.OpenFrames(), right = b.OpenFrames();
        const std::size_t frames = std::min<std::size_t>(a.frames, kCheckedFrames);
        std::vector<float> x(frames * a.channels), y(frames * b.channels);
        return left != nullptr && right != nullptr && left->Read(0, x) && right->Read(0, y) &&
               std::ranges::equal(x, y, [](float p, float q) { return std::abs(p - q) <= kStep; });
    }

    std::u16string instrument_;
};

} // namespace vimbo::testing
