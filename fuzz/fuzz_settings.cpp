// Settings files: whatever the file holds, values lie within their limits, and what is saved loads alike.
#include "app/settings_file.h"

#include "base/host.h"
#include "base/path.h"
#include "base/text.h"

#include <cstdlib>
#include <fstream>

#include <unistd.h>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// The file that every run writes anew.
const std::u16string& FilePath()
{
    static const std::u16string path = [] {
        std::u16string made;
        Require(MakeTempPath(made, u".toml"));
        return made;
    }();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string path = WideToPath(FilePath());
    std::ofstream(path, std::ios::binary) << std::string_view(reinterpret_cast<const char*>(data), size);
    app::Settings loaded = app::LoadSettings(FilePath(), SilentHost());
    for (std::size_t row = 0; row < app::kSettingRows.size(); ++row) {
        app::Settings checked;
        Require(checked.SetValue(row, loaded.Value(row)));
    }
    Require(app::SaveSettings(loaded, FilePath(), SilentHost()));
    ::unlink((path + ".damaged").c_str());
    app::Settings again = app::LoadSettings(FilePath(), SilentHost());
    for (std::size_t row = 0; row < app::kSettingRows.size(); ++row)
        Require(again.Value(row) == loaded.Value(row));
    std::ifstream first(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(first)), {});
    Require(app::SaveSettings(again, FilePath(), SilentHost()));
    std::ifstream second(path, std::ios::binary);
    Require(text == std::string((std::istreambuf_iterator<char>(second)), {}));
    ::unlink(path.c_str());
    return 0;
}
