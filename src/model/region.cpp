#include "base/last_error.h"
#include "base/numeric.h"
#include "model/levels.h"
#include "model/record_text.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vimbo {
namespace {

constexpr std::uint8_t kMaxKey = 127;
constexpr std::uint8_t kMiddleC = 60;
constexpr std::u16string_view kNoSound = u"unnamed";

/// Velocity 0 is a note-off, so a range from 1 is as good as full.
constexpr std::uint8_t kLowestVelocity = 1;

struct RegionRecord {
    U16le phaseGroup;
    std::uint8_t phaseMaster;
    std::uint8_t overrideFlags;
    std::uint8_t rootKey;
};
static_assert(DiskRecord<RegionRecord> && sizeof(RegionRecord) == 5);

struct OffsetRecord {
    I32le start, end;
};
static_assert(DiskRecord<OffsetRecord> && sizeof(OffsetRecord) == 8);

constexpr bool IsLoop(ParamId id) noexcept
{
    return id >= kParamLoopType && id <= kParamLoopPitch;
}

constexpr bool IsOwn(ParamId id) noexcept
{
    return IsLoop(id) || (id >= kParamRegionRootKey && id <= kParamPhaseMaster);
}

/// The flag of an id that can stand in for the waveform's; 0 for others.
constexpr std::uint8_t OverrideOf(ParamId id) noexcept
{
    if (id == kParamRegionRootKey)
        return Region::kRootKey;
    return IsLoop(id) ? static_cast<std::uint8_t>(Region::kLoopType << (id - kParamLoopType))
                      : std::uint8_t{0};
}

float LoopValue(const LoopInfo& loop, ParamId id) noexcept
{
    switch (id) {
    case kParamLoopType:
        return static_cast<float>(loop.type);
    case kParamLoopRelease:
        return loop.breakOnRelease ? 1.0f : 0.0f;
    case kParamLoopStart:
        return static_cast<float>(loop.start);
    case kParamLoopEnd:
        return static_cast<float>(loop.end);
    default:
        return loop.pitch;
    }
}

/// Loop points are not rounded: single precision has no hundredths in long waveforms. Validate does it.
void SetLoopValue(LoopInfo& loop, ParamId id, float value) noexcept
{
    const ParamRow& row = RegionParamRow(id);
    const float limited = std::isnan(value) ? row.defaultValue : std::clamp(value, row.minimum, row.maximum);
    switch (id) {
    case kParamLoopType:
        loop.type = static_cast<LoopType>(RoundToInt(limited));
        break;
    case kParamLoopRelease:
        loop.breakOnRelease = limited != 0;
        break;
    case kParamLoopStart:
        loop.start = limited;
        break;
    case kParamLoopEnd:
        loop.end = limited;
        break;
    default:
        loop.pitch = RoundAndClamp(row, value);
    }
}

/// Brings a loop from outside into the limits that hold for waveforms of any length.
void LimitLoop(LoopInfo& loop) noexcept
{
    static constexpr LoopInfo kDefaults;
    const auto limit = [](double point, double otherwise) {
        return std::isnan(point) ? otherwise : std::clamp(point, 0.0, kDefaults.end);
    };
    loop.start = limit(loop.start, kDefaults.start);
    loop.end = limit(loop.end, kDefaults.end);
    loop.pitch = RoundAndClamp(RegionParamRow(kParamLoopPitch), loop.pitch);
}

std::uint8_t KeyOrMiddleC(unsigned key) noexcept
{
    return key <= kMaxKey ? static_cast<std::uint8_t>(key) : kMiddleC;
}

/// Names of keys 0 to 127, made once: big banks name tens of thousands.
std::string_view KeyName(std::uint8_t key)
{
    static const auto kNames = [] {
        std::array<std::string, kMaxKey + 1> names;
        for (std::size_t i = 0; i < names.size(); ++i)
            names[i] = NoteName(static_cast<int>(i));
        return names;
    }();
    return kNames[std::min(key, kMaxKey)];
}

/// Loop of the region on a waveform: overrides are rounded and clamped, the other fields are the waveform's
/// as its own Validate leaves them.
LoopInfo NormalizedLoop(const Region& region, const Waveform& wave, FeatureMask features) noexcept
{
    LoopInfo below = wave.loop;
    NormalizeLoop(below, wave.frames, features);
    const bool ownStart = region.Overrides(Region::kLoopStart);
    const bool ownEnd = region.Overrides(Region::kLoopEnd);
    LoopInfo loop = GetEffectiveLoop(region);
    if (!ownStart)
        loop.start = below.start;
    if (!ownEnd)
        loop.end = below.end;
    NormalizeLoop(loop, wave.frames, features);
    if (ownStart && !ownEnd)
        loop.end = below.end; // it moves along where whole lengths are wanted
    if (!ownStart && ownEnd)
        loop.start = below.start;
    if (loop.start >= loop.end && ownStart)
        loop.start = 0;
    else if (loop.start >= loop.end)
        loop.end = wave.frames;
    if (!features.Has(Feature::WaveLoopTuning))
        loop.pitch = 0;
    return loop;
}

} // namespace

Region::Region(ItemKey key, Collection& owner) noexcept : LabelItem(key, owner) {}

Region::Region(ItemKey key, Collection& owner, const Region& source)
    : LabelItem(key, owner, source), trigger(source.trigger), phaseGroup(source.phaseGroup),
      phaseMaster(source.phaseMaster), overrideFlags(source.overrideFlags), rootKey(source.rootKey),
      loop(source.loop), startOffset(source.startOffset), endOffset(source.endOffset),
      articulation(source.articulation)
{
}

Waveform* Region::Wave() const noexcept
{
    Item* sound = Child(0);
    return sound != nullptr && sound->Kind() == ItemKind::Waveform ? static_cast<Waveform*>(sound) : nullptr;
}

SynthModel* Region::Synth() const noexcept
{
    Item* sound = Child(0);
    return sound != nullptr && sound->Kind() == ItemKind::SynthModel ? static_cast<SynthModel*>(sound)
                                                                     : nullptr;
}

void Region::SetSound(ItemHandle sound)
{
    if (const SynthModel* before = Synth(); before != nullptr && before->Handle() != sound)
        Owner().Destroy(before->Handle());
    ClearChildren();
    if (sound == NO_ITEM)
        return;
    AddChild(sound);
    if (SynthModel* model = Synth())
        model->SetParent(Handle());
}

Layer* Region::ParentLayer() const noexcept
{
    return static_cast<Layer*>(ParentItem());
}

std::uint8_t Region::EffectiveRootKey() const noexcept
{
    if (Overrides(kRootKey))
        return KeyOrMiddleC(rootKey);
    const Waveform* wave = Wave();
    return wave != nullptr ? RootKeyOn(*wave) : kMiddleC;
}

std::uint8_t Region::RootKeyOn(const Waveform& wave) const noexcept
{
    return KeyOrMiddleC(Overrides(kRootKey) ? rootKey : wave.rootKey);
}

void Region::RebuildName()
{
    if (Owner().namesWait)
        return;
    // Built without memory of its own: nearly always nothing has changed.
    std::array<char16_t, 64> head{};
    std::size_t length = 0;
    const auto append = [&](std::string_view text) {
        for (const char c : text)
            head[length++] = static_cast<char16_t>(c);
    };
    append(KeyName(trigger.keys.low));
    append("..");
    append(KeyName(trigger.keys.high));
    if (trigger.velocities.low > kLowestVelocity || trigger.velocities.high != kMaxKey) {
        append(" : ");
        append(std::to_string(trigger.velocities.low));
        append("..");
        append(std::to_string(trigger.velocities.high));
    }
    append(" : ");
    const Item* sound = Child(0);
    const std::u16string_view tail = sound != nullptr ? sound->GetName() : kNoSound;
    const std::u16string_view start(head.data(), length);
    const std::u16string_view before = GetName();
    if (before.starts_with(start) && before.substr(length) == tail)
        return;
    std::u16string name;
    name.reserve(length + tail.size());
    SetName(name.append(start).append(tail));
}

void Region::Validate()
{
    Item::Validate();
    if (const Layer* layer = ParentLayer()) {
        ResolveTrigger(*this, *layer);
        articulation.InheritFrom(layer->articulation);
    } else {
        trigger.Normalize(Owner().features);
    }
    RebuildName();
    overrideFlags &= kAllOverrides;
    rootKey = EffectiveRootKey();
    const Waveform* wave = Wave();
    if (wave != nullptr)
        loop = NormalizedLoop(*this, *wave, Owner().features);
    else
        LimitLoop(loop);
    LimitOffsets(wave);
}

void Region::LimitOffsets(const Waveform* wave) noexcept
{
    if (!Owner().features.Has(Feature::WaveRegionOffsets)) {
        startOffset = endOffset = 0;
        return;
    }
    constexpr std::uint32_t kFarthest = std::numeric_limits<std::int32_t>::max();
    const std::uint32_t frames = wave != nullptr ? wave->frames : kFarthest;
    const auto last = static_cast<std::int32_t>(std::min(frames > 0 ? frames - 1 : 0, kFarthest));
    startOffset = std::clamp(startOffset, 0, last);
    endOffset = std::clamp(endOffset, startOffset - last, 0); // one frame is left between them
}

bool Region::IsParamSet(ParamId id) const
{
    if (id < kArticulationParams)
        return articulation.IsSet(id);
    if (TriggerParams::IsId(id))
        return trigger.IsSet(id);
    if (const std::uint8_t flag = OverrideOf(id))
        return (overrideFlags & flag) != 0;
    return GetParam(id) != 0;
}

float Region::GetParam(ParamId id) const
{
    if (id < kArticulationParams)
        return articulation[id];
    if (IsLoop(id))
        return LoopValue(GetEffectiveLoop(*this), id);
    switch (id) {
    case kParamRegionRootKey:
        return EffectiveRootKey();
    case kParamStartOffset:
        return static_cast<float>(startOffset);
    case kParamEndOffset:
        return static_cast<float>(endOffset);
    case kParamPhaseGroup:
        return phaseGroup;
    case kParamPhaseMaster:
        return phaseMaster;
    default:
        return trigger.Get(id);
    }
}

void Region::SetOwnParam(ParamId id, float value) noexcept
{
    if (IsLoop(id)) {
        SetLoopValue(loop, id, value);
        return;
    }
    const int number = RoundToInt(RoundAndClamp(RegionParamRow(id), value));
    switch (id) {
    case kParamRegionRootKey:
        rootKey = static_cast<std::uint8_t>(number);
        break;
    case kParamStartOffset:
        startOffset = number;
        break;
    case kParamEndOffset:
        endOffset = number;
        break;
    case kParamPhaseGroup:
        phaseGroup = static_cast<std::uint16_t>(number);
        break;
    default:
        phaseMaster = static_cast<std::uint8_t>(number);
    }
}

void Region::SetParam(ParamId id, float value)
{
    if (id < kArticulationParams)
        articulation.Set(id, value);
    else if (TriggerParams::IsId(id))
        trigger.Set(id, value);
    else if (IsOwn(id))
        SetOwnParam(id, value);
    overrideFlags |= OverrideOf(id);
    RenameAfterEdit(id);
}

void Region::ClearParam(ParamId id, float inherited)
{
    if (id < kArticulationParams) {
        articulation.Assign(id, inherited);
        articulation.Unmark(id);
    } else if (TriggerParams::IsId(id)) {
        trigger.Assign(id, inherited);
        trigger.Unmark(id);
    } else if (const std::uint8_t flag = OverrideOf(id)) {
        overrideFlags &= static_cast<std::uint8_t>(~flag);
        SetOwnParam(id, inherited); // for regions without a waveform
        TakeFromWave();
    } else if (IsOwn(id)) {
        SetOwnParam(id, 0);
    }
    RenameAfterEdit(id);
}

void Region::TakeFromWave() noexcept
{
    loop = GetEffectiveLoop(*this);
    if (!Overrides(kRootKey) && Wave() != nullptr)
        rootKey = EffectiveRootKey();
}

void Region::RenameAfterEdit(ParamId id)
{
    if (id >= kParamLowKey && id <= kParamHighVelocity)
        RebuildName();
    if (id != kArtPan || !NamesFollowEdits(*this))
        return;
    if (Layer* layer = ParentLayer())
        layer->RebuildName();
}

float Region::GetInheritedParam(ParamId id) const
{
    const Layer* layer = ParentLayer();
    if (id < kArticulationParams)
        return layer != nullptr ? layer->articulation[id] : DefaultArticulation()[id];
    if (TriggerParams::IsId(id))
        return layer != nullptr ? layer->trigger.Get(id) : TriggerParams{}.Get(id);
    if (const Waveform* wave = Wave(); wave != nullptr && OverrideOf(id) != 0)
        return id == kParamRegionRootKey ? KeyOrMiddleC(wave->rootKey) : LoopValue(wave->loop, id);
    return GetParamInfo(id).defaultValue;
}

const ParamRow& Region::GetParamInfo(ParamId id) const
{
    const Waveform* wave = Wave();
    if (IsLoop(id) && wave != nullptr)
        return wave->GetParamInfo(id); // whole loop points, if the user wants no others
    return IsOwn(id) || id <= kLastTriggerParam ? AnyParamRow(id) : LabelItem::GetParamInfo(id);
}

void Region::Serialize(ByteWriter& out) const
{
    LabelItem::Serialize(out);
    trigger.Serialize(out);
    RegionRecord record{};
    record.phaseGroup = phaseGroup;
    record.phaseMaster = phaseMaster;
    record.overrideFlags = overrideFlags;
    record.rootKey = rootKey;
    out.Write(record);
    WriteLoop(out, loop);
    OffsetRecord offsets{};
    offsets.start = startOffset;
    offsets.end = endOffset;
    out.Write(offsets);
    articulation.Serialize(out);
}

bool Region::Deserialize(ByteReader& in)
{
    TriggerParams readTrigger;
    RegionRecord record;
    LoopInfo readLoop;
    OffsetRecord offsets;
    ArticulationBlock readBlock;
    const bool isRead = LabelItem::Deserialize(in);
    const bool hasManySounds = Children().size() > 1;
    if (hasManySounds)
        ClearChildren();
    if (!isRead)
        return false;
    if (hasManySounds || !readTrigger.Deserialize(in) || !in.Read(record) || !ReadLoop(in, readLoop) ||
        !in.Read(offsets) || !readBlock.Deserialize(in))
        return Fail(kDamagedRecord);
    LimitLoop(readLoop);
    trigger = readTrigger;
    phaseGroup = record.phaseGroup.Get();
    phaseMaster = record.phaseMaster;
    overrideFlags = record.overrideFlags & kAllOverrides;
    rootKey = KeyOrMiddleC(record.rootKey);
    loop = readLoop;
    startOffset = std::max(offsets.start.Get(), 0);
    endOffset = std::min(offsets.end.Get(), 0);
    articulation = readBlock;
    return true;
}

} // namespace vimbo
