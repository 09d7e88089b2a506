#include "cli/commands.h"
#include "cli/convert_job.h"
#include "cli/display.h"
#include "cli/format_lookup.h"
#include "cli/interrupt.h"
#include "cli/notes_report.h"
#include "cli/report_json.h"
#include "cli/user_settings.h"

#include "app/render_settings.h"
#include "base/text.h"
#include "base/worker_pool.h"
#include "synth/save_services.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <set>

namespace vimbo::cli {

namespace fs = std::filesystem;

namespace {

struct Counts {
    std::size_t converted = 0;
    std::size_t skipped = 0;
    std::size_t failed = 0;
    std::size_t unrecognised = 0; ///< files of folders that no format matches
};

/// Prints what jobs have to say in the order of the plan, however they finish.
class OrderedReports {
public:
    OrderedReports(std::vector<JobResult>& results, Console& console) : results_(results), console_(console)
    {
        ready_.resize(results.size());
    }

    void Finish(std::size_t index, JobResult result)
    {
        const std::lock_guard lock(mutex_);
        results_[index] = std::move(result);
        ready_[index] = true;
        for (; next_ < ready_.size() && ready_[next_]; ++next_)
            Print(results_[next_]);
    }

private:
    void Print(const JobResult& result)
    {
        for (const HostMessage& message : result.messages)
            console_.Say(message.severity, result.reports.front().input, message.text);
        for (const ConvertReport& report : result.reports) {
            if (report.status == ReportStatus::Failed)
                console_.Say(Severity::Error, report.input, report.error);
            else if (report.status == ReportStatus::Skipped)
                console_.Say(Severity::Detail, report.input, "skipped: " + report.error);
            else if (report.status == ReportStatus::Converted)
                console_.Say(Severity::Detail, report.input, "converted to " + Printable(report.output));
        }
    }

    std::mutex mutex_;
    std::vector<bool> ready_;
    std::size_t next_ = 0;
    std::vector<JobResult>& results_;
    Console& console_;
};

bool IsWrongUsage(const ConvertOptions& options, const TypeLookup& type, const ChoiceLookup& choice,
                  Console& console)
{
    std::string error = !type.error.empty() ? type.error : choice.error;
    if (error.empty() && RowExtension(type.row).find_first_of(u"*?") != std::u16string_view::npos)
        error = fmt::format("row {} has no extension to write under", NameRow(type.row));
    if (error.empty() && options.merge && (!options.output || MeansFolder(*options.output, {})))
        error = "--merge needs a file to write to (-o FILE)";
    if (error.empty() && options.output) {
        std::error_code ignored;
        const bool isOther =
            fs::exists(*options.output, ignored) && !fs::is_directory(*options.output, ignored);
        if (isOther && !options.merge && MeansFolder(*options.output, options.inputs))
            error = Printable(*options.output) + " is not a folder, and there may be several files to write";
        else if (options.output->empty())
            error = "the output has no name";
    }
    if (!error.empty())
        console.Say(Severity::Error, "", error);
    return !error.empty();
}

InputList CollectInputs(const ConvertOptions& options, bool outputIsFolder, Console& console, Counts& counts)
{
    InputList list = GatherInputs(options.inputs, outputIsFolder ? fs::path(*options.output) : fs::path());
    for (const InputProblem& problem : list.problems) {
        console.Say(problem.isError ? Severity::Error : Severity::Detail, problem.path.native(),
                    problem.text);
        counts.failed += problem.isError ? 1 : 0;
    }
    if (!options.answers.raw)
        RecogniseInputs(list.files, options.jobs);
    for (const InputFile& file : list.files) {
        if (file.recognised)
            continue;
        ++counts.unrecognised;
        console.Say(Severity::Detail, file.path.native(),
                    "left out: not detected as any supported file type");
    }
    return list;
}

std::vector<JobResult> RunAll(const std::vector<PlannedJob>& jobs, const ConvertRun& run, std::size_t workers,
                              Console& console)
{
    // What the plan gives to one job, and what is read, is not for the numbered files of another.
    std::set<fs::path> taken;
    for (const PlannedJob& job : jobs) {
        taken.insert(run.queries.placeOf(job.input.path));
        for (const InputFile& file : job.merged)
            taken.insert(run.queries.placeOf(file.path));
        taken.insert(run.queries.placeOf(job.output));
    }
    OutputClaims claims(jobs.size(), std::move(taken));
    std::vector<JobResult> results(jobs.size());
    OrderedReports reports(results, console);
    console.StartProgress(jobs.size());
    RunJobs(jobs.size(), workers, [&](std::size_t index) {
        reports.Finish(index, RunConvertJob(jobs[index], index, run, claims, console));
    });
    console.EndProgress();
    return results;
}

/// What was kept, approximated and lost, file by file.
std::string DescribeNotes(const std::vector<JobResult>& results)
{
    std::string text;
    for (const JobResult& result : results)
        for (const ConvertReport& report : result.reports)
            if (report.status == ReportStatus::Converted)
                text += Printable(report.output) + "\n" + NotesText(report.notes);
    return text;
}

std::optional<AutoNaming> NamingOf(const std::string& mode)
{
    static const std::map<std::string, AutoNaming> kModes{
        {"base-number", AutoNaming::BaseAndNumber}, {"number-base", AutoNaming::NumberAndBase},
        {"base-name", AutoNaming::BaseAndName},     {"name", AutoNaming::Name},
        {"number-name", AutoNaming::NumberAndName}, {"source", AutoNaming::SourceFile},
        {"program", AutoNaming::ProgramAndName}};
    const auto found = kModes.find(mode);
    return found != kModes.end() ? std::optional(found->second) : std::nullopt;
}

/// Counts the outcomes; the lines of a dry run are added to `listing`.
void Count(const std::vector<JobResult>& results, Counts& counts, std::string& listing)
{
    for (const JobResult& result : results) {
        for (const ConvertReport& report : result.reports) {
            counts.skipped += report.status == ReportStatus::Skipped ? 1 : 0;
            counts.failed += report.status == ReportStatus::Failed ? 1 : 0;
            counts.converted += report.status == ReportStatus::Converted ? 1 : 0;
            if (report.status == ReportStatus::WouldConvert)
                listing += fmt::format("{} -> {}\n", Printable(report.input), Printable(report.output));
        }
    }
}

std::string Summary(const Counts& counts)
{
    std::string text = fmt::format("{} converted", counts.converted);
    if (counts.skipped > 0)
        text += fmt::format(", {} skipped", counts.skipped);
    if (counts.unrecognised > 0)
        text += fmt::format(", {} not recognised", counts.unrecognised);
    if (counts.failed > 0)
        text += fmt::format(", {} failed", counts.failed);
    return text + "\n";
}

Existing RuleForExisting(const ConvertOptions& options) noexcept
{
    if (options.force)
        return Existing::Replace;
    return options.noClobber ? Existing::LeaveAlone : Existing::Refuse;
}

} // namespace

int RunConvert(const ConvertOptions& options, Console& console)
{
    const TypeLookup type = FindType(options.type);
    ChoiceLookup choice;
    if (type.error.empty())
        choice = MakeChoice(type.row, options.dataFormat, options.channels, options.kbit);
    if (IsWrongUsage(options, type, choice, console))
        return kExitUsage;

    PlanOptions plan;
    plan.extension = WideToUtf8(RowExtension(type.row));
    plan.output = options.output;
    plan.outputIsFolder = options.output && !options.merge && MeansFolder(*options.output, options.inputs);
    plan.existing = RuleForExisting(options);
    ConvertRun run{.row = type.row,
                   .choice = choice.choice,
                   .existing = plan.existing,
                   .answers = options.answers,
                   .dryRun = options.dryRun,
                   .wantsNotes = options.report || options.json,
                   .naming = NamingOf(options.nameMode),
                   .select = options.select,
                   .services = {},
                   .queries = SystemFileQueries()};

    Counts counts;
    const InputList inputs = CollectInputs(options, plan.outputIsFolder, console, counts);
    const std::vector<PlannedJob> jobs = options.merge ? PlanMerge(inputs.files, plan, run.queries)
                                                       : PlanConversion(inputs.files, plan, run.queries);
    run.isSingleJob = jobs.size() == 1;
    const app::Settings settings = LoadUserSettings(console);
    synth::RenderSettings rendering = app::SongRendering(settings);
    rendering.threads = run.isSingleJob ? 0 : 1; // jobs run side by side
    run.services = synth::MakeSaveServices(rendering, app::ModelRendering(settings));
    const std::vector<JobResult> results = RunAll(jobs, run, options.jobs, console);

    std::string output;
    Count(results, counts, output);
    const bool isSingleFile =
        options.inputs.size() == 1 && inputs.files.size() == 1 && inputs.files.front().isNamed;
    if (options.report && !options.json)
        output += DescribeNotes(results);
    if (options.json)
        output = ToText(DescribeReportsJson(results, type.row));
    else if (!options.dryRun && !isSingleFile && !console.IsQuiet())
        output += Summary(counts);
    if (IsInterrupted())
        console.Say(Severity::Error, "", "Cancelled");
    const bool printed = WriteOut(output);
    return counts.failed == 0 && printed && !IsInterrupted() ? kExitGood : kExitFailed;
}

} // namespace vimbo::cli
