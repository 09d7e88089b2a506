#include "cli/process_memory.h"

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace vimbo::cli {

#ifdef __GLIBC__
void PrepareHeap() noexcept
{
    constexpr int kReservedBytes = 64 << 20; // of addresses; memory is only taken for what is used
    constexpr int kLargestFromHeap = 32 << 20;
    constexpr std::size_t kStepBytes = std::size_t{256} << 10; // more than a fresh heap has left
    constexpr std::uintptr_t kPageBytes = std::uintptr_t{2} << 20;
    if (::mallopt(M_TOP_PAD, kReservedBytes) == 0 || ::mallopt(M_TRIM_THRESHOLD, kReservedBytes) == 0 ||
        ::mallopt(M_MMAP_THRESHOLD, kLargestFromHeap) == 0)
        return;
    void* const step = std::malloc(kStepBytes);
    const auto first = (std::bit_cast<std::uintptr_t>(step) + kPageBytes - 1) / kPageBytes * kPageBytes;
    const auto end = std::bit_cast<std::uintptr_t>(::sbrk(0));
    if (step != nullptr && first < end)
        ::madvise(std::bit_cast<void*>(first), end - first, MADV_HUGEPAGE);
    std::free(step);
}
#else
void PrepareHeap() noexcept {}
#endif

void LeaveToExit(std::unique_ptr<Collection> collection)
{
    static auto* const kept = new std::vector<std::unique_ptr<Collection>>; // reachable to the very end
    kept->push_back(std::move(collection));
}

} // namespace vimbo::cli
