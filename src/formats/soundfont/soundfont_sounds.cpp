#include "formats/soundfont/soundfont_sounds.h"

#include "formats/soundfont/soundfont_word_hash.h"

#include <algorithm>

namespace vimbo::sf2 {
namespace {

constexpr std::size_t kFirstPlaces = 1024;

ArticulationBlock OnSample(ArticulationBlock block, const BankSample& sample)
{
    if (sample.side != BankSample::Side::None)
        block.Set(kArtPan, sample.side == BankSample::Side::Left ? -1.0f : 1.0f);
    if (sample.isUnpitched && block[kArtKeyToPitch] == 1)
        block.Set(kArtKeyToPitch, 0);
    return block;
}

} // namespace

Timbres::Timbres() : places_(kFirstPlaces, kNone) {}

Sound Timbres::SoundOf(const Zone& zone, const Zone& usual)
{
    std::array<Amount, kGenerators + kSlots> away;
    std::size_t count = 0;
    const auto add = [&](std::size_t place, std::int32_t amount) {
        away[count] = {static_cast<std::uint32_t>(place), amount};
        count += amount != 0 ? 1 : 0;
    };
    Zone rest = zone;
    Sound sound;
    for (std::size_t i = 0; i < kMixGenerators.size(); ++i) {
        const std::size_t generator = kMixGenerators[i];
        sound.mix[i] = zone.generators[generator];
        rest.generators[generator] = usual.generators[generator];
    }
    for (std::size_t i = 0; i < kGenerators; ++i)
        add(i, rest.generators[i] - usual.generators[i]);
    for (std::size_t i = 0; i < kSlots; ++i)
        add(kGenerators + i, zone.slots[i] - usual.slots[i]);
    sound.timbre = NumberOf(std::span(away).first(count));
    return sound;
}

SoundSum Timbres::SumOf(const Sound& zone, const Sound& difference)
{
    const auto [place, isNew] = pairNumbers_.try_emplace(std::uint64_t{zone.timbre} << 32 | difference.timbre,
                                                         static_cast<std::uint32_t>(pairs_.size()));
    if (isNew)
        pairs_.push_back({zone.timbre, difference.timbre});
    SoundSum sum{place->second, zone.mix};
    for (std::size_t i = 0; i < sum.mix.size(); ++i)
        sum.mix[i] += difference.mix[i];
    return sum;
}

Zone Timbres::ZoneOf(const SoundSum& sum) const noexcept
{
    Zone zone = DefaultZone();
    for (const std::uint32_t timbre : pairs_[sum.timbres])
        for (const Amount& amount : AmountsOf(timbre))
            (amount.place < kGenerators ? zone.generators[amount.place]
                                        : zone.slots[amount.place - kGenerators]) += amount.away;
    for (std::size_t i = 0; i < kMixGenerators.size(); ++i)
        zone.generators[kMixGenerators[i]] = sum.mix[i];
    return zone;
}

std::uint32_t Timbres::NumberOf(std::span<const Amount> amounts)
{
    WordHash mixed;
    for (const Amount& amount : amounts)
        mixed.Add(std::uint64_t{amount.place} << 32 | static_cast<std::uint32_t>(amount.away));
    const std::uint64_t hash = mixed.Get();
    std::size_t at = hash % places_.size();
    for (; places_[at] != kNone; at = (at + 1) % places_.size()) {
        const std::uint32_t found = places_[at];
        if (timbres_[found].hash == hash && std::ranges::equal(AmountsOf(found), amounts))
            return found;
    }
    const auto number = static_cast<std::uint32_t>(timbres_.size());
    places_[at] = number;
    timbres_.push_back({amounts_.size(), amounts.size(), hash});
    amounts_.insert(amounts_.end(), amounts.begin(), amounts.end());
    if (2 * timbres_.size() > places_.size())
        Grow();
    return number;
}

std::span<const Timbres::Amount> Timbres::AmountsOf(std::uint32_t timbre) const noexcept
{
    return std::span(amounts_).subspan(timbres_[timbre].first, timbres_[timbre].count);
}

void Timbres::Grow()
{
    places_.assign(places_.size() * 2, kNone);
    for (std::uint32_t number = 0; number < timbres_.size(); ++number) {
        std::size_t at = timbres_[number].hash % places_.size();
        while (places_[at] != kNone)
            at = (at + 1) % places_.size();
        places_[at] = number;
    }
}

const ArticulationBlock& TimbreBlocks::Of(const SoundSum& sum, const Zone& zone)
{
    Slot& slot = slots_[sum.timbres];
    std::call_once(slot.isRead, [&] { ReadTimbre(zone, slot.block); });
    return slot.block;
}

std::size_t Articulations::KeyHash::operator()(const Key& key) const noexcept
{
    WordHash hash;
    hash.Add(std::uint64_t{key.sum.timbres} << 32 | key.sample);
    for (const std::int32_t amount : key.sum.mix)
        hash.Add(static_cast<std::uint32_t>(amount));
    return static_cast<std::size_t>(hash.Get());
}

const ArticulationBlock& Articulations::Of(SoundSum sum, const BankSample& sample)
{
    if (sample.side != BankSample::Side::None)
        sum.mix[kMixPan] = 0; // the side decides
    const auto [place, isNew] = sounds_.try_emplace(
        {sum, static_cast<std::uint32_t>(sample.side) * 2 + (sample.isUnpitched ? 1 : 0)});
    if (isNew)
        place->second = OnSample(Convert(sum), sample);
    return place->second;
}

ArticulationBlock Articulations::Convert(const SoundSum& sum)
{
    const Zone zone = timbres_.ZoneOf(sum);
    ArticulationBlock block = blocks_.Of(sum, zone);
    int lost = 0;
    ReadMix(zone, block, &instrument_, &lost);
    lostSends_ += static_cast<std::uint64_t>(lost);
    return block;
}

} // namespace vimbo::sf2
