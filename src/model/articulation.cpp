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
constexpr ArticulationBlock::MarkWords kAllIds{IdsOfWord(0), IdsOfWord(1), IdsOfWord(2)};

ArticulationBlock::MarkWords And(const ArticulationBlock::MarkWords& a,
                                 const ArticulationBlock::MarkWords& b) noexcept
{
    return {a[0] & b[0], a[1] & b[1], a[2] & b[2]};
}

/// So many values are faster compared one by one, more of them all together.
constexpr int kFewIds = 20;

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

/// Calls `visit(id)` for each set bit of a word of marks.
template <class Visit>
void ForIds(std::uint64_t bits, std::size_t word, Visit visit)
{
    for (; bits != 0; bits &= bits - 1)
        visit(word * kWordBits + static_cast<std::size_t>(std::countr_zero(bits)));
}

/// The ids for which `differ(a, b)` holds. Without branches, so that compilers make vector code of it.
template <class F>
ArticulationBlock::MarkWords IdsWhere(const SharedValues::Array& a, const SharedValues::Array& b,
                                      F differ) noexcept
{
    std::array<std::uint8_t, kWords * kWordBits> flags{};
    for (std::size_t id = 0; id < kArticulationParams; ++id)
        flags[id] = differ(a[id], b[id]) ? 1 : 0;
    ArticulationBlock::MarkWords ids{};
    for (std::size_t octet = 0; octet < flags.size() / 8; ++octet) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &flags[octet * 8], 8);
        // Brings the lowest bits of the eight bytes side by side, the first one lowest.
        bits *= std::endian::native == std::endian::little ? 0x0102040810204080 : 0x8040201008040201;
        ids[octet / 8] |= (bits >> 56) << octet % 8 * 8;
    }
    return ids;
}

ArticulationBlock::MarkWords DifferingIds(const SharedValues::Array& a, const SharedValues::Array& b) noexcept
{
    return IdsWhere(a, b, [](float one, float other) { return one != other; });
}

/// The same, but a negative zero is no zero, and what is no number equals itself.
ArticulationBlock::MarkWords DifferingBits(const SharedValues::Array& a,
                                           const SharedValues::Array& b) noexcept
{
    return IdsWhere(a, b, [](float one, float other) {
        return std::bit_cast<std::uint32_t>(one) != std::bit_cast<std::uint32_t>(other);
    });
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

void ArticulationBlock::Set(ParamId id, float value)
{
    if (id >= kArticulationParams)
        return;
    Assign(id, value);
    Mark(id);
}

void ArticulationBlock::Assign(ParamId id, float value)
{
    if (id >= kArticulationParams)
        return;
    // Most of what readers store is the default, which is rounded already.
    const float standard = kArticulationDefaults[id];
    const bool isStandard = std::bit_cast<std::uint32_t>(value) == std::bit_cast<std::uint32_t>(standard);
    Store(id, isStandard ? value : RoundAndClamp(kArticulationRows[id], value));
}

bool ArticulationBlock::InheritFrom(const ArticulationBlock& source)
{
    if (!above_.IsSharedWith(source.values_)) {
        const MarkWords moved = DifferingBits(above_.Get(), source.values_.Get());
        for (std::size_t word = 0; word < kWords; ++word)
            own_[word] |= moved[word];
        above_ = source.values_;
    }
    const bool changed = !SharesValues(source) && TakeUnmarked(source);
    own_ = SharesValues(source) ? MarkWords{} : And(own_, set_);
    return changed;
}

/// Takes from the block above what is not marked. @return true if a value changed
bool ArticulationBlock::TakeUnmarked(const ArticulationBlock& source)
{
    const SharedValues::Array& from = source.values_.Get();
    MarkWords taken;
    bool changed = false;
    for (std::size_t word = 0; word < kWords; ++word) {
        taken[word] = own_[word] & ~set_[word];
        ForRuns(taken[word], word, [&](std::size_t first, std::size_t count) {
            changed = changed || std::memcmp(&values_.Get()[first], &from[first], count * sizeof(float)) != 0;
        });
    }
    if ((set_[0] | set_[1] | set_[2]) == 0)
        values_ = source.values_;
    else if (changed)
        for (std::size_t word = 0; word < kWords; ++word)
            ForRuns(taken[word], word, [&, &to = values_.Own()](std::size_t first, std::size_t count) {
                std::memcpy(&to[first], &from[first], count * sizeof(float));
            });
    return changed;
}

bool ArticulationBlock::ClearRedundant(const ArticulationBlock& source) noexcept
{
    const MarkWords before = set_;
    if (SharesValues(source)) {
        set_ = {};
        return set_ != before;
    }
    for (std::size_t word = 0; word < kWords; ++word)
        ForIds(set_[word], word, [&](std::size_t id) {
            if (values_.Get()[id] == source.values_.Get()[id])
                Unmark(static_cast<ParamId>(id));
        });
    return set_ != before;
}

void ArticulationBlock::PushDownTo(ArticulationBlock& target) const
{
    const SharedValues::Array& from = values_.Get();
    for (std::size_t word = 0; word < kWords; ++word) {
        const std::uint64_t pushed = set_[word] & ~target.set_[word];
        ForIds(pushed, word, [&](std::size_t id) { target.Store(static_cast<ParamId>(id), from[id]); });
        target.set_[word] |= pushed;
    }
}

/// Blocks below one level differ only where they hold values of their own.
ArticulationBlock::MarkWords ArticulationBlock::MayDiffer(const ArticulationBlock& other) const noexcept
{
    if (above_.IsSharedWith(other.values_))
        return own_;
    if (other.above_.IsSharedWith(values_))
        return other.own_;
    if (!above_.IsSharedWith(other.above_))
        return kAllIds;
    return {own_[0] | other.own_[0], own_[1] | other.own_[1], own_[2] | other.own_[2]};
}

ArticulationBlock::MarkWords ArticulationBlock::DifferenceTo(const ArticulationBlock& other) const noexcept
{
    return DifferenceTo(other, kAllIds);
}

ArticulationBlock::MarkWords ArticulationBlock::DifferenceTo(const ArticulationBlock& other,
                                                             const MarkWords& among) const noexcept
{
    if (SharesValues(other))
        return {};
    const SharedValues::Array &values = values_.Get(), &others = other.values_.Get();
    MarkWords ids = And(MayDiffer(other), among);
    if (std::popcount(ids[0]) + std::popcount(ids[1]) + std::popcount(ids[2]) > kFewIds)
        return And(DifferingIds(values, others), among);
    for (std::size_t word = 0; word < kWords; ++word)
        ForIds(ids[word], word, [&](std::size_t id) {
            if (values[id] == others[id])
                ids[word] &= ~(std::uint64_t{1} << id % kWordBits);
        });
    return ids;
}

void ArticulationBlock::MarkAll(const MarkWords& marks) noexcept
{
    for (std::size_t word = 0; word < kWords; ++word)
        set_[word] |= marks[word];
}

void ArticulationBlock::UnmarkAll(const MarkWords& marks) noexcept
{
    for (std::size_t word = 0; word < kWords; ++word)
        set_[word] &= ~marks[word];
}

bool ArticulationBlock::HasAnySet() const noexcept
{
    const bool noFilter = static_cast<int>((*this)[kArtFilterType]) == 0;
    return ((set_[0] & (noFilter ? ~kIdsOfFilter : ~std::uint64_t{0})) | set_[1] | set_[2]) != 0;
}

bool ArticulationBlock::SameValues(const ArticulationBlock& other) const noexcept
{
    return SharesValues(other) || values_.Get() == other.values_.Get();
}

void ArticulationBlock::Serialize(ByteWriter& out) const
{
    BlockRecord record;
    std::ranges::copy(values_.Get(), record.values.begin());
    std::ranges::copy(set_, record.set.begin());
    out.Write(record);
}

bool ArticulationBlock::Deserialize(ByteReader& in)
{
    BlockRecord record;
    if (!in.Read(record))
        return false;
    for (ParamId id = 0; id < kArticulationParams; ++id)
        Store(id, InsideLimits(kArticulationRows[id], record.values[id].Get()));
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
