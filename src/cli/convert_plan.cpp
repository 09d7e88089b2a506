#include "cli/convert_plan.h"

#include "base/text.h"
#include "cli/display.h"
#include "formats/save.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <system_error>

namespace vimbo::cli {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMaxWaveNameUnits = 100;
constexpr std::size_t kMaxFileNameBytes = 255; ///< NAME_MAX of the usual Linux file systems

fs::path OutputOf(const InputFile& input, const PlanOptions& options)
{
    if (options.output && !options.outputIsFolder)
        return *options.output;
    fs::path name = input.path.stem();
    name += "." + options.extension;
    const fs::path folder = options.output ? *options.output / input.subFolder : input.path.parent_path();
    return folder / name;
}

/// The folder's real place plus the name: links in the folders do not matter, and the file need not exist.
fs::path SystemPlaceOf(const fs::path& path)
{
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error);
    if (error)
        return path.lexically_normal();
    const fs::path folder = fs::weakly_canonical(absolute.parent_path(), error);
    return (error ? absolute.parent_path().lexically_normal() : folder) / absolute.filename();
}

void Refuse(PlannedJob& job, std::string message)
{
    job.state = JobState::Fail;
    job.message = std::move(message);
}

/// Makes a file name of an item's name, short enough for `extra` more bytes.
std::string FitFileName(std::u16string_view name, std::size_t extra)
{
    std::size_t units = kMaxWaveNameUnits;
    std::string bytes = WideToPath(SanitizeFileName(name, units));
    while (units > 1 && bytes.size() + extra > kMaxFileNameBytes)
        bytes = WideToPath(SanitizeFileName(name, --units));
    return bytes;
}

} // namespace

FileQueries SystemFileQueries()
{
    FileQueries queries;
    queries.exists = [](const fs::path& path) {
        std::error_code error;
        return fs::exists(fs::symlink_status(path, error));
    };
    queries.placeOf = SystemPlaceOf;
    return queries;
}

bool MeansFolder(const fs::path& output, const std::vector<std::string>& inputs)
{
    std::error_code error;
    if (fs::is_directory(output, error) || output.native().ends_with('/') || inputs.size() > 1)
        return true;
    return std::any_of(inputs.begin(), inputs.end(),
                       [&error](const std::string& input) { return fs::is_directory(input, error); });
}

void CheckExisting(PlannedJob& job, Existing existing, const FileQueries& queries)
{
    if (existing == Existing::Replace || !queries.exists(job.output))
        return;
    if (existing == Existing::Refuse)
        return Refuse(job, Printable(job.output.native()) + " exists already (--force replaces it)");
    job.state = JobState::Skip;
    job.message = Printable(job.output.native()) + " exists already";
}

std::vector<PlannedJob> PlanConversion(const std::vector<InputFile>& inputs, const PlanOptions& options,
                                       const FileQueries& queries)
{
    std::map<fs::path, std::size_t> inputPlaces; // place of each input to its number
    for (std::size_t i = 0; i < inputs.size(); ++i)
        inputPlaces.try_emplace(queries.placeOf(inputs[i].path), i);

    std::map<fs::path, fs::path> writers; // place of each output to the input that goes there
    std::vector<PlannedJob> jobs;
    for (const InputFile& input : inputs) {
        if (!input.recognised)
            continue;
        PlannedJob job{input, OutputOf(input, options), {}, JobState::Run, ""};
        const fs::path place = queries.placeOf(job.output);
        const auto victim = inputPlaces.find(place);
        const auto [writer, isFirst] = writers.try_emplace(place, input.path);
        if (victim != inputPlaces.end() && place != queries.placeOf(input.path)) {
            Refuse(job, Printable(job.output.native()) + " is itself an input of this run");
            if (isFirst)
                writers.erase(writer);
        } else if (!isFirst) {
            Refuse(job, fmt::format("{} is already the output of {}", Printable(job.output.native()),
                                    Printable(writer->second.native())));
        } else {
            CheckExisting(job, options.existing, queries);
        }
        jobs.push_back(std::move(job));
    }
    return jobs;
}

std::vector<PlannedJob> PlanMerge(const std::vector<InputFile>& inputs, const PlanOptions& options,
                                  const FileQueries& queries)
{
    std::vector<InputFile> read;
    std::ranges::copy_if(inputs, std::back_inserter(read), &InputFile::recognised);
    if (read.empty())
        return {};
    PlannedJob job{read.front(), *options.output, {read.begin() + 1, read.end()}, JobState::Run, ""};
    const fs::path place = queries.placeOf(job.output);
    if (std::ranges::any_of(read, [&](const InputFile& file) { return queries.placeOf(file.path) == place; }))
        Refuse(job, Printable(job.output.native()) + " is itself an input of this run");
    else
        CheckExisting(job, options.existing, queries);
    return {job};
}

fs::path NumberedOutput(const fs::path& output, std::size_t index, std::size_t count,
                        std::u16string_view name)
{
    const std::size_t digits = std::max<std::size_t>(2, std::to_string(count).size());
    const std::string front = fmt::format("{}-{:0{}}-", output.stem().native(), index + 1, digits);
    const std::string back = output.extension().native();
    return output.parent_path() / (front + FitFileName(name, front.size() + back.size()) + back);
}

} // namespace vimbo::cli
