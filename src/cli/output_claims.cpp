#include "cli/output_claims.h"

#include <utility>

namespace vimbo::cli {

OutputClaims::OutputClaims(std::size_t jobs, std::set<std::filesystem::path> taken)
    : finished_(jobs, false), taken_(std::move(taken))
{
}

std::vector<bool> OutputClaims::Claim(std::size_t job, const std::vector<std::filesystem::path>& places)
{
    std::unique_lock lock(mutex_);
    turnChanged_.wait(lock, [&] { return turn_ >= job; });
    std::vector<bool> isMine;
    for (const std::filesystem::path& place : places)
        isMine.push_back(taken_.insert(place).second);
    FinishLocked(job);
    return isMine;
}

void OutputClaims::Pass(std::size_t job)
{
    const std::lock_guard lock(mutex_);
    FinishLocked(job);
}

void OutputClaims::FinishLocked(std::size_t job)
{
    finished_[job] = true;
    while (turn_ < finished_.size() && finished_[turn_])
        ++turn_;
    turnChanged_.notify_all();
}

} // namespace vimbo::cli
