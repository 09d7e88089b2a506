// What the zones of a bank sound like: each sound is converted once, however many zones have it.
#pragma once

#include "formats/soundfont/soundfont_samples.h"
#include "formats/soundfont/soundfont_zones.h"

#include <array>
#include <cstdint>
#include <optional>
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

/// What zones of a bank are but for their mix, each of them once. Few amounts of a zone are not the usual
/// ones, so only these are held.
class Timbres {
public:
    Timbres();
    /// A zone of an instrument, or of a sum.
    Sound SoundOf(const Zone& zone) { return SoundOf(zone, DefaultZone()); }
    /// A zone of a preset: its amounts are differences.
    Sound DifferenceOf(const Zone& zone) { return SoundOf(zone, Zone()); }
    /// The sum of an instrument's zone and a difference. Sums of the same timbres are only looked up.
    Sound SumOf(const Sound& zone, const Sound& difference);
    /// The zone that a sound stands for.
    Zone ZoneOf(const Sound& sound) const noexcept;
    /// Any articulation of the timbre, null if there has been none; to be set by whoever converts it.
    std::optional<ArticulationBlock>& Block(const Sound& sound) noexcept
    {
        return timbres_[sound.timbre].block;
    }

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
        std::optional<ArticulationBlock> block;
    };
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    Sound SoundOf(const Zone& zone, const Zone& usual);
    std::uint32_t NumberOf(std::span<const Amount> amounts);
    std::span<const Amount> AmountsOf(std::uint32_t timbre) const noexcept;
    void Grow();
    std::vector<Amount> Added(std::uint32_t a, std::uint32_t b) const;

    std::vector<Amount> amounts_;
    std::vector<Timbre> timbres_;
    std::vector<std::uint32_t> places_; ///< numbers of timbres by hash, kNone where free; at most half full
    std::unordered_map<std::uint64_t, std::uint32_t> sums_;
};

/// The articulations of one instrument. Equal ones share their values. Sends depend on the instrument's
/// effects, so these are kept for one instrument only.
class Articulations {
public:
    Articulations(Instrument& instrument, Timbres& timbres) noexcept
        : instrument_(instrument), timbres_(timbres)
    {
    }
    /// What a zone sounds like on a sample.
    const ArticulationBlock& Of(Sound sound, const BankSample& sample);
    std::uint64_t LostSends() const noexcept { return lostSends_; }

private:
    struct Converted {
        ArticulationBlock plain;
        /// By the sample's side, then for pitched and unpitched ones.
        std::array<std::array<std::optional<ArticulationBlock>, 2>, BankSample::kSides> onSamples;
    };
    struct SoundHash {
        std::size_t operator()(const Sound& sound) const noexcept;
    };

    void Convert(const Sound& sound, ArticulationBlock& out);

    Instrument& instrument_;
    Timbres& timbres_;
    std::unordered_map<Sound, Converted, SoundHash> sounds_;
    std::uint64_t lostSends_ = 0;
};

} // namespace vimbo::sf2
