// Instruments, their layers, and the layers' regions.
#pragma once

#include "model/articulation.h"
#include "model/loop_info.h"
#include "model/text_item.h"
#include "model/trigger.h"

#include <array>
#include <memory>
#include <optional>

namespace vimbo {

class Layer;
class Region;
class RegionPlaces;
class SynthModel;
class Waveform;

/// Where an instrument answers in MIDI, in one word: bits 0 to 6 program, bits 7 to 13 bank LSB (controller
/// 32), bits 14 to 20 bank MSB (controller 0), bit 21 drum kit.
struct MidiLocation {
    static constexpr unsigned kBankLsbShift = 7;
    static constexpr unsigned kBankMsbShift = 14;
    static constexpr std::uint32_t kSevenBits = 0x7F;
    static constexpr std::uint32_t kDrumBit = 1u << 21;
    static constexpr std::uint32_t kMask = kDrumBit * 2 - 1; ///< all bits that mean something

    std::uint32_t word = 0;

    constexpr unsigned Program() const noexcept { return Part(0); }
    constexpr unsigned BankLsb() const noexcept { return Part(kBankLsbShift); }
    constexpr unsigned BankMsb() const noexcept { return Part(kBankMsbShift); }
    constexpr bool IsDrum() const noexcept { return (word & kDrumBit) != 0; }

    /// Only the low 7 bits of numbers count.
    constexpr void SetProgram(unsigned program) noexcept { SetPart(0, program); }
    constexpr void SetBankLsb(unsigned bank) noexcept { SetPart(kBankLsbShift, bank); }
    constexpr void SetBankMsb(unsigned bank) noexcept { SetPart(kBankMsbShift, bank); }
    constexpr void SetDrum(bool drum) noexcept { word = drum ? word | kDrumBit : word & ~kDrumBit; }

    friend constexpr bool operator==(MidiLocation, MidiLocation) noexcept = default;

private:
    constexpr unsigned Part(unsigned shift) const noexcept { return word >> shift & kSevenBits; }
    constexpr void SetPart(unsigned shift, unsigned value) noexcept
    {
        word = (word & ~(kSevenBits << shift)) | (value & kSevenBits) << shift;
    }
};

enum class ChannelFxType : std::uint8_t {
    None = 0,
    Chorus = 1,
    Reverb = 2,
    Delay = 3,
    Tremolo = 4,
    Compressor = 5,
    Distortion = 6,
    Phaser = 7,
    Transient = 8
};

/// One insert effect of the instrument's MIDI channel. The values' meanings depend on the type.
struct ChannelFx {
    ChannelFxType type = ChannelFxType::None;
    std::array<std::uint8_t, 3> bytes{};
    std::array<float, 5> values{};
    friend bool operator==(const ChannelFx&, const ChannelFx&) = default;
};
inline constexpr std::size_t kChannelFxSlots = 4;

/// What formats mean that only say "chorus" or "reverb": two slow voices; a middle-sized room.
inline constexpr ChannelFx kDefaultChorus{ChannelFxType::Chorus, {2, 0, 0}, {0.6f, 0.003f, 0, 0, 0}};
inline constexpr ChannelFx kDefaultReverb{ChannelFxType::Reverb, {0, 0, 0}, {0.6f, 0.5f, 0, 0, 0}};
inline constexpr ParamId kChannelFxParams = 8;

/// How MoveArticulationUp treats parameters that not all children agree on.
enum class MoveUpMode : bool {
    AllOrNothing, ///< one difference, and nothing moves
    Individually  ///< what all agree on moves, the rest stays
};
enum class KeepVolumeAndTuning : bool { No, Yes };
enum class MoveParamsUp : bool { No, Yes };
enum class KeepArticulation : bool { No, Yes };

/// One program or drum kit. Its children are layers, which sound together.
class Instrument final : public TextItem {
public:
    static constexpr ItemKind kKind = ItemKind::Instrument;
    Instrument(ItemKey key, Collection& owner) noexcept;
    Instrument(ItemKey key, Collection& owner, const Instrument& source);
    ~Instrument() override;

    MidiLocation
        location; ///< of an instrument made under an exact handle: its serial's low 7 bits as program
    ArticulationBlock articulation;
    std::array<ChannelFx, kChannelFxSlots> channelFx;

    /// While the collection is loading, the name also goes to the host's progress slot.
    void SetName(std::u16string_view name) override;
    void Validate() override;
    bool IsParamSet(ParamId id) const override;
    float GetParam(ParamId id) const override;
    /// Articulation: every layer and region below without the mark follows.
    void SetParam(ParamId id, float value) override;
    void ClearParam(ParamId id, float inherited) override;
    float GetInheritedParam(ParamId id) const override;
    const ParamRow& GetParamInfo(ParamId id) const override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

    /// The layers in order; dead slots are left out.
    std::vector<Layer*> Layers() const;
    /// A new layer, the last unless a place is given. An empty name: "Layer %d".
    Layer& AddLayer(std::u16string_view name = {}, std::size_t place = static_cast<std::size_t>(-1));

    static constexpr int kNoTag = -1;
    /// Adds a region for a waveform where it fits: with layerTag below 0 behind a region of the same velocity
    /// range, else in the first layer without overlap; with a tag of 0 or above only in layers made with that
    /// tag. A new layer is made if none is free. Arguments as for Layer::AddRegion. While the collection is
    /// loading, the ranges of layers and regions that are there already must not change between calls: what
    /// they occupy is kept in mind, so that n regions take O(n log n) time, and in stacks of more than
    /// LayerRoom::kWindow layers only the latest ones are looked at. Otherwise a call goes through all
    /// regions.
    Region& FindOrAddRegion(ItemHandle waveform, MidiRange keys, MidiRange velocities, std::uint8_t rootKey,
                            int layerTag = kNoTag);
    /// A copy of `region` in the first layer without overlap, searched from the one that holds it (from the
    /// first if that is of another instrument); a new layer if there is none. Goes through all regions.
    Region& AddRegionCopy(const Region& region);
    /// The same for one after another, in O(n log n) time for n regions here and there. In stacks of more
    /// than LayerRoom::kWindow layers only the latest ones are looked at. @return the copies, in order
    std::vector<Region*> AddRegionCopies(std::span<const Region* const> regions);
    /// Merges layers whose regions do not overlap into the earlier ones; what a layer sets goes to its
    /// regions first where they differ, so that nothing changes in sound. O(n log n) for n regions and
    /// layers; a layer goes to the first one with room, of those that stay the latest LayerRoom::kWindow
    /// (nearly) are looked at. @return the number of layers that went
    std::size_t CompactLayers(MoveParamsUp moveUp, KeepArticulation keepArticulation);
    /// Moves articulation from the layers (and regions that set values, through their layers) to the
    /// instrument, ids from..to (not included). @return false if the all-or-nothing form found a difference;
    /// nothing changed then
    bool MoveArticulationUp(MoveUpMode mode, ParamId from = 0, ParamId to = kArticulationParams,
                            KeepVolumeAndTuning keep = KeepVolumeAndTuning::No);
    /// What a format without lower levels should store: the average of the layers' effective blocks if
    /// anything is set below, else the own block.
    ArticulationBlock GetEffective() const;
    /// Sets what is set here in every layer that does not set it, and resets the own block to the defaults.
    void PushArticulationDown();

protected:
    std::u16string DefaultName() override;

private:
    void PushParam(ParamId id);
    void LockPhaseGroups();
    void ShowNameAsProgress() const;

    std::unique_ptr<RegionPlaces> places_; ///< while a reader adds regions
};

/// Its children are regions: zones in the plane of keys and velocities that do not overlap.
class Layer final : public LabelItem {
public:
    static constexpr ItemKind kKind = ItemKind::Layer;
    Layer(ItemKey key, Collection& owner) noexcept;
    Layer(ItemKey key, Collection& owner, const Layer& source);

    TriggerParams trigger; ///< defaults for the regions
    ArticulationBlock articulation;
    bool drum = false; ///< copy of the instrument's

    /// Prunes, normalises and inherits; sorts the regions by low key, then low velocity; cuts or destroys
    /// regions until none overlap (the earlier one keeps its place); renames.
    void Validate() override;
    bool IsParamSet(ParamId id) const override;
    float GetParam(ParamId id) const override;
    void SetParam(ParamId id, float value) override;
    void ClearParam(ParamId id, float inherited) override;
    float GetInheritedParam(ParamId id) const override;
    const ParamRow& GetParamInfo(ParamId id) const override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

    /// The regions in order; dead slots are left out.
    std::vector<Region*> Regions() const;
    Instrument* ParentInstrument() const noexcept;
    /// A new region at the end, without regard to overlap.
    /// @param waveform  a waveform or synthesis model; NO_ITEM for none yet
    /// @param keys, velocities  edges of MidiRange::kKeep keep the default; given edges are marked
    /// @param rootKey  override of the waveform's; kNoRootKey for none
    static constexpr std::uint8_t kNoRootKey = 255;
    Region& AddRegion(ItemHandle waveform, MidiRange keys = {MidiRange::kKeep, MidiRange::kKeep},
                      MidiRange velocities = {MidiRange::kKeep, MidiRange::kKeep},
                      std::uint8_t rootKey = kNoRootKey);

    /// True if no region but `except` overlaps both ranges, all as Normalize leaves them. Goes through all
    /// regions.
    bool HasNoOverlap(MidiRange keys, MidiRange velocities, const Region* except = nullptr) const noexcept;
    /// The region at a key and velocity; kAny matches all. Null if there is none.
    static constexpr unsigned kAny = 255;
    Region* FindRegion(unsigned key, unsigned velocity) const noexcept;
    /// Cuts regions other than `except` so that both ranges become free: each is trimmed at the edge that
    /// loses less, or destroyed if it lies wholly inside.
    void ResolveOverlap(MidiRange keys, MidiRange velocities, const Region* except = nullptr);
    /// Fields that all regions agree on move to the layer, marked only if they differ from the default.
    void MoveTriggerUp();
    bool MoveArticulationUp(MoveUpMode mode, ParamId from = 0, ParamId to = kArticulationParams,
                            KeepVolumeAndTuning keep = KeepVolumeAndTuning::No);
    ArticulationBlock GetEffective() const;
    /// Sets what is set here (articulation) in every region that does not set it, and takes the instrument's
    /// values.
    void PushArticulationDown();
    /// "Layer 2: L C3..B4 : 1..64": what there is to show behind the text before the first colon.
    void RebuildName();

private:
    friend class Instrument;
    void PushParam(ParamId id);
    void CutOverlaps(std::vector<Region*>& regions);
};

/// Its one child is the waveform or the synthesis model that it plays; it owns the latter.
class Region final : public LabelItem {
public:
    static constexpr ItemKind kKind = ItemKind::Region;
    Region(ItemKey key, Collection& owner) noexcept;
    Region(ItemKey key, Collection& owner, const Region& source);

    /// Bits of overrideFlags: fields that stand in for the waveform's.
    enum Override : std::uint8_t {
        kRootKey = 1,
        kLoopType = 2,
        kLoopRelease = 4,
        kLoopStart = 8,
        kLoopEnd = 16,
        kLoopPitch = 32,
        kAllOverrides = 63
    };

    TriggerParams trigger;
    std::uint16_t phaseGroup = 0; ///< regions of one group keep their phases locked; 0: none
    std::uint8_t phaseMaster = 0; ///< non-zero: leads its group
    std::uint8_t overrideFlags = 0;
    std::uint8_t rootKey = 60; ///< the waveform's unless overridden; so for the loop's fields
    LoopInfo loop;
    std::int32_t startOffset = 0; ///< frames added to the waveform's start, 0 or more
    std::int32_t endOffset = 0;   ///< frames added to the waveform's end, 0 or less
    ArticulationBlock articulation;

    /// Drops a dead child; normalises trigger and offsets; takes what is not set from layer and waveform;
    /// rebuilds the name.
    void Validate() override;
    bool IsParamSet(ParamId id) const override;
    float GetParam(ParamId id) const override;
    void SetParam(ParamId id, float value) override;
    void ClearParam(ParamId id, float inherited) override;
    float GetInheritedParam(ParamId id) const override;
    const ParamRow& GetParamInfo(ParamId id) const override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

    /// What the region plays; null if it is of the other kind, gone, or not set yet.
    Waveform* Wave() const noexcept;
    SynthModel* Synth() const noexcept;
    /// Makes `sound` the one child and, for a synthesis model, the region its parent. A synthesis model that
    /// stood there before is destroyed. NO_ITEM leaves the region without a child.
    void SetSound(ItemHandle sound);
    Layer* ParentLayer() const noexcept;

    bool Overrides(Override flag) const noexcept { return (overrideFlags & flag) != 0; }
    /// Drops overrides that equal the waveform's values. @return true if one went
    bool DropEqualOverrides() noexcept;
    /// The key at which the waveform plays unshifted: the override, else the waveform's, else 60.
    std::uint8_t EffectiveRootKey() const noexcept;
    /// The same where the waveform is known.
    std::uint8_t RootKeyOn(const Waveform& wave) const noexcept;
    /// "C3..B4 : 1..64 : Piano C3".
    void RebuildName();
    /// The region that controls this one's pitch: the master of its phase group in another layer of the
    /// instrument, with the same trigger ranges. Null if there is none.
    Region* PhaseMaster() const;

private:
    void LimitOffsets(const Waveform* wave) noexcept;
    void SetOwnParam(ParamId id, float value) noexcept;
    void TakeFromWave() noexcept;
    void RenameAfterEdit(ParamId id);
};

/// The first slot with an effect of the type.
std::optional<std::size_t> FindChannelFx(const Instrument& instrument, ChannelFxType type) noexcept;
/// The same; a free slot gets the effect if there is none yet. Nothing if all slots are taken.
std::optional<std::size_t> ProvideChannelFx(Instrument& instrument, const ChannelFx& effect) noexcept;

/// The region's loop with its overrides over the waveform's.
LoopInfo GetEffectiveLoop(const Region& region) noexcept;

/// For readers of formats that hold root key and loop at the region: what all regions of a waveform agree on
/// moves to the waveform, and the overrides go.
void UnifyRegionWaveSettings(Collection& collection);

/// Adds the step of an edit to the same parameter of every item below that sets it ("Propagate down param
/// edit delta"), besides setting it on the item itself.
void SetParamPropagatingDelta(Item& item, ParamId id, float value);

/// Merges `source` into `target`, layers of one instrument, even if regions overlap (they are cut then);
/// what the source layer sets goes to its regions. The source is destroyed.
void MergeLayers(Layer& target, Layer& source);
/// Regions below the item get the full range of keys and velocities, unmarked, where that is free of overlap:
/// one after another in the order of their layer. O(n) for n regions.
void ClearRegionRanges(Item& item);

} // namespace vimbo
