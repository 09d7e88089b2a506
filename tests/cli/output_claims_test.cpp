#include "cli/output_claims.h"

#include "base/worker_pool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace vimbo::cli {
namespace {

TEST(OutputClaims, TheEarlierJobWinsHoweverTheyRun)
{
    constexpr std::size_t kJobs = 24;
    OutputClaims claims(kJobs, {"taken"});
    std::vector<std::vector<bool>> won(kJobs);
    RunJobs(kJobs, 4, [&](std::size_t job) {
        std::this_thread::sleep_for(
            std::chrono::milliseconds((kJobs - job) % 5)); // later ones tend to come first
        if (job % 3 == 1)
            claims.Pass(job);
        else
            won[job] = claims.Claim(job, {"taken", "shared", "own" + std::to_string(job)});
    });
    for (std::size_t job = 0; job < kJobs; ++job) {
        if (job % 3 != 1) {
            EXPECT_EQ(won[job], (std::vector<bool>{false, job == 0, true})) << job;
        }
    }
}

} // namespace
} // namespace vimbo::cli
