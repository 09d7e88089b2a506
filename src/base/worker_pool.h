// Running independent jobs side by side.
#pragma once

#include <cstddef>
#include <functional>

namespace vimbo {

/// Cores that this process may use; at least 1.
std::size_t CoreCount() noexcept;

/// Calls job(index) for every index in [0, count), on up to `workers` threads (0: all cores that no other
/// RunJobs of the process has taken), and returns when all are done. Indices are handed out in ascending
/// order. `job` must not throw. One worker runs on the calling thread.
void RunJobs(std::size_t count, std::size_t workers, const std::function<void(std::size_t)>& job);

} // namespace vimbo
