#include "base/worker_pool.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>
#include <vector>

#include <sched.h>

namespace vimbo {

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
    const std::size_t wanted = std::min(workers == 0 ? CoreCount() : workers, count);
    std::vector<std::jthread> helpers; // joined at the end of the scope, after the work on this thread
    try {
        for (std::size_t i = 1; i < wanted; ++i)
            helpers.emplace_back(work);
    } catch (const std::exception&) {
        // The system grants no more threads: those that run take all the jobs.
    }
    work();
}

} // namespace vimbo
