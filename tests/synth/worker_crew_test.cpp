#include "synth/worker_crew.h"

#include <array>
#include <chrono>
#include <gtest/gtest.h>

namespace vimbo::synth {
namespace {

struct Counts {
    std::array<std::atomic<int>, 300> runs{};
    std::size_t slow = 0; ///< an item that takes long, so that the others' shares are taken

    static void Run(void* context, std::size_t item) noexcept
    {
        auto& counts = *static_cast<Counts*>(context);
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(30);
        while (item == counts.slow && std::chrono::steady_clock::now() < until)
            ;
        ++counts.runs[item];
    }
};

TEST(WorkerCrew, RunsEveryItemOnceAndReturnsWhenAllAreDone)
{
    for (const std::size_t threads : {1u, 2u, 3u, 8u}) {
        WorkerCrew crew(threads);
        for (std::size_t round = 0; round < 3000; ++round) {
            const std::size_t items = round % 50 == 0 ? 300 : round % 37;
            Counts counts;
            counts.slow = round % 11;
            crew.Run(items, round % (threads + 2), Counts::Run, &counts);
            for (std::size_t i = 0; i < counts.runs.size(); ++i)
                ASSERT_EQ(counts.runs[i], i < items ? 1 : 0)
                    << threads << " threads, item " << i << " of " << items;
            if (round % 500 == 0) // the others go to sleep
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
}

} // namespace
} // namespace vimbo::synth
