// Writing SFZ: one text for each instrument, sample files beside it.
#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "formats/sfz/sfz.h"
#include "formats/sfz/sfz_effects.h"
#include "formats/sfz/sfz_losses.h"
#include "formats/sfz/sfz_sample_files.h"
#include "formats/xiph/xiph.h"
#include "model/collection.h"
#include "model/envelope.h"

#include <algorithm>
#include <span>
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
    std::string label;
    std::vector<OutRegion> regions;
};

class TextWriter {
public:
    /// @param sampled  waveforms whose losses were told
    TextWriter(const Instrument& instrument, std::uint32_t variant, ConversionNotes& notes,
               std::unordered_set<const Waveform*>& sampled)
        : instrument_(instrument), generation_(GenerationOf(variant)), hasSubFolder_(HasSubFolder(variant)),
          notes_(notes), sampled_(sampled)
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
            AppendLevel(out, "<group>" + group.label, group.record, global_);
            for (OutRegion& region : group.regions)
                if (!AppendRegion(out, files, below, region, group.record))
                    return false;
        }
        NoteInstrument(notes_, instrument_, name, generation_);
        return true;
    }

private:
    void ListGroups()
    {
        for (const Layer* layer : instrument_.Layers()) {
            OutGroup group;
            group.label = LabelOf(*layer);
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
        FromTrigger(region.trigger, record);
        FromArticulation(region.articulation, generation_, record);
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
        const auto isWritten = [](const ChannelFx& fx) { return !WordOf(fx.type).empty(); };
        const auto& all = instrument_.channelFx;
        const auto last = std::ranges::find_if(all.rbegin(), all.rend(), isWritten).base();
        for (const ChannelFx& fx :
             std::span(all.begin(), last)) { // empty ones keep the numbers of the others
            out += "\n<effect>";
            if (isWritten(fx))
                out += " type=" + std::string(WordOf(fx.type));
            out += '\n';
        }
    }

    /// The name of a layer; the first generation has no opcode for it.
    std::string LabelOf(const Layer& layer) const
    {
        const std::string name = LabelText(layer);
        return generation_ == Generation::First || name.empty() ? "" : " group_label=" + name;
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
        if (sampled_.insert(each.wave).second)
            NoteSample(notes_, *each.wave, sample->name, sample->format);
        if (sample->mayLoop && each.record[kLoopMode] == kUnset)
            each.record[kLoopMode] = kNoLoop;
        out += "<region> sample=" + WideToUtf8(sample->name);
        AppendDifferences(out, each.record, group);
        out += '\n';
        NoteRegion(notes_, *each.region, *each.wave, each.record, loop);
        return true;
    }

    const Instrument& instrument_;
    Generation generation_;
    bool hasSubFolder_;
    ConversionNotes& notes_;
    Record global_;
    std::vector<OutGroup> groups_;
    std::unordered_set<const Waveform*>& sampled_; ///< of all instruments: those that were noted
};

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
    NoteRest(notes, root, set);
    std::unordered_set<const Waveform*> sampled;
    bool isFirst = true;
    for (const Instrument* instrument : set.Instruments()) {
        const std::u16string name = isFirst ? BaseName(path) : SanitizeFileName(instrument->GetName());
        std::string text;
        if (!TextWriter(*instrument, choice.variant, notes, sampled).Write(files, folder, name, text))
            return false;
        const bool isWritten =
            isFirst ? file.WriteAll(std::as_bytes(std::span(text))) || Fail(u"Couldn't write to file!")
                    : files.WriteText(folder, name, text);
        if (!isWritten)
            return false;
        isFirst = false;
    }
    // A full disk is found here, ahead of the moment when the samples take their places.
    return (file.Sync() || Fail(u"Couldn't write to file!")) && files.Commit();
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
