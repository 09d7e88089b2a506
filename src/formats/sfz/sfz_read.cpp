// Reading SFZ: levels of opcodes become an instrument, its layers and their regions.
#include "base/last_error.h"
#include "base/path.h"
#include "formats/sfz/sfz.h"
#include "formats/sfz/sfz_samples.h"
#include "formats/sfz/sfz_units.h"
#include "model/instrument.h"
#include "model/key_velocity_grid.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <set>

namespace vimbo {
namespace sfz {
namespace {

/// More regions are no instrument but an attempt to exhaust memory.
constexpr std::size_t kMaxRegions = std::size_t{1} << 18;
/// Regions on top of each other in one group.
constexpr std::size_t kMaxStacked = 512;
constexpr std::size_t kMaxOpcodeNames = 1000; ///< in reports
constexpr int kOctave = 12;

std::string Lower(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

/// Kinds of effects by their words.
ChannelFxType EffectOf(std::string_view word)
{
    struct Row {
        std::string_view word;
        ChannelFxType type;
    };
    constexpr Row kRows[] = {{"comp", ChannelFxType::Compressor},  {"delay", ChannelFxType::Delay},
                             {"disto", ChannelFxType::Distortion}, {"fverb", ChannelFxType::Reverb},
                             {"phaser", ChannelFxType::Phaser},    {"chorus", ChannelFxType::Chorus},
                             {"flanger", ChannelFxType::Chorus}};
    const auto* found = std::ranges::find(kRows, word, &Row::word);
    return found != std::end(kRows) ? found->type : ChannelFxType::None;
}

/// What could not be placed, to be told at the end.
struct Losses {
    std::map<std::string, std::uint64_t> opcodes;
    std::map<std::string, std::uint64_t> generators; ///< "*sine" and the like
    UnitLosses units;
    TextLosses text;
    std::uint64_t withoutSample = 0, unplayable = 0, stacked = 0, offsets = 0, embedded = 0, curves = 0,
                  effects = 0, otherCount = 0;
};

/// A level of the text.
enum class Level { Control, Global, Master, Group, Region, Effect, None };

class TextReader {
public:
    TextReader(Collection& items, SampleFiles& files, Losses& losses)
        : items_(items), files_(files), losses_(losses),
          instrument_(items.Create<Instrument>(items.GetName()))
    {
        instrument_.location.word = 0;
    }

    void Header(std::string_view name)
    {
        FinishRegion();
        CopyDown();
        level_ = LevelOf(name);
        switch (level_) {
        case Level::Control:
            defaultPath_.clear();
            break;
        case Level::Global:
            global_ = Record();
            master_ = group_ = global_;
            isNewGroup_ = true;
            break;
        case Level::Master:
            master_ = group_ = global_;
            isNewGroup_ = true;
            break;
        case Level::Group:
            group_ = master_;
            isNewGroup_ = true;
            break;
        case Level::Region:
            region_ = group_;
            break;
        case Level::Effect:
        case Level::None:
            losses_.embedded += name == "sample" ? 1 : 0;
            losses_.curves += name == "curve" ? 1 : 0;
            break;
        }
    }

    void Opcode(std::string_view rawName, std::string_view value)
    {
        const std::string name = Lower(rawName);
        if (name == "default_path") {
            defaultPath_ = value;
            return;
        }
        if (level_ == Level::Control)
            TakeControl(name, value);
        else if (level_ == Level::Effect)
            TakeEffect(name, value);
        else if (Record* record = Current())
            Take(*record, name, value);
    }

    /// False if there are too many regions.
    bool Finish()
    {
        FinishRegion();
        CopyDown();
        MatchGroups();
        SetLevels();
        return regions_ <= kMaxRegions;
    }

private:
    static Level LevelOf(std::string_view name)
    {
        struct Row {
            std::string_view name;
            Level level;
        };
        constexpr Row kRows[] = {{"control", Level::Control}, {"global", Level::Global},
                                 {"master", Level::Master},   {"group", Level::Group},
                                 {"region", Level::Region},   {"effect", Level::Effect}};
        const auto* found = std::ranges::find(kRows, name, &Row::name);
        return found != std::end(kRows) ? found->level : Level::None;
    }

    /// Opcodes ahead of the first header count for all.
    Record* Current() noexcept
    {
        switch (level_) {
        case Level::Global:
            return &global_;
        case Level::Master:
            return &master_;
        case Level::Group:
            return &group_;
        case Level::Region:
            return &region_;
        default:
            return nullptr;
        }
    }

    void Take(Record& record, const std::string& name, std::string_view value)
    {
        if (name == "sample") {
            record.sample = value.starts_with('*') || value.empty() ? std::string(value)
                                                                    : defaultPath_ + std::string(value);
        } else if (const OpcodeRow* row = FindOpcode(name)) {
            double number = 0;
            if (ParseValue(*row, value, number))
                Store(record, *row, number);
            else
                Lose(name);
        } else if (name != "seq_position" && !TakeFlexOpcode(record, name, value)) {
            Lose(name);
        }
    }

    void Store(Record& record, const OpcodeRow& row, double number) const
    {
        if (row.kind == ValueKind::Key && number >= 0)
            number += keyOffset_;
        if (row.op == kKey)
            record[kLowKey] = record[kHighKey] = record[kKeyCenter] = number;
        else
            record[row.op] = number;
    }

    /// Opcodes of upper levels reach those below that have not begun yet.
    void CopyDown()
    {
        if (level_ == Level::Global)
            master_ = group_ = global_;
        else if (level_ == Level::Master)
            group_ = master_;
    }

    void TakeControl(const std::string& name, std::string_view value)
    {
        int number = 0;
        const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
        const bool isNote = name == "note_offset", isOctave = name == "octave_offset";
        if ((!isNote && !isOctave) || error != std::errc() || end == value.data() ||
            std::abs(number) > kOctave * kOctave) {
            Lose(name);
            return;
        }
        (isNote ? noteOffset_ : octaveOffset_) = number;
        keyOffset_ = noteOffset_ + kOctave * octaveOffset_;
    }

    void TakeEffect(const std::string& name, std::string_view value)
    {
        const ChannelFxType type = name == "type" ? EffectOf(Lower(value)) : ChannelFxType::None;
        if (type == ChannelFxType::None || effects_ == kChannelFxSlots) {
            ++losses_.effects;
            return;
        }
        instrument_.channelFx[effects_++].type = type;
    }

    void Lose(const std::string& name)
    {
        const auto known = losses_.opcodes.find(name);
        if (known != losses_.opcodes.end())
            ++known->second;
        else if (losses_.opcodes.size() < kMaxOpcodeNames)
            losses_.opcodes.emplace(name, 1);
        else
            ++losses_.otherCount;
    }

    void FinishRegion()
    {
        if (level_ != Level::Region)
            return;
        level_ = Level::None;
        if (region_.sample.empty()) {
            ++losses_.withoutSample;
        } else if (region_.sample.front() == '*') {
            ++losses_.generators[region_.sample];
        } else if (region_[kHighKey] < 0 || region_[kLowKey] > 127 || region_[kHighVel] < 0 ||
                   region_[kEnd] == -1) {
            ++losses_.unplayable;
        } else if (++regions_ <= kMaxRegions) {
            if (Waveform* wave = files_.Find(region_.sample))
                AddRegion(*wave);
        }
    }

    void AddRegion(Waveform& wave)
    {
        wave.fineTune = 0; // tuning in sample files is not heard
        const TriggerParams trigger = ToTrigger(region_, wave.rateHz, losses_.units);
        Layer* layer = LayerFor({trigger.keys, trigger.velocities});
        if (layer == nullptr) {
            ++losses_.stacked;
            return;
        }
        Region& region = layer->AddRegion(wave.Handle());
        region.trigger = trigger;
        region.articulation = ToArticulation(region_, losses_.units);
        region.overrideFlags = Region::kAllOverrides;
        region.rootKey = RootKeyOf(wave);
        region.loop = ToLoop(region_, wave);
        SetOffsets(region, wave);
        groups_[&region] = region_[kGroup];
        offBys_.insert(region_[kOffBy]);
    }

    std::uint8_t RootKeyOf(const Waveform& wave) const noexcept
    {
        const double key = region_[kKeyCenter];
        return key == kKeyOfSample ? wave.rootKey : static_cast<std::uint8_t>(std::clamp(key, 0.0, 127.0));
    }

    void SetOffsets(Region& region, const Waveform& wave)
    {
        const double frames = wave.frames;
        const double offset = std::clamp(region_[kOffset], 0.0, frames);
        region.startOffset = static_cast<std::int32_t>(std::min(offset, double{INT32_MAX}));
        if (region_[kEnd] >= 0) {
            const double end = std::min(region_[kEnd] + 1, frames); // the last frame that plays
            region.endOffset = -static_cast<std::int32_t>(std::min(frames - end, double{INT32_MAX}));
        }
        if (offset != region_[kOffset] || (region_[kEnd] != kUnset && region_[kEnd] + 1 > frames))
            ++losses_.offsets;
    }

    /// The group's first layer where the zone is free. Null if too many are on top of each other.
    Layer* LayerFor(const Zone& zone)
    {
        if (isNewGroup_) {
            stack_.clear();
            isNewGroup_ = false;
        }
        for (const std::unique_ptr<Place>& at : stack_)
            if (at->grid.IsFree(zone)) {
                at->grid.Add(zone);
                return at->layer;
            }
        if (stack_.size() == kMaxStacked)
            return nullptr;
        stack_.push_back(std::make_unique<Place>());
        stack_.back()->layer = &instrument_.AddLayer();
        stack_.back()->grid.Add(zone);
        layers_.emplace_back(stack_.back()->layer, ArticulationBlock());
        UnitLosses none;
        layers_.back().second = ToArticulation(group_, none);
        return stack_.back()->layer;
    }

    /// Regions without off_by that others name are of their group too.
    void MatchGroups()
    {
        for (const auto& [region, group] : groups_)
            if (group > 0 && region->trigger.exclusionGroup == 0 && offBys_.contains(group))
                region->trigger.Set(kParamExclusionGroup, static_cast<float>(std::min(group, 65535.0)));
    }

    /// Articulation of global opcodes at the instrument, of groups at the layers. What a level shares with
    /// the one above is not marked.
    void SetLevels()
    {
        UnitLosses none;
        instrument_.articulation = ToArticulation(global_, none);
        for (const auto& [layer, block] : layers_) {
            layer->articulation = block;
            layer->articulation.MarkDifferences(instrument_.articulation);
            for (Region* region : layer->Regions())
                region->articulation.MarkDifferences(block);
        }
    }

    struct Place {
        Layer* layer = nullptr;
        KeyVelocityGrid grid;
    };

    Collection& items_;
    SampleFiles& files_;
    Losses& losses_;
    Instrument& instrument_;
    Level level_ = Level::Global;
    Record global_, master_, group_, region_;
    std::string defaultPath_;
    int noteOffset_ = 0, octaveOffset_ = 0, keyOffset_ = 0;
    std::size_t effects_ = 0, regions_ = 0;
    bool isNewGroup_ = true;
    std::vector<std::unique_ptr<Place>> stack_;
    std::vector<std::pair<Layer*, ArticulationBlock>> layers_;
    std::map<Region*, double> groups_;
    std::set<double> offBys_;
};

class LossReport {
public:
    explicit LossReport(Host& host) noexcept : host_(host) {}

    void Tell(const Losses& losses)
    {
        if (!host_.WantsNotes())
            return;
        constexpr std::u16string_view kNoPlace = u"there is no such parameter";
        for (const auto& [name, count] : losses.opcodes)
            Note(NoteTopic::Parameter, u"Opcode " + ToWide(name), count, kNoPlace);
        Note(NoteTopic::Parameter, u"Other opcodes", losses.otherCount, kNoPlace);
        for (const auto& [name, count] : losses.generators)
            Note(NoteTopic::Region, u"Generated sound " + ToWide(name), count, u"it plays no sample");
        const UnitLosses& units = losses.units;
        Note(NoteTopic::Parameter, u"bend_down", units.bends, u"it goes as far as bend_up");
        Note(NoteTopic::Parameter, u"Velocity to times", units.times, u"the time is 0");
        Note(NoteTopic::Parameter, u"Envelopes", units.envelopes, u"another one has the same target");
        Note(NoteTopic::Parameter, u"LFOs", units.lfos, u"another one has the same target");
        Note(NoteTopic::Trigger, u"Random ranges", units.randoms, u"the regions play in turn");
        Note(NoteTopic::Trigger, u"Groups", units.groups, u"off_by names another group");
        Note(NoteTopic::Trigger, u"Pedal ranges", units.pedals, u"the pedal has two positions");
        Note(NoteTopic::Region, u"Regions", losses.withoutSample, u"they name no sample");
        Note(NoteTopic::Region, u"Regions", losses.unplayable, u"no key plays them");
        Note(NoteTopic::Region, u"Regions", losses.stacked, u"too many of them overlap");
        Note(NoteTopic::Region, u"Sample offsets", losses.offsets, u"they reach outside the sample");
        Note(NoteTopic::Waveform, u"Samples in the text", losses.embedded, u"only sample files are read");
        Note(NoteTopic::Other, u"Curves", losses.curves, u"there is no place for them");
        Note(NoteTopic::Effect, u"Effect settings", losses.effects, u"there is no place for them");
        Note(NoteTopic::Other, u"#include", losses.text.missingIncludes, u"the file could not be opened");
        Note(NoteTopic::Other, u"#include", losses.text.refusedIncludes,
             u"it leads in a circle, or too deep");
        Note(NoteTopic::Other, u"Text", losses.text.isCut ? 1 : 0, u"it grows beyond 64 MB");
    }

private:
    void Note(NoteTopic topic, std::u16string what, std::uint64_t count, std::u16string_view reason)
    {
        if (count != 0)
            host_.NoteConversion({.fidelity = Fidelity::Lost,
                                  .topic = topic,
                                  .item = {},
                                  .what = std::move(what),
                                  .from = {},
                                  .to = {},
                                  .reason = std::u16string(reason),
                                  .count = count});
    }
    Host& host_;
};

} // namespace

bool ReadText(Collection& collection, std::string_view text, const Surroundings& place)
{
    SampleFiles files(collection, place);
    Losses losses;
    TextReader reader(collection, files, losses);
    const IncludeLoader load = [&files](std::string_view name, std::string_view includer) {
        return files.LoadInclude(name, includer);
    };
    const std::string whole = Preprocess(text, files.IdOf(place.file), load, losses.text);
    Tokenize(whole, {[&](std::string_view name) { reader.Header(name); },
                     [&](std::string_view name, std::string_view value) { reader.Opcode(name, value); }});
    const bool isComplete = reader.Finish();
    files.Report();
    LossReport(collection.GetHost()).Tell(losses);
    if (!isComplete)
        return Fail(u"The SFZ instrument has too many regions");
    UnifyRegionWaveSettings(collection);
    for (Region& region : collection.All<Region>())
        region.DropEqualOverrides();
    return true;
}

} // namespace sfz

bool ReadSfz(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    if (file.Size() > sfz::kMaxTextBytes)
        return Fail(u"The SFZ file is larger than 64 MB");
    std::string text(static_cast<std::size_t>(file.Size()), '\0');
    if (!file.ReadExact(std::as_writable_bytes(std::span(text))))
        return Fail(u"Could not read the SFZ file");
    const std::u16string& path = file.Path();
    sfz::Surroundings place;
    place.folder = DirectoryOf(path);
    place.file = path;
    place.isNowhere = path.empty() || path.starts_with(u'<');
    return sfz::ReadText(collection, text, place);
}

} // namespace vimbo
