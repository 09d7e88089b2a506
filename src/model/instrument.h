// Instruments, their layers, and the layers' regions.
#pragma once

#include "model/text_item.h"

namespace vimbo {

class SynthModel;
class Waveform;

/// Where an instrument answers in MIDI, in one word: bits 0 to 6 program, bits 7 to 13 bank LSB (controller
/// 32), bits 14 to 20 bank MSB (controller 0), bit 21 drum kit.
struct MidiLocation {
    static constexpr unsigned kBankLsbShift = 7;
    static constexpr unsigned kBankMsbShift = 14;
    static constexpr std::uint32_t kSevenBits = 0x7F;
    static constexpr std::uint32_t kDrumBit = 1u << 21;

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

/// One program or drum kit. Its children are layers, which sound together.
class Instrument final : public TextItem {
public:
    static constexpr ItemKind kKind = ItemKind::Instrument;
    Instrument(ItemKey key, Collection& owner) noexcept;
    Instrument(ItemKey key, Collection& owner, const Instrument& source);

    MidiLocation location;

    /// While the collection is loading, the name also goes to the host's progress slot.
    void SetName(std::u16string_view name) override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

protected:
    std::u16string DefaultName() override;

private:
    void ShowNameAsProgress() const;
};

/// Its children are regions: zones in the plane of keys and velocities.
class Layer final : public LabelItem {
public:
    static constexpr ItemKind kKind = ItemKind::Layer;
    Layer(ItemKey key, Collection& owner) noexcept;
    Layer(ItemKey key, Collection& owner, const Layer& source);
};

/// Its one child is the waveform or the synthesis model that it plays; it owns the latter.
class Region final : public LabelItem {
public:
    static constexpr ItemKind kKind = ItemKind::Region;
    Region(ItemKey key, Collection& owner) noexcept;
    Region(ItemKey key, Collection& owner, const Region& source);

    /// What the region plays; null if it is of the other kind, gone, or not set yet.
    Waveform* Wave() const noexcept;
    SynthModel* Synth() const noexcept;
    /// Makes `sound` the one child and, for a synthesis model, the region its parent. A synthesis model that
    /// stood there before is destroyed. NO_ITEM leaves the region without a child.
    void SetSound(ItemHandle sound);

    [[nodiscard]] bool Deserialize(ByteReader& in) override;
};

} // namespace vimbo
