#include "base/worker_pool.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>
#include <vector>

#include <sched.h>

namespace vimbo {
namespace {

std::atomic<std::size_t> helperThreads = 0; ///< of all RunJobs that are under way

/// How many threads a RunJobs may make beside the caller's. They are counted until they end.
std::size_t TakeHelpers(std::size_t count, std::size_t workers) noexcept
{
    const std::size_t cores = CoreCount();
    const std::size_t wanted = std::max<std::size_t>(std::min(workers == 0 ? cores : workers, count), 1) - 1;
    const std::size_t taken = helperThreads.fetch_add(wanted);
    if (workers != 0)
        return wanted;
    // Jobs may run jobs of their own: as many threads as cores are enough for all of them.
    const std::size_t granted = std::min(wanted, cores - 1 - std::min(taken, cores - 1));
    helperThreads -= wanted - granted;
    return granted;
}

} // namespace

std::size_t CoreCount() noexcept
{
    // What this process may run on; a container or taskset may grant less than the machine has.
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (::sched_getaffinity(0, sizeof(allowed), &allowed) == 0)
        return static_cast<std::size_t>(std::max(CPU_COUNT(&allowed), 1));
    return std::max(std::thread::hardware_concurrency(), 1U);
}

void RunJobs(std::size_t count, std::size_t workers, const std::function<void(std::size_t)>& job)
{
    std::atomic<std::size_t> next = 0;
    const auto work = [&next, &job, count]() noexcept {
        for (std::size_t index = next++; index < count; index = next++)
            job(index);
    };
    const std::size_t wanted = TakeHelpers(count, workers);
    std::vector<std::jthread> helpers; // joined at the end of the scope, after the work on this thread
    try {
        while (helpers.size() < wanted)
            helpers.emplace_back([&work]() noexcept {
                work();
                --helperThreads;
            });
    } catch (const std::exception&) {
        // The system grants no more threads: those that run take all the jobs.
        helperThreads -= wanted - helpers.size();
    }
    work();
}

} // namespace vimbo
