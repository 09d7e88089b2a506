// Small files spelled out in memory, and a scratch folder, for tests.
#pragma once

#include "base/path.h"
#include "base/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace vimbo::testing {

using Bytes = std::vector<std::byte>;

/// Bytes from numbers and characters.
inline Bytes MakeBytes(std::initializer_list<int> values)
{
    Bytes bytes;
    for (int value : values)
        bytes.push_back(static_cast<std::byte>(value));
    return bytes;
}

/// A folder that is removed with everything in it at the end of the test.
class ScratchFolder {
public:
    ScratchFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vimbo-test-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    std::u16string Wide(const std::string& name) const { return PathToWide((path_ / name).string()); }
    std::u16string Put(const std::string& name, std::span<const std::byte> bytes) const
    {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream out(path_ / name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return Wide(name);
    }
    Bytes Get(const std::string& name) const
    {
        std::ifstream in(path_ / name, std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const auto view = std::as_bytes(std::span(text.data(), text.size()));
        return {view.begin(), view.end()};
    }

private:
    std::filesystem::path path_;
};

/// A canonical PCM WAV file: 44-byte header, then the data as given.
inline Bytes MakeWav(unsigned channels, unsigned rateHz, unsigned bits, std::span<const std::byte> data)
{
    Bytes out;
    const auto put = [&](std::uint64_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i)
            out.push_back(static_cast<std::byte>(value >> (8 * i)));
    };
    const auto tag = [&](const char* text) {
        for (unsigned i = 0; i < 4; ++i)
            out.push_back(static_cast<std::byte>(text[i]));
    };
    tag("RIFF");
    put(36 + data.size(), 4);
    tag("WAVE");
    tag("fmt ");
    put(16, 4);
    put(1, 2);
    put(channels, 2);
    put(rateHz, 4);
    put(std::uint64_t{rateHz} * channels * bits / 8, 4);
    put(channels * bits / 8, 2);
    put(bits, 2);
    tag("data");
    put(data.size(), 4);
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

} // namespace vimbo::testing
