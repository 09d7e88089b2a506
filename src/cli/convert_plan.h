// Which file goes where, settled before any work starts: the plan does not depend on how the work is shared
// out.
#pragma once

#include "cli/inputs.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vimbo::cli {

/// What happens to output files that exist.
enum class Existing { Refuse, Replace, LeaveAlone };

struct PlanOptions {
    std::string extension; ///< of the output, without the dot
    std::optional<std::filesystem::path> output;
    bool outputIsFolder = false;
    Existing existing = Existing::Refuse;
};

enum class JobState { Run, Skip, Fail };

struct PlannedJob {
    InputFile input;
    std::filesystem::path output;
    std::vector<InputFile> merged{}; ///< read behind `input` into the same collection
    JobState state = JobState::Run;
    std::string message; ///< why it is not run
};

/// What the plan asks the file system; tests answer from a list.
struct FileQueries {
    std::function<bool(const std::filesystem::path&)> exists;
    /// Equal for two paths exactly if they name the same place.
    std::function<std::filesystem::path(const std::filesystem::path&)> placeOf;
};
FileQueries SystemFileQueries();

/// True if `output` must be a folder: it is one, it ends in "/", or there may be more than one file.
bool MeansFolder(const std::filesystem::path& output, const std::vector<std::string>& inputs);

/// One job per recognised input, in their order. An output that is another input of the run, or that an
/// earlier job writes, makes the job fail; one that exists is dealt with by `options.existing`.
std::vector<PlannedJob> PlanConversion(const std::vector<InputFile>& inputs, const PlanOptions& options,
                                       const FileQueries& queries);

/// One job that reads all recognised inputs into `options.output`; none if there are no inputs.
std::vector<PlannedJob> PlanMerge(const std::vector<InputFile>& inputs, const PlanOptions& options,
                                  const FileQueries& queries);

/// Applies the rule for existing files to one output; fills state and message.
void CheckExisting(PlannedJob& job, Existing existing, const FileQueries& queries);

/// "<stem of output>-<NN>-<name>" with the extension of `output`: the file of one of several waveforms.
/// @param index from 0; NN counts from 01 and has as many digits as `count` needs
std::filesystem::path NumberedOutput(const std::filesystem::path& output, std::size_t index,
                                     std::size_t count, std::u16string_view name);

} // namespace vimbo::cli
