#include "cli/inputs.h"

#include "base/text.h"
#include "base/worker_pool.h"
#include "formats/open.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

#include <sys/stat.h>

namespace vimbo::cli {

namespace fs = std::filesystem;

namespace {

/// Walks one folder. Real folders come first, links to folders after them, so that a link never hides the
/// real place.
class FolderWalk {
public:
    FolderWalk(const fs::path& root, fs::path skipped, InputList& out)
        : root_(root), skipped_(std::move(skipped)), out_(out)
    {
    }

    void Run()
    {
        std::deque<fs::path> links;
        Visit(root_, "", links);
        while (!links.empty()) {
            const fs::path link = std::move(links.front());
            links.pop_front();
            Visit(root_ / link, link, links);
        }
        std::sort(found_.begin(), found_.end(), [](const InputFile& a, const InputFile& b) {
            return std::tuple(a.subFolder / a.path.filename()) < std::tuple(b.subFolder / b.path.filename());
        });
        std::move(found_.begin(), found_.end(), std::back_inserter(out_.files));
    }

private:
    /// Lists folders with an own stack: trees may be deeper than the program's.
    void Visit(const fs::path& top, const fs::path& topBelow, std::deque<fs::path>& links)
    {
        std::vector<std::pair<fs::path, fs::path>> folders{{top, topBelow}};
        while (!folders.empty()) {
            const auto [folder, below] = std::move(folders.back());
            folders.pop_back();
            if (!IsNew(folder))
                continue;
            for (const fs::path& name : Names(folder)) {
                std::error_code error;
                const fs::path path = folder / name;
                const fs::file_status status = fs::status(path, error);
                if (fs::is_regular_file(status))
                    found_.push_back({path, below, false, true});
                else if (!fs::is_directory(status))
                    out_.problems.push_back({path, "left out: no regular file", false});
                else if (fs::is_symlink(fs::symlink_status(path, error)))
                    links.push_back(below / name);
                else
                    folders.emplace_back(path, below / name);
            }
        }
    }

    bool IsNew(const fs::path& folder)
    {
        struct stat info = {};
        if (::stat(folder.c_str(), &info) != 0)
            return true; // listing it will tell what is wrong
        std::error_code error;
        if (!skipped_.empty() && folder != root_ && fs::equivalent(folder, skipped_, error))
            return false;
        return visited_.emplace(info.st_dev, info.st_ino).second;
    }

    std::vector<fs::path> Names(const fs::path& folder)
    {
        std::vector<fs::path> names;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            if (!entry->path().filename().native().starts_with('.'))
                names.push_back(entry->path().filename());
        }
        if (error)
            out_.problems.push_back({folder, "Could not read folder", true});
        std::sort(names.begin(), names.end());
        return names;
    }

    const fs::path root_;
    const fs::path skipped_;
    InputList& out_;
    std::vector<InputFile> found_;
    std::set<std::pair<dev_t, ino_t>> visited_;
};

} // namespace

InputList GatherInputs(const std::vector<std::string>& arguments, const fs::path& outputFolder)
{
    InputList list;
    for (const std::string& argument : arguments) {
        std::error_code error;
        if (fs::is_directory(argument, error))
            FolderWalk(argument, outputFolder, list).Run();
        else
            list.files.push_back({argument, "", true, true});
    }
    return list;
}

void RecogniseInputs(std::vector<InputFile>& files, std::size_t workers)
{
    RunJobs(files.size(), workers, [&files](std::size_t index) {
        InputFile& file = files[index];
        try {
            if (!file.isNamed)
                file.recognised = IsKnownFormat(PathToWide(file.path.native()));
        } catch (const std::exception&) {
            file.recognised = true; // loading it will tell what is wrong
        }
    });
}

} // namespace vimbo::cli
