#include "synth/worker_crew.h"

#include <chrono>
#include <system_error>

namespace vimbo::synth {
namespace {

// A worker spins for about as long as a few blocks take; the caller, which waits for the last item only,
// gives its processor away once the others must have lost theirs.
constexpr auto kWorkerSpin = std::chrono::microseconds(200);
constexpr int kCallerSpins = 20'000;
constexpr int kSpinsPerLook = 64;

void Pause() noexcept
{
#if defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

constexpr std::uint64_t kTakenFront = 1, kTakenBack = 1u << 16; // one item more in a ticket
constexpr std::uint64_t NewTicket(std::uint32_t epoch) noexcept
{
    return std::uint64_t{epoch} << 32;
}
constexpr std::uint32_t EpochOf(std::uint64_t ticket) noexcept
{
    return static_cast<std::uint32_t>(ticket >> 32);
}

} // namespace

WorkerCrew::WorkerCrew(std::size_t threads)
{
    try {
        for (std::size_t i = 1; i < threads; ++i)
            workers_.emplace_back([this, i] { Work(i); });
    } catch (const std::system_error&) {
        // fewer threads, then
    }
}

WorkerCrew::~WorkerCrew()
{
    stop_.store(true);
    epoch_.fetch_add(1);
    epoch_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

void WorkerCrew::Run(std::size_t items, std::size_t helpers, Job job, void* context) noexcept
{
    helpers = std::min(helpers, workers_.size());
    if (helpers == 0 || items < 2 || items > kMostItems) {
        for (std::size_t i = 0; i < items; ++i)
            job(context, i);
        return;
    }
    items_.store(items, std::memory_order_relaxed);
    helpers_.store(helpers, std::memory_order_relaxed);
    job_.store(job, std::memory_order_relaxed);
    context_.store(context, std::memory_order_relaxed);
    done_.store(0, std::memory_order_relaxed);
    const std::uint32_t epoch = epoch_.load(std::memory_order_relaxed) + 1;
    ticket_.store(NewTicket(epoch));
    epoch_.store(epoch);
    if (sleepers_.load() != 0)
        epoch_.notify_all();
    TakeItems(epoch, End::Front);
    for (int spins = 0; done_.load(std::memory_order_acquire) != items; ++spins) {
        Pause();
        if (spins > kCallerSpins)
            std::this_thread::yield();
    }
}

/// A claim that succeeds proves that the work of this epoch was not complete, so what was read of it holds.
void WorkerCrew::TakeItems(std::uint32_t epoch, End end) noexcept
{
    std::uint64_t ticket = ticket_.load(std::memory_order_acquire);
    while (EpochOf(ticket) == epoch) {
        const std::size_t items = items_.load(std::memory_order_relaxed);
        const Job job = job_.load(std::memory_order_relaxed);
        void* const context = context_.load(std::memory_order_relaxed);
        const std::size_t front = ticket & 0xFFFF, back = ticket >> 16 & 0xFFFF;
        if (front + back >= items)
            return;
        const std::uint64_t taken = ticket + (end == End::Front ? kTakenFront : kTakenBack);
        if (!ticket_.compare_exchange_weak(ticket, taken, std::memory_order_acq_rel))
            continue;
        job(context, end == End::Front ? front : items - 1 - back);
        done_.fetch_add(1, std::memory_order_release);
        ticket = ticket_.load(std::memory_order_acquire);
    }
}

/// False when the crew ends.
bool WorkerCrew::WaitForTicket(std::uint32_t& epoch) noexcept
{
    const auto until = std::chrono::steady_clock::now() + kWorkerSpin;
    while (true) {
        for (int i = 0; i < kSpinsPerLook; ++i, Pause())
            if (const std::uint32_t now = epoch_.load(std::memory_order_acquire); now != epoch) {
                epoch = now;
                return !stop_.load();
            }
        if (std::chrono::steady_clock::now() < until)
            continue;
        sleepers_.fetch_add(1);
        epoch_.wait(epoch);
        sleepers_.fetch_sub(1);
    }
}

void WorkerCrew::Work(std::size_t index) noexcept
{
    std::uint32_t epoch = 0;
    while (WaitForTicket(epoch))
        if (index <= helpers_.load(std::memory_order_relaxed))
            TakeItems(epoch, End::Back);
}

} // namespace vimbo::synth
