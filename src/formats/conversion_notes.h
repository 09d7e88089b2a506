// What a reader or writer tells of its losses: each driver states what its format makes of an item, this
// compares and tells the host.
#pragma once

#include "base/host.h"
#include "formats/audible.h"
#include "model/instrument.h"
#include "model/waveform.h"

#include <array>
#include <map>

namespace vimbo {

/// "Grand Piano / Layer 1 / C3..B4": the item's name behind those of its parents. Regions go by their ranges.
std::u16string ItemPath(const Item& item);

/// Gathers notes of one reading or writing. What was kept is counted by parameter and told at the end. All
/// calls are free if the host wants no notes.
class ConversionNotes {
public:
    explicit ConversionNotes(Host& host);
    /// Tells what was kept.
    ~ConversionNotes();
    ConversionNotes(const ConversionNotes&) = delete;
    ConversionNotes& operator=(const ConversionNotes&) = delete;

    bool IsWanted() const noexcept { return wanted_; }

    /// What the format makes of an articulation block. Differences of less than the smallest step that can be
    /// heard (0.05 dB, 1 cent, 1 % of times and frequencies, 0.5 % of factors) count as kept, and so do
    /// envelopes whose segments are set in another way but run alike.
    void Articulation(const Item& item, const ArticulationBlock& wanted, const ArticulationBlock& held,
                      std::u16string_view reason = {});
    void Trigger(const Item& item, const TriggerParams& wanted, const TriggerParams& held,
                 std::u16string_view reason = {});
    /// Points are compared in frames; a loop that is off on both sides is no loop.
    void Loop(const Item& item, const LoopInfo& wanted, const LoopInfo& held,
              std::u16string_view reason = {});
    /// `held` as the file will hold it: cut, in another character set, or empty. For the image, anything that
    /// is not empty stands for the image.
    void Text(const TextItem& item, ParamId id, std::u16string_view held, std::u16string_view reason = {});
    void Name(const Item& item, std::u16string_view held, std::u16string_view reason = {});
    /// A layer's name where the format has none; names that number layers come back by themselves.
    void LayerName(const Layer& layer);
    /// The same where the format has one: `held` is the name without the ranges.
    void LayerName(const Layer& layer, std::u16string_view held, std::u16string_view reason);
    /// How the file holds a waveform's samples.
    void Samples(const Waveform& wave, DataFormat format, unsigned channels);
    /// Markers of a waveform that do not reach the file.
    void Markers(const Waveform& wave, std::uint64_t lost, std::u16string_view reason);
    /// A single numbered value.
    void Param(const Item& item, ParamId id, float wanted, float held, std::u16string_view reason = {});
    /// The item does not reach the file.
    void Dropped(const Item& item, std::u16string_view reason);
    /// Anything else.
    void Add(ConversionNote note);

private:
    /// The item and reason of the notes of one call. The path is only built for the first difference.
    class Subject;
    void Compare(Subject& subject, ParamId id, float wanted, float held);
    void CompareText(const Item& item, ParamId id, std::u16string_view wanted, std::u16string_view held,
                     std::u16string_view reason);
    void Kept(ParamId id) noexcept { ++kept_[id]; }
    /// What was kept in a note of its own joins the counts.
    void Kept(NoteTopic topic, std::u16string_view what, std::uint64_t count);

    Host& host_;
    bool wanted_;
    std::array<std::uint64_t, kParamLast + 1> kept_{}; ///< by id
    std::map<std::pair<NoteTopic, std::u16string>, std::uint64_t> keptOther_;
};

} // namespace vimbo
