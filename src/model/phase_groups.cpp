// Regions that keep their phases locked, as the two sides of a stereo sound: one of them leads in pitch.
#include "model/levels.h"

#include <algorithm>
#include <tuple>

namespace vimbo {
namespace {

constexpr ParamId kEnvelopeParams = 27;
constexpr ParamId kPitchEnvelope = kArtEnvelopes + kEnvelopeParams;
constexpr ParamId kLfoParams = 4;
constexpr ParamId kPitchLfo = kArtLfos;
constexpr ParamId kExtraLfo = kArtLfos + 3 * kLfoParams;

/// Calls f(id) for everything that the leader's pitch depends on.
template <class F>
void ForEachPitchId(const ArticulationBlock& leader, F f)
{
    const auto range = [&](ParamId first, ParamId count) {
        for (ParamId id = first; id < first + count; ++id)
            f(id);
    };
    range(kArtTuning, kArtRandomToPitch - kArtTuning + 1);
    if (leader[kArtPEnvToPitch] != 0 || leader[kArtVelPEnvToPitch] != 0)
        range(kPitchEnvelope, kEnvelopeParams);
    range(kPitchLfo, kLfoParams);
    const bool extraLfoToPitch = leader[kArtXLfoToPitch] != 0 || leader[kArtWheelXLfoToPitch] != 0 ||
                                 leader[kArtTouchXLfoToPitch] != 0;
    if (leader[kArtXLfoToPan] == 0 && extraLfoToPitch)
        range(kExtraLfo, kLfoParams);
}

struct Member {
    Layer* layer;
    Region* region;
    const Region* leader = nullptr; ///< in another layer; null for the leader itself

    auto Key() const noexcept
    {
        return std::tuple(region->phaseGroup, region->trigger.keys.Word(), region->trigger.velocities.Word());
    }
};

/// The regions of phase groups in the order of layers and regions.
std::vector<Member> Members(const Instrument& instrument)
{
    std::vector<Member> members;
    ForEachLayer(instrument, [&](Layer& layer) {
        ForEachRegion(layer, [&](Region& region) {
            if (region.phaseGroup != 0)
                members.push_back({&layer, &region});
        });
    });
    return members;
}

bool HasMaster(const std::vector<Member>& members) noexcept
{
    return std::any_of(members.begin(), members.end(),
                       [](const Member& member) { return member.region->phaseMaster != 0; });
}

/// The first master of a group and its ranges leads all regions with the same ones in other layers: others
/// would only hand on what they got from it.
void FindLeaders(std::vector<Member>& members)
{
    std::vector<Member*> order;
    for (Member& member : members)
        order.push_back(&member);
    std::stable_sort(order.begin(), order.end(),
                     [](const Member* a, const Member* b) { return a->Key() < b->Key(); });
    for (auto first = order.begin(); first != order.end();) {
        const auto last = std::find_if(
            first, order.end(), [&](const Member* member) { return member->Key() != (*first)->Key(); });
        const auto leader =
            std::find_if(first, last, [](const Member* member) { return member->region->phaseMaster != 0; });
        if (leader != last)
            std::for_each(first, last, [&](Member* member) {
                if (member->layer != (*leader)->layer)
                    member->leader = (*leader)->region;
            });
        first = last;
    }
}

/// If every region of a layer follows, and all to the same value, the layer has it too.
void LockLayer(Layer& layer, std::span<const Member> members)
{
    std::array<std::size_t, kArticulationParams> agreeing{};
    const ArticulationBlock& first = members.front().leader->articulation;
    for (const Member& member : members)
        ForEachPitchId(member.leader->articulation, [&](ParamId id) {
            agreeing[id] += member.leader->articulation[id] == first[id] ? 1 : 0;
        });
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (agreeing[id] == layer.Children().size() && layer.articulation[id] != first[id]) {
            layer.articulation.Inherit(id, first[id]);
            layer.articulation.Mark(id);
        }
}

void LockRegion(const Member& member)
{
    ArticulationBlock& block = member.region->articulation;
    const ArticulationBlock& leader = member.leader->articulation;
    ForEachPitchId(leader, [&](ParamId id) {
        const bool isSet = block.IsSet(id);
        block.Inherit(id, leader[id]);
        if (isSet || leader[id] != member.layer->articulation[id])
            block.Mark(id);
    });
}

} // namespace

void Instrument::LockPhaseGroups()
{
    if (!HasMaster(Members(*this)))
        return;
    // Ranges are compared and values copied, so both have to be final.
    ForEachLayer(*this, [](Layer& layer) { layer.Validate(); });
    std::vector<Member> members = Members(*this);
    FindLeaders(members);
    std::erase_if(members, [](const Member& member) { return member.leader == nullptr; });
    const std::span<const Member> all(members); // runs of one layer stand together
    for (std::size_t first = 0, last; first < all.size(); first = last) {
        for (last = first; last < all.size() && all[last].layer == all[first].layer;)
            ++last;
        LockLayer(*all[first].layer, all.subspan(first, last - first));
        for (const Member& member : all.subspan(first, last - first))
            LockRegion(member);
    }
}

Region* Region::PhaseMaster() const
{
    const Layer* layer = ParentLayer();
    const Instrument* instrument = layer != nullptr ? layer->ParentInstrument() : nullptr;
    if (instrument == nullptr || phaseGroup == 0)
        return nullptr;
    Region* master = nullptr;
    ForEachLayer(*instrument, [&](const Layer& other) {
        ForEachRegion(other, [&](Region& region) {
            if (master == nullptr && region.phaseMaster != 0 && region.phaseGroup == phaseGroup &&
                region.trigger.keys == trigger.keys && region.trigger.velocities == trigger.velocities)
                master = &region;
        });
    });
    return master != nullptr && master->ParentLayer() != layer ? master : nullptr;
}

} // namespace vimbo
