// Runs the built program in a folder of its own, on files spelled out byte by byte.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo::cli {

struct ProgramResult {
    int status = -1; ///< exit status; -1 if a signal ended it
    std::string out;
    std::string err;
};

/// A mono or stereo PCM 16-bit wave file of 22050 Hz; `extra` is appended as further chunks.
std::string WaveBytes(const std::vector<std::int16_t>& samples, unsigned channels = 1,
                      std::string_view extra = "");
/// The "smpl" chunk of root key 64 with one loop; first and last frame inclusive, as the file stores it.
std::string SamplerChunk(std::uint32_t type, std::uint32_t first, std::uint32_t last);

/// A fresh folder per test, which is the program's current one.
class ProgramTest : public ::testing::Test {
protected:
    ProgramTest();
    ~ProgramTest() override;

    /// @param maxFileBytes what the system lets the program write into one file; 0: no limit
    ProgramResult Run(const std::vector<std::string>& arguments, std::uint64_t maxFileBytes = 0) const;
    /// Starts the program without waiting for it. @return its process, which the caller waits for
    int Start(const std::vector<std::string>& arguments, std::uint64_t maxFileBytes = 0) const;
    nlohmann::json RunJson(const std::vector<std::string>& arguments, int expectedStatus = 0) const;
    void Put(const std::string& name, std::string_view bytes) const;
    std::string Get(const std::string& name) const;
    bool Exists(const std::string& name) const;
    /// All files below the folder, with their bytes, by relative name.
    std::vector<std::pair<std::string, std::string>> Snapshot(const std::string& name) const;

    const std::filesystem::path folder_;
    std::string settingsFile_; ///< of the program, in the folder; "": it has none
};

} // namespace vimbo::cli
