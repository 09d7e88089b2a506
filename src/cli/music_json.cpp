#include "cli/music_json.h"

#include "base/text.h"
#include "cli/parameters.h"
#include "cli/report_json.h"
#include "model/song_analysis.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <array>
#include <cmath>

namespace vimbo::cli {

namespace {

Json ParamsJson(const std::vector<ShownParam>& params)
{
    Json json = Json::object();
    for (const ShownParam& param : params) {
        Json& value = json[std::string(param.name)];
        const double shown = param.ValueInUnit();
        value["value"] = shown == std::floor(shown) && std::abs(shown) < 1e15
                             ? Json(static_cast<std::int64_t>(shown))
                             : Json(shown);
        if (std::string unit = param.Unit(); !unit.empty())
            value["unit"] = std::move(unit);
        else
            value["text"] = param.Text();
    }
    return json;
}

/// Only what the region says differently from its waveform.
Json LoopOverridesJson(const Region& region)
{
    Json json = Json::object();
    const Json all = LoopJson(region.loop);
    const auto put = [&](Region::Override flag, const char* key) {
        if (region.Overrides(flag))
            json[key] = all[key];
    };
    put(Region::kLoopType, "type");
    put(Region::kLoopStart, "start");
    put(Region::kLoopEnd, "end");
    put(Region::kLoopRelease, "release");
    put(Region::kLoopPitch, "pitch");
    return json;
}

Json RegionJson(const Region& region)
{
    Json json;
    json["lowKey"] = region.trigger.keys.low;
    json["highKey"] = region.trigger.keys.high;
    json["lowVelocity"] = region.trigger.velocities.low;
    json["highVelocity"] = region.trigger.velocities.high;
    json["rootKey"] = region.EffectiveRootKey();
    const Waveform* wave = region.Wave();
    json["waveform"] = wave != nullptr ? Json(WideToUtf8(wave->GetName())) : Json(nullptr);
    if (const SynthModel* synth = region.Synth())
        json["synthModel"] = {{"name", WideToUtf8(synth->GetName())}, {"model", synth->Model()}};
    json["loop"] = LoopOverridesJson(region);
    json["startOffset"] = region.startOffset;
    json["endOffset"] = region.endOffset;
    if (region.phaseGroup != 0)
        json["phaseGroup"] = {{"group", region.phaseGroup}, {"master", region.phaseMaster != 0}};
    json["trigger"] = ParamsJson(TriggerValues(region.trigger));
    json["parameters"] = ParamsJson(SetParams(region.articulation));
    return json;
}

Json LayerJson(const Layer& layer)
{
    Json json;
    json["name"] = WideToUtf8(layer.GetName());
    json["parameters"] = ParamsJson(SetParams(layer.articulation));
    json["regions"] = Json::array();
    for (const Region* region : layer.Regions())
        json["regions"].push_back(RegionJson(*region));
    return json;
}

Json EffectsJson(const Instrument& instrument)
{
    Json list = Json::array();
    for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot) {
        const ChannelFx& effect = instrument.channelFx[slot];
        if (effect.type == ChannelFxType::None)
            continue;
        Json values = Json::array();
        for (const float value : effect.values)
            values.push_back(ShortNumber(value));
        list.push_back({{"slot", slot + 1},
                        {"type", ChannelFxWord(effect.type)},
                        {"bytes", effect.bytes},
                        {"values", std::move(values)}});
    }
    return list;
}

Json TrackJson(const Track& track)
{
    Json json;
    json["name"] = WideToUtf8(track.GetName());
    json["channel"] = track.channel < 16 ? Json(track.channel) : Json(nullptr);
    json["port"] = track.port;
    json["events"] = track.EventCount();
    return json;
}

double Rounded(double value, double steps)
{
    return std::round(value * steps) / steps;
}

} // namespace

std::string_view ChannelFxWord(ChannelFxType type) noexcept
{
    constexpr std::array<std::string_view, 9> kWords{
        "", "chorus", "reverb", "delay", "tremolo", "compressor", "distortion", "phaser", "transient shaper"};
    const auto index = static_cast<std::size_t>(type);
    return index < kWords.size() ? kWords[index] : std::string_view();
}

Json InstrumentJson(const Instrument& instrument)
{
    Json json;
    json["name"] = WideToUtf8(instrument.GetName());
    json["bankMsb"] = instrument.location.BankMsb();
    json["bankLsb"] = instrument.location.BankLsb();
    json["program"] = instrument.location.Program();
    json["drum"] = instrument.location.IsDrum();
    json["texts"] = TextsJson(instrument);
    json["effects"] = EffectsJson(instrument);
    json["parameters"] = ParamsJson(SetParams(instrument.articulation));
    json["layers"] = Json::array();
    for (const Layer* layer : instrument.Layers())
        json["layers"].push_back(LayerJson(*layer));
    return json;
}

Json SongJson(const Song& song)
{
    Json json;
    json["name"] = WideToUtf8(song.GetName());
    json["format"] = song.format;
    json["division"] = song.division;
    json["seconds"] = Rounded(SongSeconds(song), 1000);
    json["tempo"] = Rounded(TempoMap(song).FirstTempo(), 1000);
    json["texts"] = TextsJson(song);
    json["tracks"] = Json::array();
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Item* track = song.Child(i))
            json["tracks"].push_back(TrackJson(static_cast<const Track&>(*track)));
    return json;
}

} // namespace vimbo::cli
