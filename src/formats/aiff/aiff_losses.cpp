// What a plain AIFF file cannot hold of a waveform.
#include "base/text.h"
#include "formats/aiff/aiff_units.h"
#include "formats/conversion_notes.h"
#include "model/collection.h"

#include <algorithm>

namespace vimbo {
namespace {

/// The loop as it is read back.
LoopInfo HeldLoop(const LoopInfo& loop, std::uint32_t frames) noexcept
{
    LoopInfo held;
    if (const auto range = AiffLoopRange(loop, frames)) {
        held.type = LoopTypeFromMode(LoopTypeToMode(loop.type));
        held.start = range->begin;
        held.end = range->end;
    }
    return held;
}

void NoteTexts(ConversionNotes& notes, const Waveform& wave)
{
    constexpr std::u16string_view kNarrow = u"the format has 8-bit texts";
    for (const AiffText& row : kAiffTexts)
        if (row.text != kTextName)
            notes.Text(wave, row.text, NarrowToWide(wave.GetTextNarrow(row.text)), kNarrow);
    notes.Name(wave, NarrowToWide(wave.GetTextNarrow(kTextName)), kNarrow);
    for (const ParamId id : {kTextEngineer, kTextProduct, kTextImage})
        notes.Text(wave, id, u"", u"the format has no such text");
}

void NoteMarker(ConversionNotes& notes, const Waveform& wave, std::u16string what, const Marker& marker,
                std::u16string to, std::u16string_view reason)
{
    notes.Add({.fidelity = Fidelity::Approximated,
               .topic = NoteTopic::Waveform,
               .item = ItemPath(wave),
               .what = std::move(what),
               .from = marker.name,
               .to = std::move(to),
               .reason = std::u16string(reason)});
}

void NoteMarkers(ConversionNotes& notes, const Waveform& wave, bool isLooped)
{
    const Marker* release = FindAiffReleaseLoop(wave, isLooped);
    const std::size_t loopMarks = (isLooped ? 2u : 0u) + (release != nullptr ? 2u : 0u);
    std::size_t used = loopMarks, lost = 0;
    for (const Marker& marker : wave.markers) {
        if (&marker == release)
            continue;
        if (++used > kMaxAiffMarks) {
            ++lost;
            continue;
        }
        if (std::u16string held = NarrowToWide(MarkName(marker.name)); held != marker.name)
            NoteMarker(notes, wave, u"Marker name", marker, std::move(held),
                       u"the format has 255 8-bit characters");
        if (marker.isRange) {
            ++used;
            NoteMarker(notes, wave, u"Marker range", marker, {}, u"two marks stand for it");
        }
    }
    notes.Markers(wave, lost, u"the format holds 32767 marks");
}

} // namespace

void NoteAiffLosses(const Waveform& wave, DataFormat format, unsigned channels, std::uint32_t frames)
{
    ConversionNotes notes(wave.Owner().GetHost());
    if (!notes.IsWanted())
        return;
    NoteTexts(notes, wave);
    notes.Samples(wave, format, channels);
    notes.Loop(wave, wave.loop, HeldLoop(wave.loop, frames),
               u"the format has forward and alternating loops of whole frames");
    notes.Param(wave, kParamWaveVolume, wave.volume, static_cast<float>(GainToInst(wave.volume)),
                u"the format has whole dB");
    NoteMarkers(notes, wave, AiffLoopRange(wave.loop, frames).has_value());
}

} // namespace vimbo
