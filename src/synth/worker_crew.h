// Threads that share the work of one block.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace vimbo::synth {

/// A few threads that stand ready: handing work to them costs less than a microsecond while they spin, which
/// they do for a moment after each piece of work before they sleep. Each thread has a share of the items of
/// its own, so that what stands at one place of the list mostly stays with one processor and its cache; who
/// has finished takes what is left from the ends of the others' shares, so that one that comes late finds
/// nothing left. Processors that do not share a cache may need 0.15 us for each cache line that passes
/// between them: a share is handed over in one. Nothing is allocated after construction.
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
    struct Seat {
        // The epoch in the upper half, then the end and the beginning of what is left of the share: a claim
        // fails if the work is another by then. Written by whoever takes of it; its owner waits for it.
        alignas(64) std::atomic<std::uint64_t> share{0};
        alignas(64) std::atomic<std::uint32_t> sleeps{0}; ///< 1: waits to be woken
    };
    enum class End : bool { Front, Back };

    void Work(std::size_t seat) noexcept;
    bool WaitForShare(Seat& seat, std::uint32_t& epoch) noexcept;
    void TakeItems(std::size_t seat, std::uint32_t epoch) noexcept;
    static bool Claim(Seat& seat, std::uint32_t epoch, End end, std::size_t& item) noexcept;

    std::vector<Seat> seats_; ///< the caller's first
    alignas(64) std::atomic<std::size_t> done_{0};
    // What all read: written only where it changes.
    alignas(64) std::atomic<std::size_t> takers_{0};
    std::atomic<Job> job_{nullptr};
    std::atomic<void*> context_{nullptr};
    std::atomic<bool> stop_{false};
    alignas(64) std::uint32_t epoch_ = 0; ///< the caller's
    std::vector<std::thread> workers_;
};

} // namespace vimbo::synth
