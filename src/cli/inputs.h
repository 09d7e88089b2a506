// Which files a conversion works on: the files named, and those in the folders named.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vimbo::cli {

struct InputFile {
    std::filesystem::path path;
    std::filesystem::path subFolder; ///< below the folder that was named; empty for named files
    bool isNamed = true;             ///< named itself, not found in a folder
    bool recognised = true;          ///< found files: some format matches
};

/// A folder, or an entry of one, that was left out.
struct InputProblem {
    std::filesystem::path path;
    std::string text;
    bool isError = false; ///< else a note
};

struct InputList {
    std::vector<InputFile> files; ///< in the order of the arguments; files of one folder sorted by their path
    std::vector<InputProblem> problems;
};

/// Expands the arguments. Hidden entries are left out; links to folders are followed once, and not into
/// folders that the walk meets anyway. @param outputFolder is not walked into ("" for none)
InputList GatherInputs(const std::vector<std::string>& arguments, const std::filesystem::path& outputFolder);

/// Fills `recognised` of the files that were found in folders, `workers` side by side (0: all cores).
void RecogniseInputs(std::vector<InputFile>& files, std::size_t workers);

} // namespace vimbo::cli
