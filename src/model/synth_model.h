// Patches of synthesizers that regions play in place of waveforms.
#pragma once

#include "model/text_item.h"

#include <optional>

namespace vimbo {

/// A model number and its parameter block. A model of number 1 may play waveforms of the collection: its
/// block ends with eight records {u32 presence flag, u32 serial of the waveform}, at bytes 696 to 759,
/// little-endian.
class SynthModel final : public LabelItem {
public:
    static constexpr ItemKind kKind = ItemKind::SynthModel;
    static constexpr std::uint32_t kModels = 3;
    static constexpr std::size_t kWaveReferences = 8;
    static constexpr std::size_t kWaveReferenceOffset = 696;

    SynthModel(ItemKey key, Collection& owner) noexcept;
    SynthModel(ItemKey key, Collection& owner, const SynthModel& source);

    /// Bytes of a model's block: 824, 760, 0; none for other numbers.
    static std::optional<std::uint32_t> BlockBytes(std::uint32_t model) noexcept;

    /// A new item is of model 2, whose block is empty.
    std::uint32_t Model() const noexcept { return model_; }
    /// Chooses the model and gives it a block of zeros. False for a number above 2; nothing changes then.
    bool SetModel(std::uint32_t model);
    /// Always BlockBytes(Model()) bytes.
    std::span<std::byte> Block() noexcept { return block_; }
    std::span<const std::byte> Block() const noexcept { return block_; }

    /// The waveform that a model of number 1 refers to at `index` (below 8); NO_ITEM if none, and for other
    /// models.
    ItemHandle WaveReference(std::size_t index) const noexcept;
    /// NO_ITEM clears the reference. A bad index or another model: nothing.
    void SetWaveReference(std::size_t index, ItemHandle wave) noexcept;

    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

protected:
    void TranslateHandles(const HandleTranslation& table) override;

private:
    std::span<std::byte> ReferenceBytes(std::size_t index) noexcept;

    std::uint32_t model_ = 2;
    std::vector<std::byte> block_;
};

} // namespace vimbo
