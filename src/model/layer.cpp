#include "base/last_error.h"
#include "base/numeric.h"
#include "model/levels.h"
#include "model/record_text.h"
#include "model/waveform.h"

#include <algorithm>

namespace vimbo {
namespace {

/// Appends "C3..B4".
void AppendKeys(std::u16string& text, MidiRange keys)
{
    const std::string names = NoteName(keys.low) + ".." + NoteName(keys.high);
    text.append(names.begin(), names.end());
}

void AppendVelocities(std::u16string& text, MidiRange velocities)
{
    const std::string range = std::to_string(velocities.low) + ".." + std::to_string(velocities.high);
    text.append(range.begin(), range.end());
}

/// 'S' if all regions play stereo, 'L' or 'R' if all are panned to that side, else 0.
char16_t SideTag(const Layer& layer) noexcept
{
    struct Sort {
        char16_t letter;
        bool (*holds)(const Region& region);
    };
    static constexpr std::array kSorts{
        Sort{u'S',
             [](const Region& region) { return region.Wave() != nullptr && region.Wave()->channels == 2; }},
        Sort{u'L', [](const Region& region) { return region.articulation[kArtPan] == -1; }},
        Sort{u'R', [](const Region& region) { return region.articulation[kArtPan] == 1; }},
    };
    for (const Sort& sort : kSorts) {
        bool any = false;
        bool all = true;
        for (std::size_t i = 0; all && i < layer.Children().size(); ++i)
            if (const Item* region = layer.Child(i)) {
                any = true;
                all = sort.holds(static_cast<const Region&>(*region));
            }
        if (any && all)
            return sort.letter;
    }
    return 0;
}

std::u16string ShownRanges(const Layer& layer)
{
    std::u16string shown;
    if (!layer.trigger.keys.IsFull())
        AppendKeys(shown, layer.trigger.keys);
    if (layer.trigger.velocities.IsFull())
        return shown;
    if (!shown.empty())
        shown += u" : ";
    AppendVelocities(shown, layer.trigger.velocities);
    return shown;
}

bool ComesBefore(const Region* a, const Region* b) noexcept
{
    if (a->trigger.keys.low != b->trigger.keys.low)
        return a->trigger.keys.low < b->trigger.keys.low;
    return a->trigger.velocities.low < b->trigger.velocities.low;
}

} // namespace

Layer::Layer(ItemKey key, Collection& owner) noexcept : LabelItem(key, owner) {}

Layer::Layer(ItemKey key, Collection& owner, const Layer& source)
    : LabelItem(key, owner, source), trigger(source.trigger), articulation(source.articulation),
      drum(source.drum)
{
}

std::vector<Region*> Layer::Regions() const
{
    std::vector<Region*> regions;
    regions.reserve(Children().size());
    ForEachRegion(*this, [&](Region& region) { regions.push_back(&region); });
    return regions;
}

Instrument* Layer::ParentInstrument() const noexcept
{
    return static_cast<Instrument*>(ParentItem());
}

Region& Layer::AddRegion(ItemHandle waveform, MidiRange keys, MidiRange velocities, std::uint8_t rootKey)
{
    auto& region = Owner().Create<Region>(u"");
    region.SetParent(Handle());
    AddChild(region.Handle());
    region.trigger.InheritFrom(trigger);
    region.articulation.InheritFrom(articulation);
    const auto setEdge = [&](ParamId id, std::uint8_t& edge, std::uint8_t given) {
        if (given == MidiRange::kKeep)
            return;
        edge = given;
        region.trigger.Mark(id);
    };
    setEdge(kParamLowKey, region.trigger.keys.low, keys.low);
    setEdge(kParamHighKey, region.trigger.keys.high, keys.high);
    setEdge(kParamLowVelocity, region.trigger.velocities.low, velocities.low);
    setEdge(kParamHighVelocity, region.trigger.velocities.high, velocities.high);
    if (waveform != NO_ITEM)
        region.SetSound(waveform);
    if (rootKey != kNoRootKey) {
        region.rootKey = rootKey;
        region.overrideFlags |= Region::kRootKey;
    }
    if (NamesFollowEdits(*this))
        region.RebuildName();
    return region;
}

void Layer::RebuildName()
{
    if (Owner().namesWait)
        return;
    std::u16string_view base = GetName();
    base = base.substr(0, base.find(u':'));
    while (!base.empty() && base.back() == u' ')
        base.remove_suffix(1);
    std::u16string name(base);
    const char16_t tag = SideTag(*this);
    const std::u16string ranges = ShownRanges(*this);
    if (tag != 0 || !ranges.empty())
        name += u": ";
    if (tag != 0)
        name.append(1, tag).append(ranges.empty() ? u"" : u" ");
    name += ranges;
    if (name != GetName())
        SetName(name);
}

void Layer::Validate()
{
    Item::Validate();
    trigger.Normalize(Owner().features);
    ResolveLevels(*this);
    std::vector<Region*> regions = Regions();
    std::stable_sort(regions.begin(), regions.end(), ComesBefore);
    CutOverlaps(regions);
    // Cutting moves low edges, so the order may be another one behind it.
    std::stable_sort(regions.begin(), regions.end(), ComesBefore);
    ClearChildren();
    for (const Region* region : regions)
        AddChild(region->Handle());
    RebuildName();
}

bool Layer::IsParamSet(ParamId id) const
{
    if (id < kArticulationParams)
        return articulation.IsSet(id);
    return TriggerParams::IsId(id) && trigger.IsSet(id);
}

float Layer::GetParam(ParamId id) const
{
    return id < kArticulationParams ? articulation[id] : trigger.Get(id);
}

void Layer::SetParam(ParamId id, float value)
{
    if (id < kArticulationParams)
        articulation.Set(id, value);
    else
        trigger.Set(id, value);
    PushParam(id);
}

void Layer::ClearParam(ParamId id, float inherited)
{
    if (id < kArticulationParams) {
        articulation.Assign(id, inherited);
        articulation.Unmark(id);
    } else if (TriggerParams::IsId(id)) {
        trigger.Assign(id, inherited);
        trigger.Unmark(id);
    }
    PushParam(id);
}

void Layer::PushParam(ParamId id)
{
    if (id < kArticulationParams)
        ForEachRegion(*this, [&](Region& region) {
            if (!region.articulation.IsSet(id))
                region.articulation.Inherit(id, articulation[id]);
        });
    else if (TriggerParams::IsId(id))
        ForEachRegion(*this, [&](Region& region) {
            if (region.trigger.InheritFrom(trigger))
                region.RebuildName();
        });
    const bool isShown = id == kArtPan || (id >= kParamLowKey && id <= kParamHighVelocity);
    if (isShown && NamesFollowEdits(*this))
        RebuildName();
}

float Layer::GetInheritedParam(ParamId id) const
{
    return id < kArticulationParams ? BlockAbove(*this)[id] : TriggerParams{}.Get(id);
}

const ParamRow& Layer::GetParamInfo(ParamId id) const
{
    if (id < kArticulationParams)
        return ArticulationParamRow(id);
    return TriggerParams::IsId(id) ? TriggerParamRow(id) : LabelItem::GetParamInfo(id);
}

void Layer::Serialize(ByteWriter& out) const
{
    LabelItem::Serialize(out);
    trigger.Serialize(out);
    articulation.Serialize(out);
    out.Write(std::uint8_t{drum});
}

bool Layer::Deserialize(ByteReader& in)
{
    TriggerParams readTrigger;
    ArticulationBlock readBlock;
    std::uint8_t readDrum = 0;
    if (!LabelItem::Deserialize(in))
        return false;
    if (!readTrigger.Deserialize(in) || !readBlock.Deserialize(in) || !in.Read(readDrum))
        return Fail(kDamagedRecord);
    trigger = readTrigger;
    articulation = readBlock;
    drum = readDrum != 0;
    return true;
}

} // namespace vimbo
