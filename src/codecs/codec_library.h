// Codec libraries that a user may lack: their functions, loaded when first needed. Internal to this folder.
#pragma once

#include "base/library.h"

#include <array>
#include <bit>
#include <mutex>
#include <optional>

/// For lists of functions: the member that each is in the record, and its name.
#define VIMBO_FUNCTION_MEMBER(name) decltype(&::name) name;
#define VIMBO_FUNCTION_NAME(name) #name,

namespace vimbo {

/// @tparam Functions  a record of nothing but function pointers
template <class Functions>
class CodecLibrary {
public:
    static constexpr std::size_t kCount = sizeof(Functions) / sizeof(void*);
    using Names = std::array<const char*, kCount>;

    /// @param names  of the functions, in the order of the record
    constexpr CodecLibrary(const char* file, const Names& names) noexcept : file_(file), names_(names) {}

    /// Null as long as the library is missing. Threads: any.
    const Functions* Get() noexcept
    {
        const std::lock_guard lock(mutex_);
        std::array<void*, kCount> slots{};
        if (!functions_ && LoadLibrarySymbols(file_, names_, slots))
            functions_ = std::bit_cast<Functions>(slots);
        return functions_ ? &*functions_ : nullptr;
    }

private:
    const char* file_;
    Names names_;
    std::mutex mutex_;
    std::optional<Functions> functions_;
};

} // namespace vimbo
