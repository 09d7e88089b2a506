// Runs a kernel in the form that suits the processor: once compiled for the baseline, once for AVX2. Internal
// to this folder.
#pragma once

namespace vimbo {

enum class Isa { Base, Avx2 };

/// A kernel is a class with `template <Isa> static void Run(args...) noexcept`, inlined by force. Plain
/// function versions rather than the loader's (target_clones): they also work under sanitizers and on systems
/// without ifunc. VIMBO_BASELINE_ONLY leaves the choice out, so that tests reach the baseline on any
/// processor.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(VIMBO_BASELINE_ONLY)

template <class Kernel, class... Args>
__attribute__((target("avx2"))) void RunAvx2(Args... args) noexcept
{
    Kernel::template Run<Isa::Avx2>(args...);
}

inline bool HasAvx2() noexcept
{
    static const bool has = __builtin_cpu_supports("avx2") != 0;
    return has;
}

template <class Kernel, class... Args>
void RunBest(Args... args) noexcept
{
    if (HasAvx2())
        RunAvx2<Kernel>(args...);
    else
        Kernel::template Run<Isa::Base>(args...);
}

#else

template <class Kernel, class... Args>
void RunBest(Args... args) noexcept
{
    Kernel::template Run<Isa::Base>(args...);
}

#endif

} // namespace vimbo
