// Threads that share the work of one block.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace vimbo::synth {

/// A few threads that stand ready: handing work to them costs less than a microsecond while they spin, which
/// they do for a moment after each piece of work before they sleep. Work is claimed item by item, so a thread
/// that comes late finds nothing left. The caller takes items from the front, the others from the back: what
/// stands at one place of the list mostly stays with one processor and its cache. Nothing is allocated after
/// construction.
class WorkerCrew {
public:
    /// @param threads  threads in all, the calling one included; at least 1. Where the system gives fewer,
    /// the crew works with those.
    explicit WorkerCrew(std::size_t threads);
    ~WorkerCrew();
    WorkerCrew(const WorkerCrew&) = delete;
    WorkerCrew& operator=(const WorkerCrew&) = delete;

    std::size_t Threads() const noexcept { return workers_.size() + 1; }

    static constexpr std::size_t kMostItems = 0xFFFF;

    /// Calls job(context, item) for every item below `items` (at most kMostItems), on the calling thread and
    /// up to `helpers` others; returns when all are done. Only one thread may call. A system call is made
    /// only to wake a thread that sleeps, and if the others take longer than a short spin.
    using Job = void (*)(void* context, std::size_t item) noexcept;
    void Run(std::size_t items, std::size_t helpers, Job job, void* context) noexcept;

private:
    void Work(std::size_t index) noexcept;
    bool WaitForTicket(std::uint32_t& epoch) noexcept;
    enum class End : bool { Front, Back };
    void TakeItems(std::uint32_t epoch, End end) noexcept;

    // The epoch in the upper half, then the items taken from the back and from the front: a claim fails if
    // the work is another by then.
    alignas(64) std::atomic<std::uint64_t> ticket_{0};
    alignas(64) std::atomic<std::size_t> done_{0};
    alignas(64) std::atomic<std::uint32_t> epoch_{0}; ///< what sleepers wait on
    std::atomic<std::size_t> items_{0}, helpers_{0};
    std::atomic<Job> job_{nullptr};
    std::atomic<void*> context_{nullptr};
    std::atomic<std::size_t> sleepers_{0};
    std::atomic<bool> stop_{false};
    std::vector<std::thread> workers_;
};

} // namespace vimbo::synth
