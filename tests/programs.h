// Other people's programs as witnesses.
#pragma once

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace vimbo::testing {

inline bool HasProgram(const std::string& name)
{
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

/// What the shell's command prints to standard output.
inline std::string OutputOf(const std::string& command)
{
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    std::array<char, 65536> buffer;
    while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe))
        output.append(buffer.data(), got);
    ::pclose(pipe);
    return output;
}

} // namespace vimbo::testing
