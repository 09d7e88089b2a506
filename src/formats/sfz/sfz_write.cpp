// Writing SFZ: one text for each instrument, sample files beside it.
#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "formats/conversion_notes.h"
#include "formats/export_set.h"
#include "formats/sfz/sfz.h"
#include "formats/sfz/sfz_sample_files.h"
#include "formats/sfz/sfz_units.h"
#include "formats/xiph/xiph.h"
#include "model/collection.h"
#include "model/envelope.h"
#include "model/song.h"

#include <algorithm>
#include <unordered_set>

namespace vimbo {
namespace sfz {
namespace {

constexpr std::string_view kHead1 = "/////////////////////////////////////////////////////// \n"
                                    "/// sfz definition file\n"
                                    "/// written by Vimbo Studio v12.7\n"
                                    "/////////////////////////////////////////////////////// \n";
constexpr std::string_view kHead2 = "//-----------------------------------------------------\n"
                                    "// sfz Definition File\n"
                                    "// Version 2\n"
                                    "// Written by Vimbo Studio v12.7\n"
                                    "//-----------------------------------------------------\n";
constexpr std::u16string_view kNoText = u"the format has no such text";

Generation GenerationOf(std::uint32_t variant) noexcept
{
    return variant == kSfz1SameFolder || variant == kSfz1SubFolder ? Generation::First : Generation::Second;
}

bool HasSubFolder(std::uint32_t variant) noexcept
{
    return variant == kSfz1SubFolder || variant == kSfz2SubFolder;
}

bool IsAlternate(const Region& region) noexcept
{
    return region.trigger.triggerType >= static_cast<std::uint8_t>(TriggerKind::FirstAlternate);
}

bool IsNoRelease(const Region& region) noexcept
{
    return region.articulation[EnvelopeBase(EnvelopeIndex::Volume) + kEnvReleaseMode] ==
           static_cast<float>(ReleaseMode::NoRelease);
}

std::string_view WordOf(ChannelFxType type) noexcept
{
    switch (type) {
    case ChannelFxType::Chorus:
        return "chorus";
    case ChannelFxType::Reverb:
        return "fverb";
    case ChannelFxType::Delay:
        return "delay";
    case ChannelFxType::Compressor:
        return "comp";
    case ChannelFxType::Distortion:
        return "disto";
    case ChannelFxType::Phaser:
        return "phaser";
    default:
        return {};
    }
}

void AppendDifferences(std::string& out, const Record& record, const Record& before)
{
    for (std::size_t op = 0; op < kOps; ++op)
        if (record[op] != before[op] && record[op] != kUnset)
            AppendOpcode(out, *RowOf(op), record[op]);
    AppendFlexDifferences(out, record, before);
}

/// One instrument as levels of records.
struct OutRegion {
    const Region* region;
    Waveform* wave;
    Record record;
};
struct OutGroup {
    Record record;
    std::vector<OutRegion> regions;
};

class TextWriter {
public:
    TextWriter(const Instrument& instrument, std::uint32_t variant, ConversionNotes& notes)
        : instrument_(instrument), generation_(GenerationOf(variant)), hasSubFolder_(HasSubFolder(variant)),
          notes_(notes)
    {
    }

    /// @param folder  of the text; @param name  of its file, without extension
    [[nodiscard]] bool Write(SampleFileWriter& files, const std::u16string& folder,
                             const std::u16string& name, std::string& out)
    {
        const std::u16string below = hasSubFolder_ ? JoinPath(folder, name) : folder;
        FromArticulation(instrument_.articulation, generation_, global_);
        RoundToText(global_);
        ListGroups();
        out = generation_ == Generation::First ? kHead1 : kHead2;
        if (hasSubFolder_)
            out += "\n<control> default_path=" + WideToUtf8(name) + "/\n";
        AppendEffects(out);
        AppendLevel(out, "<global>", global_, Record());
        for (OutGroup& group : groups_) {
            AppendLevel(out, "<group>", group.record, global_);
            for (OutRegion& region : group.regions)
                if (!AppendRegion(out, files, below, region, group.record))
                    return false;
        }
        NoteInstrument(name);
        return true;
    }

private:
    void ListGroups()
    {
        for (const Layer* layer : instrument_.Layers()) {
            OutGroup group;
            FromArticulation(layer->articulation, generation_, group.record);
            RoundToText(group.record);
            for (const Region* region : layer->Regions())
                if (Waveform* wave = region->Wave(); wave != nullptr && wave->frames > 0)
                    group.regions.push_back({region, wave, RecordOf(*region, *wave)});
                else
                    notes_.Dropped(*region, region->Synth() != nullptr ? u"the format has no synthesis models"
                                                                       : u"it has no waveform");
            if (!group.regions.empty())
                groups_.push_back(std::move(group));
        }
        ClearWhatCannotEnd();
    }

    Record RecordOf(const Region& region, const Waveform& wave) const
    {
        Record record;
        FromArticulation(region.articulation, generation_, record);
        FromTrigger(region.trigger, record);
        AddWaveTuning(wave, record);
        record[kOffset] = region.startOffset;
        if (region.endOffset != 0)
            record[kEnd] = static_cast<double>(wave.frames) + region.endOffset - 1;
        record[kKeyCenter] = region.EffectiveRootKey();
        if (IsAlternate(region))
            SetShare(region, record);
        RoundToText(record);
        return record;
    }

    /// Regions of an alternate group share the numbers from 0 to 1.
    void SetShare(const Region& region, Record& record) const
    {
        double count = 0, place = 0;
        for (const Layer* layer : instrument_.Layers())
            for (const Region* other : layer->Regions()) {
                if (other->trigger.triggerType != region.trigger.triggerType ||
                    !other->trigger.Overlaps(region.trigger))
                    continue;
                if (other == &region)
                    place = count;
                ++count;
            }
        record[kLowRandom] = place / count;
        record[kHighRandom] = (place + 1) / count;
    }

    /// A filter that an upper level has can't be taken away below.
    void ClearWhatCannotEnd()
    {
        const auto isOff = [](const OutRegion& region) { return region.record[kCutoff] == kUnset; };
        bool isOffSomewhere = false;
        for (OutGroup& group : groups_)
            if (std::ranges::any_of(group.regions, isOff)) {
                ClearFilter(group.record);
                isOffSomewhere = true;
            }
        if (isOffSomewhere)
            ClearFilter(global_);
    }

    static void ClearFilter(Record& record)
    {
        for (std::size_t op = kCutoff; op < kVolume; ++op)
            record[op] = RowOf(op)->defaultValue;
        record.envelopes.erase(1 + static_cast<unsigned>(EnvelopeIndex::Filter));
        record.lfos.erase(1 + static_cast<unsigned>(LfoIndex::Filter));
    }

    void AppendEffects(std::string& out) const
    {
        if (generation_ == Generation::First)
            return;
        for (const ChannelFx& fx : instrument_.channelFx)
            if (const std::string_view word = WordOf(fx.type); !word.empty())
                out += "\n<effect> type=" + std::string(word) + "\n";
    }

    static void AppendLevel(std::string& out, std::string_view header, const Record& record,
                            const Record& before)
    {
        std::string opcodes;
        AppendDifferences(opcodes, record, before);
        if (header == "<global>" && opcodes.empty())
            return;
        out += "\n" + std::string(header) + opcodes + "\n";
    }

    [[nodiscard]] bool AppendRegion(std::string& out, SampleFileWriter& files, const std::u16string& folder,
                                    OutRegion& each, const Record& group)
    {
        const SampleFileWriter::Sample* sample = files.Write(*each.wave, folder);
        if (sample == nullptr)
            return false;
        const LoopInfo loop = GetEffectiveLoop(*each.region);
        FromLoop(loop, IsNoRelease(*each.region) || loop.oneShot, *each.wave, generation_, each.record);
        if (sample->mayLoop && each.record[kLoopMode] == kUnset)
            each.record[kLoopMode] = kNoLoop;
        out += "<region> sample=" + WideToUtf8(sample->name);
        AppendDifferences(out, each.record, group);
        out += '\n';
        NoteRegion(each, loop);
        return true;
    }

    void NoteRegion(const OutRegion& each, const LoopInfo& loop)
    {
        if (!notes_.IsWanted())
            return;
        const Region& region = *each.region;
        ArticulationBlock wanted = region.articulation;
        wanted.Set(kArtVolume, wanted[kArtVolume] + each.wave->volume);
        wanted.Set(kArtTuning, wanted[kArtTuning] + static_cast<float>(each.wave->fineTune) / 100);
        UnitLosses losses;
        notes_.Articulation(region, wanted, ToArticulation(each.record, losses));
        notes_.Trigger(region, region.trigger, ToTrigger(each.record, each.wave->rateHz, losses));
        LoopInfo held = ToLoop(each.record, *each.wave);
        held.oneShot = each.record[kLoopMode] == kOneShot && loop.oneShot;
        notes_.Loop(region, loop, held);
        if (region.phaseGroup != 0)
            notes_.Param(region, kParamPhaseGroup, region.phaseGroup, 0);
    }

    void NoteInstrument(const std::u16string& name)
    {
        if (!notes_.IsWanted())
            return;
        notes_.Name(instrument_, name, u"the file's name stands for it");
        for (const ParamId id :
             {kTextArtist, kTextComments, kTextCopyright, kTextEngineer, kTextProduct, kTextImage})
            notes_.Text(instrument_, id, u"", kNoText);
        for (const ParamId id : {kParamBankMsb, kParamBankLsb, kParamProgram, kParamDrum})
            if (instrument_.GetParam(id) != 0)
                notes_.Param(instrument_, id, instrument_.GetParam(id), 0);
        for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot) {
            const ChannelFx& fx = instrument_.channelFx[slot];
            const bool isWritten = generation_ == Generation::Second && !WordOf(fx.type).empty();
            ChannelFx plain;
            plain.type = fx.type;
            if (fx.type == ChannelFxType::None || (isWritten && fx == plain))
                continue;
            notes_.Add({.fidelity = isWritten ? Fidelity::Approximated : Fidelity::Lost,
                        .topic = NoteTopic::Effect,
                        .item = ItemPath(instrument_),
                        .what = u"Channel effect " + std::u16string(1, static_cast<char16_t>(u'1' + slot)),
                        .from = {},
                        .to = {},
                        .reason = isWritten ? u"only its kind is kept" : u"the format has no such effect"});
        }
    }

    const Instrument& instrument_;
    Generation generation_;
    bool hasSubFolder_;
    ConversionNotes& notes_;
    Record global_;
    std::vector<OutGroup> groups_;
};

void NoteRest(const Item& root, const ExportSet& set, ConversionNotes& notes)
{
    if (!notes.IsWanted() || root.Kind() != ItemKind::Collection)
        return;
    std::unordered_set<const Waveform*> used;
    for (const Instrument* instrument : set.Instruments())
        for (const Layer* layer : instrument->Layers())
            for (const Region* region : layer->Regions())
                used.insert(region->Wave());
    for (const Waveform* wave : set.Waveforms())
        if (!used.contains(wave))
            notes.Dropped(*wave, u"no instrument plays it");
    for (const Song& song : root.Owner().All<Song>())
        notes.Dropped(song, u"the format has no songs");
    const auto& texts = static_cast<const TextItem&>(root);
    for (const ParamId id :
         {kTextArtist, kTextComments, kTextCopyright, kTextEngineer, kTextProduct, kTextImage})
        notes.Text(texts, id, u"", kNoText);
}

} // namespace
} // namespace sfz

bool WriteSfz(Item& root, FileObject& file, FormatChoice& choice)
{
    using namespace sfz;
    ExportSet set;
    set.Fill(root, IncludeWaves::Yes);
    if (set.Instruments().empty())
        return Fail(u"No instruments to save!");
    const std::u16string path = file.Path();
    if (path.empty() || path.starts_with(u'<'))
        return Fail(u"Samples need a folder to be written to");
    const std::u16string folder = DirectoryOf(path);
    SampleFileWriter files(root.Owner(), choice);
    files.Reserve(folder, path.substr(GetFileName(path)));
    ConversionNotes notes(root.Owner().GetHost());
    NoteRest(root, set, notes);
    bool isFirst = true;
    for (const Instrument* instrument : set.Instruments()) {
        const std::u16string name = isFirst ? BaseName(path) : SanitizeFileName(instrument->GetName());
        std::string text;
        if (!TextWriter(*instrument, choice.variant, notes).Write(files, folder, name, text))
            return false;
        const bool isWritten =
            isFirst ? file.WriteAll(std::as_bytes(std::span(text))) || Fail(u"Couldn't write to file!")
                    : files.WriteText(folder, name, text);
        if (!isWritten)
            return false;
        isFirst = false;
    }
    files.Keep();
    return true;
}

float SfzSubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name)
{
    if (index > 0)
        return OggSubFormats(index - 1, variant, name);
    if (name != nullptr)
        *name = u"FLAC";
    return 1;
}

} // namespace vimbo
