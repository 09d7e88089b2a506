// Output names that are known only once a file is loaded, given away in the order of the jobs.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <set>
#include <vector>

namespace vimbo::cli {

/// Every job calls Claim or Pass once. A claim waits until all earlier jobs have done so: who gets a name
/// that two want does not depend on how many run side by side. Jobs must be started in ascending order, as
/// RunJobs does. Thread: safe.
class OutputClaims {
public:
    /// @param jobs number of jobs; @param taken places that are not to be had
    OutputClaims(std::size_t jobs, std::set<std::filesystem::path> taken);

    /// Takes those of the places that are still free. @return for each place whether it was free
    std::vector<bool> Claim(std::size_t job, const std::vector<std::filesystem::path>& places);
    /// Tells that the job claims nothing.
    void Pass(std::size_t job);

private:
    void FinishLocked(std::size_t job);

    std::mutex mutex_;
    std::condition_variable turnChanged_;
    std::vector<bool> finished_;
    std::size_t turn_ = 0; ///< first job that has not finished
    std::set<std::filesystem::path> taken_;
};

} // namespace vimbo::cli
