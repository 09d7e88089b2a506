#include "model/instrument.h"

#include "base/last_error.h"
#include "model/levels.h"
#include "model/record_text.h"
#include "model/region_places.h"

#include <algorithm>

namespace vimbo {
namespace {

struct ChannelFxRecord {
    std::uint8_t type;
    std::array<std::uint8_t, 3> bytes;
    std::array<F32le, 5> values;
};
static_assert(DiskRecord<ChannelFxRecord> && sizeof(ChannelFxRecord) * kChannelFxSlots == 96);

constexpr std::u16string_view kUnnamed = u"unnamed";

/// Where an id from 231 to 262 stands: the slot, and the place behind the type, three bytes before five
/// floats.
struct FxPlace {
    explicit FxPlace(ParamId id) noexcept
        : slot(std::size_t{static_cast<std::size_t>(id - kParamChannelFx)} / kChannelFxParams),
          place(std::size_t{static_cast<std::size_t>(id - kParamChannelFx)} % kChannelFxParams)
    {
    }
    std::size_t slot;
    std::size_t place;
};

constexpr bool IsChannelFx(ParamId id) noexcept
{
    return id >= kParamChannelFx && id <= kParamLast;
}

constexpr bool IsLocation(ParamId id) noexcept
{
    return id >= kParamBankMsb && id <= kParamDrum;
}

float FxValue(const std::array<ChannelFx, kChannelFxSlots>& slots, ParamId id) noexcept
{
    const FxPlace at(id);
    const ChannelFx& fx = slots[at.slot];
    return at.place < fx.bytes.size() ? static_cast<float>(fx.bytes[at.place])
                                      : fx.values[at.place - fx.bytes.size()];
}

void SetFxValue(std::array<ChannelFx, kChannelFxSlots>& slots, ParamId id, float value) noexcept
{
    const FxPlace at(id);
    ChannelFx& fx = slots[at.slot];
    const float limited = RoundAndClamp(InstrumentParamRow(id), value);
    if (at.place < fx.bytes.size())
        fx.bytes[at.place] = static_cast<std::uint8_t>(std::clamp(limited, 0.0f, 255.0f));
    else
        fx.values[at.place - fx.bytes.size()] = limited;
}

void NormalizeFx(std::array<ChannelFx, kChannelFxSlots>& slots) noexcept
{
    for (ChannelFx& fx : slots)
        if (fx.type > ChannelFxType::Transient)
            fx = ChannelFx{};
    for (ParamId id = kParamChannelFx; id <= kParamLast; ++id)
        SetFxValue(slots, id, FxValue(slots, id));
}

bool IsUnnamed(const Layer& layer) noexcept
{
    const std::u16string_view base = layer.GetName().substr(0, layer.GetName().find(u':'));
    return base.empty() || base == kUnnamed;
}

void NameByNumber(Layer& layer, std::size_t number)
{
    const std::string name = "Layer " + std::to_string(number);
    layer.SetName(std::u16string(name.begin(), name.end()));
}

} // namespace

Instrument::Instrument(ItemKey key, Collection& owner) noexcept : TextItem(key, owner) {}

Instrument::Instrument(ItemKey key, Collection& owner, const Instrument& source)
    : TextItem(key, owner, source), location(source.location), articulation(source.articulation),
      channelFx(source.channelFx)
{
}

Instrument::~Instrument() = default;

void Instrument::SetName(std::u16string_view name)
{
    TextItem::SetName(name);
    ShowNameAsProgress();
}

void Instrument::ShowNameAsProgress() const
{
    if (Owner().loading)
        Owner().GetHost().SetProgress(GetName());
}

std::vector<Layer*> Instrument::Layers() const
{
    std::vector<Layer*> layers;
    layers.reserve(Children().size());
    ForEachLayer(*this, [&](Layer& layer) { layers.push_back(&layer); });
    return layers;
}

Layer& Instrument::AddLayer(std::u16string_view name, std::size_t place)
{
    auto& layer = Owner().Create<Layer>(name);
    layer.SetParent(Handle());
    AddChild(layer.Handle());
    layer.drum = location.IsDrum();
    layer.articulation.InheritFrom(articulation);
    if (IsUnnamed(layer))
        NameByNumber(layer, Children().size());
    MoveChild(Children().size() - 1, place);
    return layer;
}

void Instrument::Validate()
{
    TextItem::Validate();
    places_.reset();
    NormalizeFx(channelFx);
    std::size_t number = 0;
    ForEachLayer(*this, [&](Layer& layer) {
        ++number;
        if (IsUnnamed(layer)) {
            NameByNumber(layer, number);
            layer.RebuildName();
        }
        layer.drum = location.IsDrum();
        layer.articulation.InheritFrom(articulation);
    });
    LockPhaseGroups();
}

bool Instrument::IsParamSet(ParamId id) const
{
    if (id < kArticulationParams)
        return articulation.IsSet(id);
    if (IsLocation(id) || IsChannelFx(id))
        return GetParam(id) != InstrumentParamRow(id).defaultValue;
    return TextItem::IsParamSet(id);
}

float Instrument::GetParam(ParamId id) const
{
    if (id < kArticulationParams)
        return articulation[id];
    if (IsChannelFx(id))
        return FxValue(channelFx, id);
    switch (id) {
    case kParamBankMsb:
        return static_cast<float>(location.BankMsb());
    case kParamBankLsb:
        return static_cast<float>(location.BankLsb());
    case kParamProgram:
        return static_cast<float>(location.Program());
    case kParamDrum:
        return location.IsDrum() ? 1.0f : 0.0f;
    default:
        return TextItem::GetParam(id);
    }
}

void Instrument::SetParam(ParamId id, float value)
{
    if (id < kArticulationParams) {
        articulation.Set(id, value);
        PushParam(id);
        return;
    }
    if (IsChannelFx(id)) {
        SetFxValue(channelFx, id, value);
        return;
    }
    const auto number = static_cast<unsigned>(RoundAndClamp(InstrumentParamRow(id), value));
    switch (id) {
    case kParamBankMsb:
        location.SetBankMsb(number);
        break;
    case kParamBankLsb:
        location.SetBankLsb(number);
        break;
    case kParamProgram:
        location.SetProgram(number);
        break;
    case kParamDrum:
        location.SetDrum(number != 0);
        ForEachLayer(*this, [&](Layer& layer) { layer.drum = number != 0; });
        break;
    default:
        TextItem::SetParam(id, value);
    }
}

void Instrument::ClearParam(ParamId id, float inherited)
{
    if (id >= kArticulationParams) {
        SetParam(id, inherited);
        return;
    }
    articulation.Assign(id, inherited);
    articulation.Unmark(id);
    PushParam(id);
}

void Instrument::PushParam(ParamId id)
{
    ForEachLayer(*this, [&](Layer& layer) {
        if (layer.articulation.IsSet(id))
            return;
        layer.articulation.Inherit(id, articulation[id]);
        layer.PushParam(id);
    });
}

float Instrument::GetInheritedParam(ParamId id) const
{
    return id < kArticulationParams ? DefaultArticulation()[id] : GetParamInfo(id).defaultValue;
}

const ParamRow& Instrument::GetParamInfo(ParamId id) const
{
    if (id < kArticulationParams)
        return ArticulationParamRow(id);
    return IsLocation(id) || IsChannelFx(id) ? InstrumentParamRow(id) : TextItem::GetParamInfo(id);
}

void Instrument::Serialize(ByteWriter& out) const
{
    TextItem::Serialize(out);
    out.Write(U32le(location.word));
    articulation.Serialize(out);
    for (const ChannelFx& fx : channelFx) {
        ChannelFxRecord record{};
        record.type = static_cast<std::uint8_t>(fx.type);
        record.bytes = fx.bytes;
        for (std::size_t i = 0; i < fx.values.size(); ++i)
            record.values[i] = fx.values[i];
        out.Write(record);
    }
}

bool Instrument::Deserialize(ByteReader& in)
{
    U32le word;
    ArticulationBlock readBlock;
    std::array<ChannelFx, kChannelFxSlots> readFx;
    if (!TextItem::Deserialize(in))
        return false;
    if (!in.Read(word) || !readBlock.Deserialize(in))
        return Fail(kDamagedRecord);
    for (ChannelFx& fx : readFx) {
        ChannelFxRecord record;
        if (!in.Read(record))
            return Fail(kDamagedRecord);
        fx.type = static_cast<ChannelFxType>(record.type);
        fx.bytes = record.bytes;
        for (std::size_t i = 0; i < fx.values.size(); ++i)
            fx.values[i] = record.values[i].Get();
    }
    location.word = word.Get();
    articulation = readBlock;
    channelFx = readFx;
    NormalizeFx(channelFx);
    ShowNameAsProgress();
    return true;
}

std::optional<std::size_t> FindChannelFx(const Instrument& instrument, ChannelFxType type) noexcept
{
    const auto found = std::ranges::find(instrument.channelFx, type, &ChannelFx::type);
    if (found == instrument.channelFx.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - instrument.channelFx.begin());
}

std::optional<std::size_t> ProvideChannelFx(Instrument& instrument, const ChannelFx& effect) noexcept
{
    if (const auto present = FindChannelFx(instrument, effect.type))
        return present;
    const auto free = FindChannelFx(instrument, ChannelFxType::None);
    if (free)
        instrument.channelFx[*free] = effect;
    return free;
}

} // namespace vimbo
