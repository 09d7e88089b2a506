#include "cli/convert_job.h"

#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "cli/display.h"
#include "cli/interrupt.h"
#include "cli/process_memory.h"
#include "cli/selection.h"
#include "formats/format_choice.h"
#include "formats/open.h"
#include "formats/save.h"
#include "formats/save_all.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/merge.h"
#include "model/song.h"

#include <exception>
#include <system_error>

namespace vimbo::cli {

namespace fs = std::filesystem;

namespace {

/// Claims nothing for the job unless it claimed something itself, whatever way it ends.
class ClaimTurn {
public:
    ClaimTurn(OutputClaims& claims, std::size_t job) noexcept : claims_(claims), job_(job) {}
    ~ClaimTurn() { Pass(); }
    ClaimTurn(const ClaimTurn&) = delete;
    ClaimTurn& operator=(const ClaimTurn&) = delete;

    std::vector<bool> Claim(const std::vector<fs::path>& places)
    {
        done_ = true;
        return claims_.Claim(job_, places);
    }
    void Pass()
    {
        if (!done_)
            claims_.Pass(job_);
        done_ = true;
    }

private:
    OutputClaims& claims_;
    std::size_t job_;
    bool done_ = false;
};

/// One file to write and what goes into it.
struct Target {
    Item* root = nullptr;
    PlannedJob job;
    bool isLast = false; ///< the collection is not looked at afterwards
};

bool IsReadableKind(const fs::path& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return fs::is_regular_file(status) || fs::is_block_file(status) || !fs::exists(status);
}

bool Load(const PlannedJob& job, const ConvertRun& run, Collection& collection)
{
    if (!IsReadableKind(job.input.path)) // reading a pipe would wait for ever
        return Fail(u"Not a regular file");
    return LoadFile(collection, PathToWide(job.input.path.native()),
                    run.answers.raw ? AllowRaw::Yes : AllowRaw::No);
}

/// Reads the other files of a job that has several. A failed one is named in the Last error text.
bool LoadMerged(const PlannedJob& job, const ConvertRun& run, Collection& collection)
{
    std::vector<FileStart> files;
    CollectionMerger merger(collection);
    for (const InputFile& file : job.merged) {
        Collection loaded;
        loaded.SetHost(collection.GetHost());
        PlannedJob one{file, {}, {}, JobState::Run, ""};
        if (IsInterrupted())
            return Fail(u"Cancelled");
        if (!Load(one, run, loaded))
            return Fail(PathToWide(file.path.native()) + u": " + std::u16string(LastError()));
        files.push_back({collection.CountOf(ItemKind::Waveform)});
        merger.Merge(loaded);
    }
    if (!job.merged.empty()) {
        FinishMerge(collection, files, Unplayed::Drop); // sample files of texts may be inputs themselves
        collection.SetName(PathToWide(job.output.stem().native()));
    }
    return true;
}

/// Songs are played where only sound can be written and there is no other sound.
bool IsRendered(const FormatRow& row, const Collection& collection) noexcept
{
    return (row.kinds & kKindWave) != 0 && (row.kinds & kKindSong) == 0 &&
           collection.CountOf(ItemKind::Waveform) == 0 && collection.CountOf(ItemKind::Song) != 0;
}

/// The kind whose items go into the row's files: the row's own order of preference.
ItemKind KindToWrite(const FormatRow& row, const Collection& collection) noexcept
{
    if ((row.kinds & kKindInstrument) != 0 && collection.CountOf(ItemKind::Instrument) > 0)
        return ItemKind::Instrument;
    if ((row.kinds & (kKindWave | kKindCollection)) != 0 && collection.CountOf(ItemKind::Waveform) > 0)
        return ItemKind::Waveform;
    return (row.kinds & kKindSong) != 0 || IsRendered(row, collection) ? ItemKind::Song : ItemKind::Waveform;
}

std::vector<Item*> ItemsOfKind(const Collection& collection, ItemKind kind)
{
    const auto all = [](const auto& list) { return std::vector<Item*>(list.begin(), list.end()); };
    if (kind == ItemKind::Instrument)
        return all(collection.List<Instrument>());
    return kind == ItemKind::Song ? all(collection.List<Song>()) : all(collection.List<Waveform>());
}

/// The item that goes into a single file, null if each item needs a file of its own.
Item* SingleRoot(Collection& collection, const FormatRow& row, ItemKind kind, bool isNamedEach)
{
    if (isNamedEach && kind == ItemKind::Instrument && HasFilePerInstrument(row))
        return nullptr;
    const bool takesAll = (row.kinds & kKindCollection) != 0 && !IsRendered(row, collection);
    if (takesAll || collection.CountOf(kind) == 0)
        return &collection;
    return collection.CountOf(kind) == 1 ? ItemsOfKind(collection, kind).front() : nullptr;
}

fs::path OutputFor(const Item& item, std::size_t index, std::size_t count, const fs::path& output,
                   const ConvertRun& run)
{
    if (!run.naming)
        return NumberedOutput(output, index, count, item.GetName());
    return WideToPath(AutoName(PathToWide(output.native()), item, *run.naming, SubFolders::No, index + 1));
}

std::vector<Target> ItemTargets(const PlannedJob& job, const std::vector<Item*>& items, const ConvertRun& run,
                                ClaimTurn& turn)
{
    std::vector<Target> targets;
    std::vector<fs::path> places;
    for (std::size_t i = 0; i < items.size(); ++i) {
        Target target{items[i], job};
        target.job.output = OutputFor(*items[i], i, items.size(), job.output, run);
        places.push_back(run.queries.placeOf(target.job.output));
        targets.push_back(std::move(target));
    }
    const std::vector<bool> isMine = turn.Claim(places);
    for (std::size_t i = 0; i < targets.size(); ++i) {
        PlannedJob& wanted = targets[i].job;
        if (isMine[i]) {
            wanted.state = JobState::Run;
            CheckExisting(wanted, run.existing, run.queries);
        } else {
            wanted.state = JobState::Fail;
            wanted.message = Printable(wanted.output.native()) + " is another file of this run";
        }
    }
    return targets;
}

ConvertReport ReportOf(const PlannedJob& job)
{
    ConvertReport report;
    report.input = job.input.path.native();
    report.output = job.output.native();
    report.error = job.message;
    report.status = job.state == JobState::Skip ? ReportStatus::Skipped : ReportStatus::Failed;
    return report;
}

void DescribeEncoding(const Item& root, const ConvertRun& run, ConvertReport& report)
{
    if (root.Kind() != ItemKind::Waveform)
        return;
    const auto& wave = static_cast<const Waveform&>(root);
    const FormatRow& row = *FindRow(run.row);
    float kbit = 0;
    const DataFormat format = PickDataFormat(wave, run.choice, kbit, row.subFormats, row.variant);
    report.dataFormat = WideToUtf8(DataFormatName(format));
    report.channels = PickChannels(wave, ChoiceForEncoding(run.choice, format));
}

bool MakeFolderFor(const fs::path& output)
{
    const std::u16string folder = PathToWide(output.parent_path().native());
    return folder.empty() || MakeDirectories(folder) || Fail(u"Could not create folder " + folder);
}

bool Write(Target& target, const ConvertRun& run, ConvertReport& report)
{
    const fs::path& output = target.job.output;
    const SaveOptions save{.lastUse = target.isLast, .isFixedUp = true, .services = &run.services};
    if (!MakeFolderFor(output) ||
        !SaveToPath(target.root, PathToWide(output.native()), run.row, run.choice, save))
        return false;
    std::error_code error;
    const std::uintmax_t size = fs::file_size(output, error);
    if (!error)
        report.bytes = size;
    return true;
}

std::string LastErrorText()
{
    const std::string text = Printable(LastError());
    return text.empty() ? "Unknown error" : text;
}

/// Archives, for example: a folder's conversion does not fail for them.
bool HoldsNothing(const PlannedJob& job, const Collection& collection)
{
    constexpr std::size_t kJustTheCollection = 1;
    return !job.input.isNamed && collection.ItemCount() <= kJustTheCollection;
}

ConvertReport Convert(Target& target, const ConvertRun& run)
{
    ConvertReport report = ReportOf(target.job);
    if (target.job.state != JobState::Run)
        return report;
    const Collection& owner = target.root->Owner();
    if (target.root->Kind() == ItemKind::Collection && owner.CountOf(ItemKind::Waveform) == 0 &&
        owner.CountOf(ItemKind::Song) == 0 && run.dryRun) {
        report.error = "Empty item - nothing to save";
        return report;
    }
    DescribeEncoding(*target.root, run, report);
    ClearLastError();
    if (run.dryRun || Write(target, run, report)) {
        report.status = run.dryRun ? ReportStatus::WouldConvert : ReportStatus::Converted;
        return report;
    }
    report.error = LastErrorText();
    return report;
}

void LeaveOut(ConvertReport& report, std::string why)
{
    report.status = ReportStatus::Skipped;
    report.error = std::move(why);
}

void ConvertFile(const PlannedJob& job, const ConvertRun& run, ClaimTurn& turn, CliHost& host,
                 JobResult& result)
{
    result.reports.push_back(ReportOf(job));
    ConvertReport& report = result.reports.back();
    if (IsInterrupted())
        return LeaveOut(report, "Cancelled");
    if (job.state != JobState::Run)
        return;
    ClearLastError();
    auto owned = std::make_unique<Collection>();
    Collection& collection = *owned;
    collection.SetHost(host);
    if (!Load(job, run, collection) || !LoadMerged(job, run, collection)) {
        report.error = LastErrorText();
        return;
    }
    if (HoldsNothing(job, collection))
        return LeaveOut(report, "Holds nothing to convert");
    const FormatRow& row = *FindRow(run.row);
    const ItemKind kind = KindToWrite(row, collection);
    const std::vector<std::string> unmatched = KeepSelected(collection, run.select, kind);
    if (!unmatched.empty()) {
        report.error = "Nothing in it is called \"" + unmatched.front() + "\"";
        return;
    }
    result.reports.clear();
    std::vector<Target> targets;
    if (Item* root = SingleRoot(collection, row, kind, run.naming.has_value()))
        targets.push_back({root, job});
    else
        targets = ItemTargets(job, ItemsOfKind(collection, kind), run, turn);
    turn.Pass();
    if (!targets.empty())
        targets.back().isLast = true;
    if (!targets.empty() && !run.dryRun) // once for all of them
        FixUpItems(collection, SavePruneMask(targets.front().root->Kind()), AfterLoad::No);
    for (Target& target : targets) {
        result.reports.push_back(Convert(target, run));
        result.reports.back().notes = host.TakeNotes();
    }
    if (run.isSingleJob)
        LeaveToExit(std::move(owned));
}

} // namespace

JobResult RunConvertJob(const PlannedJob& job, std::size_t index, const ConvertRun& run, OutputClaims& claims,
                        Console& console) noexcept
{
    JobResult result;
    ClaimTurn turn(claims, index);
    CliHost host(console, index, {run.answers, false, run.wantsNotes});
    try {
        ConvertFile(job, run, turn, host, result);
    } catch (const std::bad_alloc&) {
        result.reports.assign(1, ReportOf(job));
        result.reports.back().error = "Out of memory";
    } catch (const std::exception& error) {
        result.reports.assign(1, ReportOf(job));
        result.reports.back().error = Printable(error.what());
    }
    result.messages = host.TakeMessages();
    console.SetProgress(index, 1);
    return result;
}

} // namespace vimbo::cli
