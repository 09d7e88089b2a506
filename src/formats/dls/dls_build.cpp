#include "formats/dls/dls_build.h"

#include "base/last_error.h"
#include "formats/dls/dls.h"
#include "formats/format_choice.h"
#include "model/layer_room.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

namespace vimbo::dls {
namespace {

constexpr std::array kCodings = {
    Coding{DataFormat::Pcm8, SampleCoding::Pcm8, 1, 8},
    Coding{DataFormat::Pcm16, SampleCoding::Pcm16, 1, 16},
    Coding{DataFormat::Pcm24, SampleCoding::Pcm24, 1, 24},
    Coding{DataFormat::Pcm32, SampleCoding::Pcm32, 1, 32},
    Coding{DataFormat::Float32, SampleCoding::Float32, 3, 32},
    Coding{DataFormat::MuLaw, SampleCoding::MuLaw, 7, 8},
    Coding{DataFormat::ALaw, SampleCoding::ALaw, 6, 8},
    Coding{DataFormat::Adpcm4, {}, 17, 4, true},
    Coding{DataFormat::Compressed, {}, 85, 0},
};
constexpr float kHardPan = 0.75f;

/// Null with the Last error text if there is no encoder.
/// @param kbit  gets the bit rate for what is compressed
const Coding* CodingFor(const Waveform& wave, FormatChoice choice, unsigned& kbit)
{
    constexpr std::uint32_t kCompressed = FormatBit(DataFormat::Compressed);
    const std::uint32_t formats = choice.caps & kDataFormatMask;
    // Without resampling, rates that MPEG does not have keep another encoding where one is allowed.
    if (formats != kCompressed && NearestMp3Rate(wave.rateHz) != wave.rateHz)
        choice.caps &= ~kCompressed;
    float picked = 0;
    const DataFormat format = PickDataFormat(wave, choice, picked, nullptr, choice.variant);
    kbit = Mp3KbitFor(picked);
    const auto found = std::ranges::find(kCodings, format, &Coding::format);
    if (found != kCodings.end())
        return &*found;
    Fail(u"The encoder for " + std::u16string(DataFormatName(format)) + u" is missing");
    return nullptr;
}

/// The pan of one channel of a stereo sound: the middle between the two is the pan that the sound has.
float PanOf(unsigned channel, float pan) noexcept
{
    return channel == 0 ? -1 + 2 * std::max(pan, 0.0f) : 1 + 2 * std::min(pan, 0.0f);
}

OutRegion MakeRegion(const Region& region, const WaveList& waves, std::size_t place, std::size_t layer,
                     const SendSlots& sends, std::uint32_t level)
{
    const OutWave& wave = waves.waves[place];
    OutRegion out;
    out.region = &region;
    out.wave = place;
    out.layer = static_cast<std::uint16_t>(std::min<std::size_t>(layer, 0xFFFF));
    out.isSplit = wave.channel != OutWave::kWhole;
    ArticulationBlock block = region.articulation;
    if (out.isSplit)
        block.Set(kArtPan, PanOf(wave.channel, block[kArtPan]));
    out.sound = ToSound(block, sends, level, out.held);
    out.link.channel = wave.channel == 1    ? kChannelRight
                       : wave.channels == 2 ? kChannelLeft | kChannelRight
                                            : kChannelLeft;
    out.link.phaseGroup = region.phaseGroup;
    out.link.options =
        region.phaseGroup != 0 && region.phaseMaster != 0 ? kLinkPhaseMaster : std::uint16_t{0};
    out.link.tableIndex = static_cast<std::uint32_t>(place);
    return out;
}

/// A phase group that no region of the instrument has.
std::uint16_t FreeGroup(const std::vector<OutRegion>& regions)
{
    std::set<std::uint16_t> taken;
    for (const OutRegion& out : regions)
        taken.insert(out.region->phaseGroup);
    std::uint16_t group = 1;
    while (taken.contains(group))
        ++group;
    return group;
}

void Link(OutRegion& left, OutRegion& right, std::uint16_t group) noexcept
{
    left.link.options = kLinkPhaseMaster;
    right.link.options = std::uint16_t{0};
    left.link.channel = kChannelLeft;
    right.link.channel = kChannelRight;
    for (OutRegion* half : {&left, &right})
        half->link.phaseGroup = group;
}

/// Sounds whose two sides are regions of their own, split here or in the collection, become pairs.
void LinkSides(std::vector<OutRegion>& regions, const WaveList& waves)
{
    using Key = std::tuple<std::uint16_t, std::uint16_t, float, std::uint32_t>;
    const std::uint16_t group = FreeGroup(regions);
    const auto waveOf = [&](const OutRegion& out) -> const OutWave& { return waves.waves[out.wave]; };
    const auto keyOf = [&](const OutRegion& out) {
        const Region& region = *out.region;
        return Key{region.trigger.keys.Word(), region.trigger.velocities.Word(),
                   std::abs(region.articulation[kArtPan]), waveOf(out).wave->frames};
    };
    const auto mayPair = [&](const OutRegion& out) {
        return out.region->phaseGroup == 0 && waveOf(out).channels == 1 && !out.isSplit;
    };
    std::map<Key, std::vector<OutRegion*>> rights;
    for (OutRegion& out : regions)
        if (mayPair(out) && out.region->articulation[kArtPan] >= kHardPan)
            rights[keyOf(out)].push_back(&out);
    for (auto& [key, list] : rights)
        std::ranges::reverse(list); // taken from the back
    for (std::size_t i = 0; i < regions.size(); ++i) {
        OutRegion& out = regions[i];
        if (out.isSplit && waveOf(out).channel == 0)
            Link(out, regions[i + 1], group);
        if (!mayPair(out) || out.region->articulation[kArtPan] > -kHardPan)
            continue;
        const auto found = rights.find(keyOf(out));
        if (found == rights.end() || found->second.empty() || found->second.back()->layer == out.layer)
            continue;
        Link(out, *found->second.back(), group);
        found->second.pop_back();
    }
}

/// Level 1 has no numbers of layers: the order in which readers get the same layers again, each region in the
/// first one that has room for it.
void OrderByRoom(std::vector<OutRegion>& regions)
{
    LayerRoom layers; // readers look for room in the same window of layers
    for (OutRegion& out : regions) {
        const Zone zone = Zone(out.region->trigger).Normalized();
        std::size_t free = layers.FirstFree({&zone, 1});
        if (free == LayerRoom::kNone) {
            free = layers.Size();
            layers.AddLayer();
        }
        layers.Occupy(free, zone);
        out.layer = static_cast<std::uint16_t>(std::min<std::size_t>(free, 0xFFFF));
    }
    std::ranges::stable_sort(regions, {}, [](const OutRegion& out) {
        const TriggerParams& trigger = out.region->trigger;
        return std::tuple(out.layer, trigger.keys.low, trigger.velocities.low);
    });
}

} // namespace

std::u16string OutWave::Name() const
{
    if (channel == kWhole)
        return std::u16string(wave->GetName());
    return std::u16string(WithoutStereoSuffix(wave->GetName())) + (channel == 0 ? u" -L" : u" -R");
}

std::uint64_t OutWave::DataBytes() const noexcept
{
    const std::uint64_t frames = wave->frames;
    if (coding->IsMp3())
        return mp3.bytes;
    if (coding->isIma)
        return (frames + kImaBlockFrames - 1) / kImaBlockFrames * kImaBlockBytes * channels;
    return frames * channels * coding->bits / 8;
}

bool ListWaves(const ExportSet& set, const FormatChoice& choice, WaveList& out)
{
    const bool mayBeStereo = choice.variant != kDlsLevel2PlusPlus && (choice.caps & kCapsStereo) != 0;
    const bool mix = !mayBeStereo && (choice.caps & kCapsChannels) == kCapsMono;
    for (Waveform* wave : set.Waveforms()) {
        if (wave->frames == 0 || out.places.contains(wave))
            continue;
        OutWave made;
        made.wave = wave;
        made.coding = CodingFor(*wave, choice, made.mp3.kbit);
        if (made.coding == nullptr)
            return false;
        out.places.emplace(wave, out.waves.size());
        if (wave->channels == 2 && !mayBeStereo && !mix) {
            for (made.channel = 0; made.channel < 2; ++made.channel)
                out.waves.push_back(made);
            continue;
        }
        made.channels = wave->channels == 2 && mayBeStereo ? 2 : 1;
        out.waves.push_back(made);
    }
    return true;
}

std::vector<OutInstrument> ListInstruments(const ExportSet& set, const WaveList& waves, std::uint32_t level)
{
    std::vector<OutInstrument> result;
    for (const Instrument* instrument : set.Instruments()) {
        OutInstrument out;
        out.instrument = instrument;
        const SendSlots sends = FindSends(*instrument);
        std::size_t number = 0;
        for (const Layer* layer : instrument->Layers()) {
            for (const Region* region : layer->Regions()) {
                const auto found = waves.places.find(region->Wave());
                if (found == waves.places.end())
                    continue;
                const bool isSplit = waves.waves[found->second].channel != OutWave::kWhole;
                for (std::size_t place = found->second; place <= found->second + (isSplit ? 1 : 0); ++place)
                    out.regions.push_back(MakeRegion(*region, waves, place, number, sends, level));
            }
            ++number;
        }
        LinkSides(out.regions, waves);
        if (level < kDlsLevel2)
            OrderByRoom(out.regions);
        if (!out.regions.empty())
            result.push_back(std::move(out));
    }
    return result;
}

OutRecord RecordOf(const Waveform& wave) noexcept
{
    OutRecord record;
    SampleToWsmp({{wave.rootKey, wave.fineTune}, wave.volume, wave.loop}, record.head, record.loop);
    return record;
}

OutRecord RecordOf(const OutRegion& out, const Waveform& wave) noexcept
{
    OutRecord record;
    SampleToWsmp({{out.region->EffectiveRootKey(), 0}, wave.volume, GetEffectiveLoop(*out.region)},
                 record.head, record.loop);
    const int cents = wave.fineTune + out.sound.level.cents;
    record.head.cents = static_cast<std::int16_t>(std::clamp(cents, -32768, 32767));
    const double gainDb = record.head.gain.Get() / kScalePerDb + out.sound.level.gainDb;
    record.head.gain = LinearScaleOf(gainDb, kScalePerDb);
    return record;
}

bool IsSame(const OutRecord& a, const OutRecord& b) noexcept
{
    const auto same = [](const auto& one, const auto& other) {
        return std::ranges::equal(std::as_bytes(std::span(&one, 1)), std::as_bytes(std::span(&other, 1)));
    };
    return same(a.head, b.head) && (a.head.loopCount.Get() == 0 || same(a.loop, b.loop));
}

} // namespace vimbo::dls
