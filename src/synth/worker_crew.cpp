#include "synth/worker_crew.h"

#include <algorithm>
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

constexpr std::uint64_t Share(std::uint32_t epoch, std::size_t begin, std::size_t end) noexcept
{
    return std::uint64_t{epoch} << 32 | end << 16 | begin;
}
constexpr std::uint32_t EpochOf(std::uint64_t share) noexcept
{
    return static_cast<std::uint32_t>(share >> 32);
}

/// A line that others read stays with them if nothing changes.
template <class T>
void StoreChange(std::atomic<T>& to, T value) noexcept
{
    if (to.load(std::memory_order_relaxed) != value)
        to.store(value, std::memory_order_relaxed);
}

} // namespace

WorkerCrew::WorkerCrew(std::size_t threads) : seats_(std::max<std::size_t>(threads, 1))
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
    for (Seat& seat : seats_) {
        seat.share.store(Share(epoch_ + 1, 0, 0));
        seat.sleeps.store(0);
        seat.sleeps.notify_one();
    }
    for (std::thread& worker : workers_)
        worker.join();
}

void WorkerCrew::Run(std::size_t items, std::size_t helpers, Job job, void* context) noexcept
{
    helpers = std::min({helpers, workers_.size(), items - std::min<std::size_t>(items, 1)});
    if (helpers == 0 || items > kMostItems) {
        for (std::size_t i = 0; i < items; ++i)
            job(context, i);
        return;
    }
    const std::size_t takers = helpers + 1;
    StoreChange(takers_, takers);
    StoreChange(job_, job);
    StoreChange(context_, context);
    done_.store(0, std::memory_order_relaxed);
    ++epoch_;
    for (std::size_t i = takers; i-- > 0;)
        seats_[i].share.store(Share(epoch_, items * i / takers, items * (i + 1) / takers));
    for (std::size_t i = 1; i < takers; ++i)
        if (seats_[i].sleeps.load() != 0) {
            seats_[i].sleeps.store(0);
            seats_[i].sleeps.notify_one();
        }
    TakeItems(0, epoch_);
    for (int spins = 0; done_.load(std::memory_order_acquire) != items; ++spins) {
        Pause();
        if (spins > kCallerSpins)
            std::this_thread::yield();
    }
}

bool WorkerCrew::Claim(Seat& seat, std::uint32_t epoch, End end, std::size_t& item) noexcept
{
    std::uint64_t share = seat.share.load(std::memory_order_acquire);
    while (EpochOf(share) == epoch) {
        const std::size_t first = share & 0xFFFF, last = share >> 16 & 0xFFFF;
        if (first >= last)
            return false;
        item = end == End::Front ? first : last - 1;
        const std::uint64_t rest =
            end == End::Front ? Share(epoch, first + 1, last) : Share(epoch, first, last - 1);
        if (seat.share.compare_exchange_weak(share, rest, std::memory_order_acq_rel,
                                             std::memory_order_acquire))
            return true;
    }
    return false;
}

/// A claim that succeeds proves that the work of this epoch was not complete, so what was read of it holds.
void WorkerCrew::TakeItems(std::size_t own, std::uint32_t epoch) noexcept
{
    const std::size_t takers = takers_.load(std::memory_order_relaxed);
    const Job job = job_.load(std::memory_order_relaxed);
    void* const context = context_.load(std::memory_order_relaxed);
    std::size_t finished = 0, item = 0;
    for (std::size_t i = 0; i < takers; ++i) {
        Seat& seat = seats_[(own + i) % takers];
        for (; Claim(seat, epoch, i == 0 ? End::Front : End::Back, item); ++finished)
            job(context, item);
    }
    if (finished != 0)
        done_.fetch_add(finished, std::memory_order_release);
}

/// False when the crew ends.
bool WorkerCrew::WaitForShare(Seat& seat, std::uint32_t& epoch) noexcept
{
    while (true) {
        const auto until = std::chrono::steady_clock::now() + kWorkerSpin;
        do {
            for (int i = 0; i < kSpinsPerLook; ++i, Pause())
                if (const std::uint32_t now = EpochOf(seat.share.load(std::memory_order_acquire));
                    now != epoch) {
                    epoch = now;
                    return !stop_.load();
                }
        } while (std::chrono::steady_clock::now() < until);
        // Either the caller sees that the worker sleeps, or the worker sees the share.
        seat.sleeps.store(1);
        if (EpochOf(seat.share.load()) == epoch)
            seat.sleeps.wait(1);
        seat.sleeps.store(0);
    }
}

void WorkerCrew::Work(std::size_t seat) noexcept
{
    std::uint32_t epoch = 0;
    while (WaitForShare(seats_[seat], epoch))
        TakeItems(seat, epoch);
}

} // namespace vimbo::synth
