// Converting one file: loading it into a collection of its own and writing what is in it.
#pragma once

#include "cli/cli_host.h"
#include "cli/convert_plan.h"
#include "cli/output_claims.h"
#include "formats/format_table.h"
#include "formats/save.h"
#include "formats/save_all.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vimbo::cli {

enum class ReportStatus { Converted, Skipped, Failed, WouldConvert };

/// What became of one output file.
struct ConvertReport {
    std::string input;  ///< paths of the system
    std::string output; ///< "" if it never came so far
    ReportStatus status = ReportStatus::Failed;
    std::string error; ///< why it failed or was skipped
    std::string dataFormat;
    unsigned channels = 0;
    std::optional<std::uint64_t> bytes;
    std::vector<ConversionNote> notes; ///< those of reading stand with the first file that was written
};

struct JobResult {
    std::vector<HostMessage> messages;
    std::vector<ConvertReport> reports; ///< at least one; several for a file with several waveforms
};

/// What all jobs of a run share.
struct ConvertRun {
    int row = -1;
    FormatChoice choice;
    Existing existing = Existing::Refuse;
    ReadAnswers answers;
    bool dryRun = false;
    bool wantsNotes = false;
    bool isSingleJob = false;         ///< the program ends behind it
    std::optional<AutoNaming> naming; ///< of the files of one bank; none: "<stem>-<NN>-<name>"
    std::vector<std::string> select;
    SaveServices services; ///< for songs and synthesis models that are to become sound
    FileQueries queries;
};

/// Does job number `index` of the plan. Throws nothing. Thread: any; one call per job.
JobResult RunConvertJob(const PlannedJob& job, std::size_t index, const ConvertRun& run, OutputClaims& claims,
                        Console& console) noexcept;

} // namespace vimbo::cli
