#include "model/articulation.h"

#include "model/articulation_rows.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace vimbo {
namespace {

constexpr std::size_t kWords = 3;
constexpr std::size_t kWordBits = 64;
/// Bits of the last word that belong to an id.
constexpr std::uint64_t kLastWordIds = (std::uint64_t{1} << kArticulationParams % kWordBits) - 1;

constexpr std::uint64_t IdsOfWord(std::size_t word) noexcept
{
    return word + 1 < kWords ? ~std::uint64_t{0} : kLastWordIds;
}

/// Calls `visit(first, count)` for each run of set bits of a word of marks; `first` is an id.
template <class Visit>
void ForRuns(std::uint64_t bits, std::size_t word, Visit visit)
{
    while (bits != 0) {
        const auto start = static_cast<std::size_t>(std::countr_zero(bits));
        const auto count = static_cast<std::size_t>(std::countr_one(bits >> start));
        visit(word * kWordBits + start, count);
        if (start + count >= kWordBits)
            return;
        bits &= ~std::uint64_t{0} << (start + count);
    }
}

/// Ids that say nothing while there is no filter: 24 to 39.
constexpr std::uint64_t kIdsOfFilter = std::uint64_t{0xFFFF} << kArtCutoff;

/// An articulation block in state files.
struct BlockRecord {
    std::array<F32le, kArticulationParams> values;
    std::array<U64le, kWords> set;
};
static_assert(DiskRecord<BlockRecord> && sizeof(BlockRecord) == 780);

float InsideLimits(const ParamRow& row, float value) noexcept
{
    return std::isnan(value) ? row.defaultValue : std::clamp(value, row.minimum, row.maximum);
}

} // namespace

void ArticulationBlock::Reset() noexcept
{
    values_ = kArticulationDefaults;
    set_ = {};
}

void ArticulationBlock::Set(ParamId id, float value) noexcept
{
    if (id >= kArticulationParams)
        return;
    Assign(id, value);
    Mark(id);
}

void ArticulationBlock::Assign(ParamId id, float value) noexcept
{
    if (id < kArticulationParams)
        values_[id] = RoundAndClamp(kArticulationRows[id], value);
}

bool ArticulationBlock::InheritFrom(const ArticulationBlock& source) noexcept
{
    bool changed = false;
    const auto take = [&](std::size_t first, std::size_t count) {
        float* const to = values_.data() + first;
        const float* const from = source.values_.data() + first;
        if (std::memcmp(to, from, count * sizeof(float)) == 0)
            return;
        std::memcpy(to, from, count * sizeof(float));
        changed = true;
    };
    if ((set_[0] | set_[1] | set_[2]) == 0) {
        take(0, kArticulationParams);
        return changed;
    }
    for (std::size_t word = 0; word < kWords; ++word)
        ForRuns(~set_[word] & IdsOfWord(word), word, take);
    return changed;
}

bool ArticulationBlock::ClearRedundant(const ArticulationBlock& source) noexcept
{
    bool changed = false;
    for (std::size_t word = 0; word < kWords; ++word) {
        for (std::uint64_t left = set_[word]; left != 0; left &= left - 1) {
            const std::size_t id = word * kWordBits + static_cast<std::size_t>(std::countr_zero(left));
            if (values_[id] != source.values_[id])
                continue;
            Unmark(static_cast<ParamId>(id));
            changed = true;
        }
    }
    return changed;
}

void ArticulationBlock::PushDownTo(ArticulationBlock& target) const noexcept
{
    for (std::size_t word = 0; word < kWords; ++word) {
        const std::uint64_t pushed = set_[word] & ~target.set_[word];
        ForRuns(pushed, word, [&](std::size_t first, std::size_t count) {
            std::copy_n(values_.begin() + static_cast<std::ptrdiff_t>(first), count,
                        target.values_.begin() + static_cast<std::ptrdiff_t>(first));
        });
        target.set_[word] |= pushed;
    }
}

void ArticulationBlock::MarkDifferences(const ArticulationBlock& source) noexcept
{
    set_ = {};
    for (std::size_t id = 0; id < kArticulationParams; ++id)
        set_[id / kWordBits] |= std::uint64_t{values_[id] != source.values_[id]} << id % kWordBits;
}

bool ArticulationBlock::HasAnySet() const noexcept
{
    const bool noFilter = static_cast<int>(values_[kArtFilterType]) == 0;
    return ((set_[0] & (noFilter ? ~kIdsOfFilter : ~std::uint64_t{0})) | set_[1] | set_[2]) != 0;
}

bool ArticulationBlock::SameValues(const ArticulationBlock& other) const noexcept
{
    return values_ == other.values_;
}

void ArticulationBlock::Serialize(ByteWriter& out) const
{
    BlockRecord record;
    std::ranges::copy(values_, record.values.begin());
    std::ranges::copy(set_, record.set.begin());
    out.Write(record);
}

bool ArticulationBlock::Deserialize(ByteReader& in) noexcept
{
    BlockRecord record;
    if (!in.Read(record))
        return false;
    for (std::size_t id = 0; id < kArticulationParams; ++id)
        values_[id] = InsideLimits(kArticulationRows[id], record.values[id].Get());
    for (std::size_t word = 0; word < kWords; ++word)
        set_[word] = record.set[word].Get() & IdsOfWord(word);
    return true;
}

const ArticulationBlock& DefaultArticulation() noexcept
{
    static const ArticulationBlock kDefaults;
    return kDefaults;
}

ParamGroup GroupOf(ParamId id) noexcept
{
    const auto within = [id](ParamId first, ParamId last) { return id >= first && id <= last; };
    if (within(kArtPLfoToPitch, kArtVelXLfoToPitch) || within(kArtVLfoToVolume, kArtVelVLfoToVolume) ||
        within(kArtFLfoToCutoff, kArtVelFLfoToCutoff) || id == kArtXLfoToPan ||
        within(kArtLfos, kArtEnvelopes - 1))
        return ParamGroup::Lfo;
    if (within(kArtPEnvToPitch, kArtVelPEnvToPitch) || within(kArtFEnvToCutoff, kArtVelFEnvToCutoff) ||
        id == kArtXEnvToPan || within(kArtEnvelopes, kArticulationParams - 1))
        return ParamGroup::Envelope;
    if (within(kArtEqMode, kArtPan - 1))
        return ParamGroup::Eq;
    return within(kArtFilterType, kArtTouchToResonance) ? ParamGroup::Filter : ParamGroup::Other;
}

} // namespace vimbo
