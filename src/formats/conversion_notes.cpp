#include "formats/conversion_notes.h"

#include "base/numeric.h"
#include "model/collection.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <fmt/format.h>
#include <optional>

namespace vimbo {
namespace {

constexpr double kFrameStep = 0.005; ///< loop points are rounded to 0.01

NoteTopic TopicOf(ItemKind kind) noexcept
{
    switch (kind) {
    case ItemKind::Instrument:
        return NoteTopic::Instrument;
    case ItemKind::Layer:
        return NoteTopic::Layer;
    case ItemKind::Region:
        return NoteTopic::Region;
    case ItemKind::Waveform:
        return NoteTopic::Waveform;
    case ItemKind::Track:
    case ItemKind::Song:
        return NoteTopic::Song;
    case ItemKind::SynthModel:
    case ItemKind::Collection:
        break;
    }
    return NoteTopic::Other;
}

NoteTopic TopicOf(ParamId id) noexcept
{
    if (id < kArticulationParams)
        return NoteTopic::Parameter;
    if (TriggerParams::IsId(id))
        return NoteTopic::Trigger;
    if (id <= kParamLoopPitch)
        return NoteTopic::Loop;
    if (id <= kTextImage)
        return NoteTopic::Text;
    if (id <= kParamWaveSaveFormat)
        return NoteTopic::Waveform;
    if (id <= kParamPhaseMaster)
        return NoteTopic::Region;
    return id < kParamChannelFx ? NoteTopic::Instrument : NoteTopic::Effect;
}

std::u16string Widened(std::string_view text)
{
    return {text.begin(), text.end()};
}

std::u16string RangesOf(const Region& region)
{
    const TriggerParams& t = region.trigger;
    std::string text = NoteName(t.keys.low) + ".." + NoteName(t.keys.high);
    if (t.velocities.low > 1 || t.velocities.high != MidiRange{}.high)
        text += " : " + std::to_string(t.velocities.low) + ".." + std::to_string(t.velocities.high);
    return Widened(text);
}

std::u16string ShortName(const Item& item)
{
    if (item.Kind() == ItemKind::Region)
        return RangesOf(static_cast<const Region&>(item));
    std::u16string_view name = item.GetName();
    if (item.Kind() == ItemKind::Layer) {
        name = name.substr(0, name.find(u':')); // ranges and side follow
        while (!name.empty() && name.back() == u' ')
            name.remove_suffix(1);
    }
    return std::u16string(name);
}

/// A point of a loop, in frames.
std::u16string PointText(double frames)
{
    return Widened(frames == std::floor(frames) ? fmt::format("{:.0f}", frames)
                                                : fmt::format("{:.2f}", frames));
}

} // namespace

std::u16string ItemPath(const Item& item)
{
    std::u16string path = ShortName(item);
    for (const Item* parent = item.ParentItem(); parent != nullptr; parent = parent->ParentItem())
        path = ShortName(*parent) + u" / " + path;
    return path;
}

class ConversionNotes::Subject {
public:
    Subject(const Item& item, std::u16string_view reason) noexcept : item_(item), reason_(reason) {}

    ConversionNote Note(Fidelity fidelity, NoteTopic topic, std::u16string what)
    {
        if (!path_)
            path_ = ItemPath(item_);
        return {fidelity, topic, *path_, std::move(what), {}, {}, std::u16string(reason_), 1};
    }

private:
    const Item& item_;
    std::u16string_view reason_;
    std::optional<std::u16string> path_;
};

ConversionNotes::ConversionNotes(Host& host) : host_(host), wanted_(host.WantsNotes()) {}

ConversionNotes::~ConversionNotes()
{
    if (!wanted_)
        return;
    try {
        for (std::size_t id = 0; id < kept_.size(); ++id)
            if (kept_[id] != 0) {
                const auto param = static_cast<ParamId>(id);
                Kept(TopicOf(param), AnyParamRow(param).name, kept_[id]);
            }
        for (const auto& [key, count] : keptOther_) {
            ConversionNote note;
            note.topic = key.first;
            note.what = key.second;
            note.count = count;
            host_.NoteConversion(std::move(note));
        }
    } catch (const std::exception&) {
        return; // a report without its end
    }
}

void ConversionNotes::Compare(Subject& subject, ParamId id, float wanted, float held)
{
    const ParamRow& row = AnyParamRow(id);
    if (SoundsAlike(row, wanted, held)) {
        Kept(id);
        return;
    }
    // Where a format has no place for a value, its items hold the default.
    const bool isLost = held == row.defaultValue;
    ConversionNote note =
        subject.Note(isLost ? Fidelity::Lost : Fidelity::Approximated, TopicOf(id), std::u16string(row.name));
    note.from = FormatParamValue(id, wanted);
    if (!isLost || held != 0)
        note.to = FormatParamValue(id, held);
    host_.NoteConversion(std::move(note));
}

void ConversionNotes::Articulation(const Item& item, const ArticulationBlock& wanted,
                                   const ArticulationBlock& held, std::u16string_view reason)
{
    if (!wanted_)
        return;
    Subject subject(item, reason);
    EnvelopeMatches envelopes(wanted, held);
    for (ParamId id = 0; id < kArticulationParams; ++id) {
        const bool isWanted = IsHeard(wanted, id);
        if (!isWanted && !IsHeard(held, id))
            continue;
        if (wanted[id] == held[id] || envelopes.Covers(id))
            Kept(id);
        else
            Compare(subject, id, wanted[id], held[id]);
    }
}

void ConversionNotes::Trigger(const Item& item, const TriggerParams& wanted, const TriggerParams& held,
                              std::u16string_view reason)
{
    if (!wanted_)
        return;
    Subject subject(item, reason);
    static const TriggerParams kDefaults;
    const bool sameValues = wanted.SameValues(held);
    for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id) {
        const float from = wanted.Get(id);
        const float to = sameValues ? from : held.Get(id);
        const bool isRange = id <= kParamHighVelocity;
        const bool hasKeyFade = wanted.keyFadeIn != 0 || wanted.keyFadeOut != 0;
        const bool hasVelocityFade = wanted.velocityFadeIn != 0 || wanted.velocityFadeOut != 0;
        if ((id == kParamKeyFadeFormula && !hasKeyFade) ||
            (id == kParamVelocityFadeFormula && !hasVelocityFade))
            continue;
        if (isRange || from != kDefaults.Get(id) || to != from)
            Compare(subject, id, from, to);
    }
}

void ConversionNotes::Loop(const Item& item, const LoopInfo& wanted, const LoopInfo& held,
                           std::u16string_view reason)
{
    if (!wanted_)
        return;
    Subject subject(item, reason);
    const bool wasOn = wanted.type != LoopType::Off;
    const bool isOn = held.type != LoopType::Off;
    if (wanted.oneShot != held.oneShot) {
        const Fidelity fidelity = wanted.oneShot ? Fidelity::Lost : Fidelity::Approximated;
        host_.NoteConversion(subject.Note(fidelity, NoteTopic::Loop, u"One-shot playback"));
    } else if (wanted.oneShot) {
        Kept(NoteTopic::Loop, u"One-shot playback", 1);
    }
    if (!wasOn && !isOn)
        return;
    Compare(subject, kParamLoopType, static_cast<float>(wanted.type), static_cast<float>(held.type));
    if (!wasOn || !isOn)
        return;
    const auto point = [&](ParamId id, double from, double to) {
        if (std::abs(from - to) <= kFrameStep) {
            Kept(id);
            return;
        }
        ConversionNote note =
            subject.Note(Fidelity::Approximated, NoteTopic::Loop, std::u16string(AnyParamRow(id).name));
        note.from = PointText(from);
        note.to = PointText(to);
        host_.NoteConversion(std::move(note));
    };
    point(kParamLoopStart, wanted.start, held.start);
    point(kParamLoopEnd, wanted.end, held.end);
    if (wanted.breakOnRelease || held.breakOnRelease)
        Compare(subject, kParamLoopRelease, wanted.breakOnRelease ? 1.0f : 0.0f,
                held.breakOnRelease ? 1.0f : 0.0f);
    if (wanted.pitch != 0 || held.pitch != 0)
        Compare(subject, kParamLoopPitch, wanted.pitch, held.pitch);
}

void ConversionNotes::CompareText(const Item& item, ParamId id, std::u16string_view wanted,
                                  std::u16string_view held, std::u16string_view reason)
{
    if (wanted.empty() && held.empty())
        return;
    if (wanted == held) {
        Kept(id);
        return;
    }
    Subject subject(item, reason);
    ConversionNote note = subject.Note(held.empty() ? Fidelity::Lost : Fidelity::Approximated,
                                       NoteTopic::Text, std::u16string(AnyParamRow(id).name));
    note.from = wanted;
    note.to = held;
    host_.NoteConversion(std::move(note));
}

void ConversionNotes::Text(const TextItem& item, ParamId id, std::u16string_view held,
                           std::u16string_view reason)
{
    if (!wanted_)
        return;
    if (id != kTextImage) {
        CompareText(item, id, item.GetText(id), held, reason);
        return;
    }
    const std::u16string kind = Widened(ImageMimeType(item.GetImage()));
    if (!item.GetImage().empty())
        CompareText(item, id, kind.empty() ? u"image" : kind, held.empty() ? held : kind, reason);
}

void ConversionNotes::Name(const Item& item, std::u16string_view held, std::u16string_view reason)
{
    if (wanted_)
        CompareText(item, kTextName, item.GetName(), held, reason);
}

void ConversionNotes::LayerName(const Layer& layer)
{
    if (!layer.GetName().starts_with(u"Layer "))
        LayerName(layer, {}, u"the format has no names of layers");
}

void ConversionNotes::LayerName(const Layer& layer, std::u16string_view held, std::u16string_view reason)
{
    if (!wanted_)
        return;
    const std::u16string name = ShortName(layer);
    if (name.empty() || name == held)
        return;
    Subject subject(layer, reason);
    ConversionNote note = subject.Note(held.empty() ? Fidelity::Lost : Fidelity::Approximated,
                                       NoteTopic::Text, std::u16string(AnyParamRow(kTextName).name));
    note.from = name;
    note.to = held;
    host_.NoteConversion(std::move(note));
}

void ConversionNotes::Samples(const Waveform& wave, DataFormat format, unsigned channels)
{
    if (!wanted_)
        return;
    Subject subject(wave, {});
    const auto tell = [&](std::u16string what, std::u16string from, std::u16string to) {
        ConversionNote note = subject.Note(Fidelity::Approximated, NoteTopic::Waveform, std::move(what));
        note.from = std::move(from);
        note.to = std::move(to);
        host_.NoteConversion(std::move(note));
    };
    const unsigned bits = DataFormatBits(format);
    const bool isLinear = format <= DataFormat::Float64;
    const bool isSameLaw = (format == DataFormat::MuLaw || format == DataFormat::ALaw) &&
                           wave.importProc != nullptr && wave.SourceFormat() == format;
    if (isLinear ? wave.bits <= bits : isSameLaw)
        Kept(NoteTopic::Waveform, u"Samples", 1);
    else
        tell(u"Samples", Widened(fmt::format("{}-bit", wave.bits)),
             isLinear ? Widened(fmt::format("{}-bit", bits)) : std::u16string(DataFormatName(format)));
    if (channels < wave.channels)
        tell(u"Channels", u"stereo", u"mono");
}

void ConversionNotes::Markers(const Waveform& wave, std::uint64_t lost, std::u16string_view reason)
{
    if (!wanted_ || lost == 0)
        return;
    Subject subject(wave, reason);
    ConversionNote note = subject.Note(Fidelity::Lost, NoteTopic::Waveform, u"Markers");
    note.count = lost;
    host_.NoteConversion(std::move(note));
}

void ConversionNotes::Param(const Item& item, ParamId id, float wanted, float held,
                            std::u16string_view reason)
{
    if (!wanted_ || id > kParamLast)
        return;
    Subject subject(item, reason);
    Compare(subject, id, wanted, held);
}

void ConversionNotes::Dropped(const Item& item, std::u16string_view reason)
{
    if (!wanted_)
        return;
    Subject subject(item, reason);
    std::u16string word(KindWord(static_cast<std::size_t>(item.Kind())));
    word[0] = static_cast<char16_t>(word[0] - u'a' + u'A');
    ConversionNote note = subject.Note(Fidelity::Lost, TopicOf(item.Kind()), std::move(word));
    note.from = item.GetName();
    host_.NoteConversion(std::move(note));
}

void ConversionNotes::Add(ConversionNote note)
{
    if (!wanted_)
        return;
    if (note.fidelity == Fidelity::Kept)
        Kept(note.topic, note.what, note.count);
    else
        host_.NoteConversion(std::move(note));
}

void ConversionNotes::Kept(NoteTopic topic, std::u16string_view what, std::uint64_t count)
{
    keptOther_[{topic, std::u16string(what)}] += count;
}

} // namespace vimbo
