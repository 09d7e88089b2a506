#include "base/library.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>

#include <dlfcn.h>
#include <unistd.h>

namespace vimbo {

namespace {

constexpr char kOptionalMark = '\n';

void* FindSymbol(void* library, const char* name) noexcept
{
    return ::dlsym(library, name[0] == kOptionalMark ? name + 1 : name);
}

bool AreRequiredFilled(std::span<const char* const> names, std::span<void* const> slots) noexcept
{
    for (std::size_t i = 0; i < names.size(); ++i)
        if (slots[i] == nullptr && names[i][0] != kOptionalMark)
            return false;
    return true;
}

/// Fills all slots or none. A library that has filled any stays loaded for good: its functions may be in use.
bool FillSlots(void* library, std::span<const char* const> names, std::span<void*> slots) noexcept
{
    if (library == nullptr)
        return false;
    const bool whole = std::all_of(names.begin(), names.end(), [library](const char* name) {
        return name[0] == kOptionalMark || FindSymbol(library, name) != nullptr;
    });
    if (!whole) {
        ::dlclose(library);
        return false;
    }
    std::transform(names.begin(), names.end(), slots.begin(),
                   [library](const char* name) { return FindSymbol(library, name); });
    return true;
}

void* OpenBesideProgram(const char* libraryName) noexcept
{
    std::array<char, PATH_MAX> program = {};
    const ssize_t length = ::readlink("/proc/self/exe", program.data(), program.size());
    if (length <= 0)
        return nullptr;
    const auto begin = program.begin();
    const auto name = std::find(std::make_reverse_iterator(begin + length), program.rend(), '/').base();
    std::array<char, 2 * PATH_MAX> path = {};
    const int written = std::snprintf(path.data(), path.size(), "%.*s%s", static_cast<int>(name - begin),
                                      program.data(), libraryName);
    if (written < 0 || static_cast<std::size_t>(written) >= path.size())
        return nullptr;
    return ::dlopen(path.data(), RTLD_NOW | RTLD_LOCAL);
}

} // namespace

bool LoadLibrarySymbols(const char* libraryName, std::span<const char* const> names,
                        std::span<void*> slots) noexcept
{
    if (names.size() != slots.size())
        return false;
    if (AreRequiredFilled(names, slots))
        return true;
    return FillSlots(::dlopen(libraryName, RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD), names, slots) ||
           FillSlots(::dlopen(libraryName, RTLD_NOW | RTLD_LOCAL), names, slots) ||
           FillSlots(OpenBesideProgram(libraryName), names, slots);
}

} // namespace vimbo
