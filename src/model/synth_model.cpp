#include "model/synth_model.h"

#include "base/last_error.h"
#include "model/collection.h"
#include "model/record_text.h"

#include <cstring>

namespace vimbo {

namespace {

struct WaveReferenceRecord {
    U32le isPresent;
    U32le serial; ///< 28 bits; the kind, waveform, is 0
};
static_assert(DiskRecord<WaveReferenceRecord> && sizeof(WaveReferenceRecord) == 8);

constexpr std::uint32_t kModelWithWaves = 1;
constexpr std::array<std::uint32_t, SynthModel::kModels> kBlockBytes{824, 760, 0};
static_assert(SynthModel::kWaveReferenceOffset + SynthModel::kWaveReferences * sizeof(WaveReferenceRecord) ==
              kBlockBytes[kModelWithWaves]);

struct SynthModelRecord {
    U32le model;
    U32le blockBytes;
};
static_assert(DiskRecord<SynthModelRecord> && sizeof(SynthModelRecord) == 8);

} // namespace

SynthModel::SynthModel(ItemKey key, Collection& owner) noexcept : LabelItem(key, owner) {}

SynthModel::SynthModel(ItemKey key, Collection& owner, const SynthModel& source)
    : LabelItem(key, owner, source), model_(source.model_), block_(source.block_)
{
}

std::optional<std::uint32_t> SynthModel::BlockBytes(std::uint32_t model) noexcept
{
    return model < kModels ? std::optional(kBlockBytes[model]) : std::nullopt;
}

bool SynthModel::SetModel(std::uint32_t model)
{
    const std::optional<std::uint32_t> bytes = BlockBytes(model);
    if (!bytes)
        return false;
    block_.assign(*bytes, std::byte{0});
    model_ = model;
    return true;
}

std::span<std::byte> SynthModel::ReferenceBytes(std::size_t index) noexcept
{
    if (model_ != kModelWithWaves || index >= kWaveReferences)
        return {};
    return std::span(block_).subspan(kWaveReferenceOffset + index * sizeof(WaveReferenceRecord),
                                     sizeof(WaveReferenceRecord));
}

ItemHandle SynthModel::WaveReference(std::size_t index) const noexcept
{
    WaveReferenceRecord record;
    if (model_ != kModelWithWaves || index >= kWaveReferences)
        return NO_ITEM;
    ByteReader reader{std::span(block_).subspan(kWaveReferenceOffset + index * sizeof(record))};
    const bool present = reader.Read(record) && record.isPresent.Get() != 0;
    return present ? ItemHandle(ItemKind::Waveform, record.serial.Get()) : NO_ITEM;
}

void SynthModel::SetWaveReference(std::size_t index, ItemHandle wave) noexcept
{
    const std::span<std::byte> place = ReferenceBytes(index);
    if (place.empty())
        return;
    WaveReferenceRecord record;
    if (wave != NO_ITEM) {
        record.isPresent = 1;
        record.serial = wave.Serial();
    }
    std::memcpy(place.data(), &record, sizeof(record));
}

void SynthModel::TranslateHandles(const HandleTranslation& table)
{
    LabelItem::TranslateHandles(table);
    for (std::size_t i = 0; i < kWaveReferences; ++i)
        if (const ItemHandle wave = WaveReference(i); wave != NO_ITEM)
            SetWaveReference(i, table(wave));
}

void SynthModel::Serialize(ByteWriter& out) const
{
    LabelItem::Serialize(out);
    SynthModelRecord record;
    record.model = model_;
    record.blockBytes = static_cast<std::uint32_t>(block_.size());
    out.Write(record);
    out.Append(block_);
}

bool SynthModel::Deserialize(ByteReader& in)
{
    SynthModelRecord record;
    std::span<const std::byte> bytes;
    if (!LabelItem::Deserialize(in))
        return false;
    if (!in.Read(record) || record.blockBytes.Get() != BlockBytes(record.model.Get()) ||
        !in.Take(record.blockBytes.Get(), bytes))
        return Fail(kDamagedRecord);
    block_.assign(bytes.begin(), bytes.end());
    model_ = record.model.Get();
    return true;
}

} // namespace vimbo
