// What the zones of a bank sound like: each sound is converted once, however many zones have it.
#pragma once

#include "formats/soundfont/soundfont_samples.h"
#include "formats/soundfont/soundfont_zones.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <span>
#include <unordered_map>
#include <vector>

namespace vimbo::sf2 {

/// Amounts of kMixGenerators, in their order.
using Mix = std::array<std::int32_t, kMixGenerators.size()>;

inline constexpr std::size_t kMixPan = 3;
static_assert(kMixGenerators[kMixPan] == kGenPan);

/// A zone in two parts: its mix, and the number of the rest. Equal zones have equal sounds.
struct Sound {
    std::uint32_t timbre = 0;
    Mix mix{};
    friend bool operator==(const Sound&, const Sound&) = default;
};

/// A zone of an instrument in a zone of a preset, which is a difference. Equal sums have equal sounds.
struct SoundSum {
    std::uint32_t timbres = 0; ///< number of the pair of timbres
    Mix mix{};
    friend bool operator==(const SoundSum&, const SoundSum&) = default;
};

/// What zones of a bank are but for their mix, each of them once. Few amounts of a zone are not the usual
/// ones, so only these are held.
class Timbres {
public:
    Timbres();
    /// A zone of an instrument, or of a sum.
    Sound SoundOf(const Zone& zone) { return SoundOf(zone, DefaultZone()); }
    /// A zone of a preset: its amounts are differences.
    Sound DifferenceOf(const Zone& zone) { return SoundOf(zone, Zone()); }
    SoundSum SumOf(const Sound& zone, const Sound& difference);
    /// The zone that a sum stands for.
    Zone ZoneOf(const SoundSum& sum) const noexcept;
    /// Of pairs of timbres that were added; their numbers are below.
    std::size_t PairCount() const noexcept { return pairs_.size(); }

private:
    /// An amount that is not the usual one.
    struct Amount {
        std::uint32_t place; ///< a generator, or behind them a slot
        std::int32_t away;
        friend bool operator==(const Amount&, const Amount&) = default;
    };
    struct Timbre {
        std::size_t first, count; ///< in `amounts_`
        std::uint64_t hash;
    };
    struct PairHash {
        std::size_t operator()(std::uint64_t pair) const noexcept { return pair * 0x9E3779B97F4A7C15 >> 16; }
    };
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    Sound SoundOf(const Zone& zone, const Zone& usual);
    std::uint32_t NumberOf(std::span<const Amount> amounts);
    std::span<const Amount> AmountsOf(std::uint32_t timbre) const noexcept;
    void Grow();

    std::vector<Amount> amounts_;
    std::vector<Timbre> timbres_;
    std::vector<std::array<std::uint32_t, 2>> pairs_;
    std::unordered_map<std::uint64_t, std::uint32_t, PairHash> pairNumbers_;
    std::vector<std::uint32_t> places_; ///< numbers of timbres by hash, kNone where free; at most half full
};

/// The articulations of a bank's timbres, each of them worked out once. Safe from any thread; made when all
/// sums are known.
class TimbreBlocks {
public:
    explicit TimbreBlocks(const Timbres& timbres) : slots_(timbres.PairCount()) {}
    /// Some articulation of the sum's timbre, whatever its mix. `zone` is that of the sum.
    const ArticulationBlock& Of(const SoundSum& sum, const Zone& zone);

private:
    struct Slot {
        std::once_flag isRead;
        ArticulationBlock block;
    };
    std::vector<Slot> slots_;
};

/// The articulations of one instrument. Equal ones share their values. Sends depend on the instrument's
/// effects, so these are kept for one instrument only.
class Articulations {
public:
    Articulations(Instrument& instrument, const Timbres& timbres, TimbreBlocks& blocks) noexcept
        : instrument_(instrument), timbres_(timbres), blocks_(blocks)
    {
    }
    /// What a zone sounds like on a sample.
    const ArticulationBlock& Of(SoundSum sum, const BankSample& sample);
    std::uint64_t LostSends() const noexcept { return lostSends_; }

private:
    /// A sound on samples of a side, pitched or unpitched ones.
    struct Key {
        SoundSum sum;
        std::uint32_t sample = 0; ///< 0 for pitched samples without a side
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const noexcept;
    };

    ArticulationBlock Convert(const SoundSum& sum);

    Instrument& instrument_;
    const Timbres& timbres_;
    TimbreBlocks& blocks_;
    std::unordered_map<Key, ArticulationBlock, KeyHash> sounds_;
    std::uint64_t lostSends_ = 0;
};

} // namespace vimbo::sf2
