// Reading SFZ: levels of opcodes become an instrument, its layers and their regions.
#include "base/last_error.h"
#include "base/path.h"
#include "formats/save_all.h"
#include "formats/sfz/sfz.h"
#include "formats/sfz/sfz_effects.h"
#include "formats/sfz/sfz_losses.h"
#include "formats/sfz/sfz_samples.h"
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
constexpr std::size_t kShownValue = 20;
constexpr int kOctave = 12;

std::string Lower(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

/// A level of the text.
enum class Level { Control, Global, Master, Group, Region, Effect, None };

class TextReader {
public:
    TextReader(Collection& items, SampleFiles& files, ReadLosses& losses)
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
            ++effects_;
            break;
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
        } else if ((level_ == Level::Group && name == "group_label") ||
                   (level_ == Level::Master && name == "master_label")) {
            record.label = value;
        } else if (const OpcodeRow* row = FindOpcode(name)) {
            double number = 0;
            if (ParseValue(*row, value, number))
                Store(record, *row, number);
            else
                Lose(name + "=" + std::string(value.substr(0, kShownValue)));
        } else if (!TakeFlexOpcode(record, name, value)) {
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

    /// Each header takes a slot, also one without a kind: sends go by the slots' numbers.
    void TakeEffect(const std::string& name, std::string_view value)
    {
        const auto found = name == "type" ? EffectOf(Lower(value)) : std::nullopt;
        if (!found || effects_ > kChannelFxSlots) {
            ++losses_.effects;
            return;
        }
        instrument_.channelFx[effects_ - 1] = found->effect;
        if (!found->isExact)
            ++losses_.nearEffects[Lower(value)];
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
        CheckSequence();
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

    /// Regions that play in turn do so in the order of the text.
    void CheckSequence()
    {
        if (region_[kSeqLength] <= 1)
            return;
        losses_.sequences += region_[kSeqPosition] != std::fmod(sequence_, region_[kSeqLength]) + 1 ? 1 : 0;
        sequence_ = region_[kSeqPosition];
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
        const auto isOutside = [&](std::size_t op) {
            return region_[op] != kUnset && region_[op] + 1 > frames;
        };
        const bool isLooped = region.loop.type != LoopType::Off;
        if (offset != region_[kOffset] || isOutside(kEnd) || (isLooped && isOutside(kLoopEnd)))
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
        stack_.back()->layer = &instrument_.AddLayer(ToWide(group_.label));
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
    ReadLosses& losses_;
    Instrument& instrument_;
    Level level_ = Level::Global;
    Record global_, master_, group_, region_;
    std::string defaultPath_;
    int noteOffset_ = 0, octaveOffset_ = 0, keyOffset_ = 0;
    std::size_t effects_ = 0, regions_ = 0;
    double sequence_ = 0; ///< place of the last region that plays in turn
    bool isNewGroup_ = true;
    std::vector<std::unique_ptr<Place>> stack_;
    std::vector<std::pair<Layer*, ArticulationBlock>> layers_;
    std::map<Region*, double> groups_;
    std::set<double> offBys_;
};

} // namespace

bool ReadText(Collection& collection, std::string_view text, const Surroundings& place)
{
    SampleFiles files(collection, place);
    ReadLosses losses;
    TextReader reader(collection, files, losses);
    const IncludeLoader load = [&files](std::string_view name, std::string_view includer) {
        return files.LoadInclude(name, includer);
    };
    const std::string whole = Preprocess(text, files.IdOf(place.file), load, losses.text);
    Tokenize(whole, {[&](std::string_view name) { reader.Header(name); },
                     [&](std::string_view name, std::string_view value) { reader.Opcode(name, value); }});
    const bool isComplete = reader.Finish();
    files.Report();
    TellLosses(collection.GetHost(), losses);
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
    if (!sfz::ReadText(collection, text, place))
        return false;
    // A text has no place for the MIDI location; files of a bank may be named by it.
    for (Instrument& instrument : collection.All<Instrument>()) {
        std::u16string name(instrument.GetName());
        if (const std::optional<MidiLocation> location = TakeProgram(name)) {
            instrument.location = *location;
            instrument.SetName(name);
        }
    }
    return true;
}

} // namespace vimbo
