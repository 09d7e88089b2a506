// What modules get from the process: threads, their own Last error text, a silent Host, libraries.
#include "base/worker_pool.h"

#include "base/host.h"
#include "base/last_error.h"
#include "base/library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <mutex>
#include <numeric>
#include <set>
#include <thread>

#include <sched.h>

namespace vimbo {
namespace {

TEST(WorkerPool, EveryJobOnceForAnyNumberOfWorkers)
{
    for (const std::size_t workers : {0U, 1U, 2U, 7U, 64U}) {
        for (const std::size_t count : {0U, 1U, 2U, 1000U}) {
            std::vector<int> calls(count, 0); // a job owns its element: a data race here is a fault
            RunJobs(count, workers, [&calls](std::size_t index) { ++calls[index]; });
            EXPECT_TRUE(std::all_of(calls.begin(), calls.end(), [](int n) { return n == 1; })) << workers;
        }
    }
}

TEST(WorkerPool, OneWorkerRunsHereInOrder)
{
    std::vector<std::size_t> order;
    RunJobs(5, 1, [&](std::size_t index) { order.push_back(index); });
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
}

TEST(WorkerPool, WorkersRunSideBySide)
{
    // Four jobs that wait for each other finish only if four threads run them, the caller's among them.
    std::barrier meeting(4);
    std::array<std::thread::id, 4> threads;
    RunJobs(4, 4, [&](std::size_t index) {
        threads[index] = std::this_thread::get_id();
        meeting.arrive_and_wait();
    });
    EXPECT_EQ(std::set(threads.begin(), threads.end()).size(), 4U);
    EXPECT_EQ(std::count(threads.begin(), threads.end(), std::this_thread::get_id()), 1);
}

/// Files that are converted side by side work on their own instruments side by side, too.
TEST(WorkerPool, JobsOfJobsShareTheCores)
{
    std::atomic<std::size_t> running = 0, most = 0, calls = 0;
    const auto inner = [&](std::size_t) {
        const std::size_t now = ++running;
        for (std::size_t seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::yield();
        ++calls;
        --running;
    };
    RunJobs(50, 0, [&](std::size_t) { RunJobs(50, 0, inner); });
    EXPECT_EQ(calls, 2500U);
    EXPECT_LE(most, CoreCount());
    // All threads are given back.
    std::set<std::thread::id> threads;
    std::mutex mutex;
    std::barrier meeting(static_cast<std::ptrdiff_t>(CoreCount()));
    RunJobs(CoreCount(), 0, [&](std::size_t) {
        meeting.arrive_and_wait();
        const std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
    });
    EXPECT_EQ(threads.size(), CoreCount());
}

TEST(WorkerPool, CoreCountObeysTheAffinityMask)
{
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof(before), &before), 0);
    EXPECT_EQ(CoreCount(), static_cast<std::size_t>(CPU_COUNT(&before)));
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
    EXPECT_EQ(CoreCount(), 1U);
    ASSERT_EQ(sched_setaffinity(0, sizeof(before), &before), 0);
}

TEST(LastError, BelongsToTheThread)
{
    EXPECT_FALSE(Fail(u"here"));
    std::array<std::u16string, 8> seen;
    std::barrier meeting(8);
    RunJobs(8, 8, [&](std::size_t index) {
        Fail(std::u16string(index + 1, u'x'));
        meeting.arrive_and_wait();
        seen[index] = LastError();
    });
    for (std::size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(seen[i], std::u16string(i + 1, u'x'));
    EXPECT_FALSE(Fail(u"again"));
    EXPECT_EQ(LastError(), u"again");
    ClearLastError();
    EXPECT_EQ(LastError(), u"");
}

TEST(LastError, IsCutBetweenCharacters)
{
    const std::u16string pair = u"\U0001D11E";
    Fail(std::u16string(1022, u'a') + pair);
    EXPECT_EQ(LastError(), std::u16string(1022, u'a'));
    Fail(std::u16string(1021, u'a') + pair);
    EXPECT_EQ(LastError(), std::u16string(1021, u'a') + pair);
    Fail(std::u16string(1021, u'a') + pair + u"b");
    EXPECT_EQ(LastError(), std::u16string(1021, u'a') + pair);
    Fail(std::u16string(5000, u'b'));
    EXPECT_EQ(LastError(), std::u16string(1023, u'b'));
}

TEST(Host, SilentOneGivesDefaultsAndKeepsAnswers)
{
    Host host;
    EXPECT_EQ(host.Ask({"key", u"Text?", u"Title", {u"Yes", u"No"}, 1}), 1U);
    std::u16string path = u"kept";
    EXPECT_FALSE(host.PickFile(u"", u"", path));
    EXPECT_EQ(path, u"kept");
    EXPECT_FALSE(host.OpenExternally(u"/"));
    EXPECT_EQ(host.RememberedAnswer("key"), std::nullopt);
    RunJobs(100, 4, [&](std::size_t index) {
        host.RememberAnswer("key", 7);
        host.RememberAnswer(std::to_string(index), index);
    });
    EXPECT_EQ(host.RememberedAnswer("key"), 7U);
    EXPECT_EQ(host.RememberedAnswer("99"), 99U);
    EXPECT_EQ(&SilentHost(), &SilentHost());
}

TEST(Library, FillsAllSlotsOrNone)
{
    void* marker = &marker;
    std::array<void*, 3> slots = {};
    constexpr std::array<const char*, 3> kGood = {"cos", "\nno_such_function", "\nsin"};
    ASSERT_TRUE(LoadLibrarySymbols("libm.so.6", kGood, slots));
    EXPECT_NE(slots[0], nullptr);
    EXPECT_EQ(slots[1], nullptr);
    EXPECT_NE(slots[2], nullptr);

    EXPECT_TRUE(LoadLibrarySymbols("libno-such-library.so.1", kGood, slots)) << "nothing left to do";
    constexpr std::array<const char*, 3> kMissing = {"cos", "no_such_function", "\nsin"};
    std::array<void*, 3> partly = {nullptr, marker, nullptr};
    EXPECT_TRUE(LoadLibrarySymbols("libm.so.6", kMissing, slots = {marker, marker, nullptr}));
    EXPECT_FALSE(LoadLibrarySymbols("libm.so.6", kMissing, partly));
    EXPECT_EQ(partly[0], nullptr);
    EXPECT_EQ(partly[2], nullptr);
    EXPECT_FALSE(LoadLibrarySymbols("libno-such-library.so.1", kGood, partly));
    EXPECT_FALSE(LoadLibrarySymbols("libm.so.6", kGood, std::span(partly).first(2)));
}

} // namespace
} // namespace vimbo
