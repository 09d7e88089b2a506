// Counts what the whole program allocates. In a file of its own: inlined, the compiler would take its free()
// for a mismatch.
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {
std::size_t allocations = 0;
}

void* operator new(std::size_t bytes)
{
    ++allocations;
    if (void* const memory = std::malloc(bytes == 0 ? 1 : bytes))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace vimbo::synth::testing {

std::size_t CountAllocations()
{
    return allocations;
}

} // namespace vimbo::synth::testing
