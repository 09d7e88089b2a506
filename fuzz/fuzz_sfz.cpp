// Any bytes as an SFZ text, among a few files in a folder of its own that nothing leaves; what was read is
// written in one of the variants, reads back and writes the same again.
#include "base/path.h"
#include "base/text.h"
#include "formats/open.h"
#include "formats/save.h"
#include "formats/sfz/sfz.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/instrument.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace vimbo {
namespace {

constexpr std::size_t kMostRegions = 64; ///< that are written

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// The folder, made once for each process: a sample of 40 frames, and texts that include each other.
const std::filesystem::path& Folder()
{
    static const std::filesystem::path kFolder = [] {
        const auto folder =
            std::filesystem::temp_directory_path() / ("fuzz_sfz_" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder / "in" / "sub");
        Collection items;
        Waveform& wave = items.Create<Waveform>(u"a b");
        wave.frames = 40;
        wave.loop = {.type = LoopType::Forward, .start = 10, .end = 30};
        Require(!wave.LockSamplesForWrite().empty());
        wave.Validate();
        const int row = FindRowByExtension(u"wav", kKindWave);
        for (const char* name : {"in/a.wav", "in/sub/a b.wav", "outside.wav"})
            Require(SaveItem(&wave, row, PathToWide((folder / name).string()), AutoChoice(row)));
        std::ofstream(folder / "in/x.sfz") << "<region> sample=a.wav\n#include \"sub/y.sfz\"\nkey=$K";
        std::ofstream(folder / "in/sub/y.sfz") << "pan=3\n#include \"x.sfz\"\n";
        return folder;
    }();
    return kFolder;
}

std::string Slurp(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// @return false if there is nothing to write
bool Save(Collection& items, int row, const std::filesystem::path& path)
{
    return SaveItem(&items, row, PathToWide(path.string()), AutoChoice(row));
}

void WriteAndReadBack(Collection& items, std::uint32_t variant)
{
    constexpr int kFirstRow = 389;
    const int row = kFirstRow + static_cast<int>(variant);
    const std::filesystem::path path = Folder() / "out" / "t.sfz";
    std::filesystem::remove_all(path.parent_path());
    std::filesystem::create_directories(path.parent_path());
    if (items.CountOf(ItemKind::Region) > kMostRegions || !Save(items, row, path))
        return;
    const std::size_t regions = items.CountOf(ItemKind::Region);
    const std::string text = Slurp(path);
    Collection read;
    read.loadOptions.autoCompactLayers = false;
    Require(LoadFile(read, PathToWide(path.string()), AllowRaw::No));
    Require(IsConsistent(read));
    Require(read.CountOf(ItemKind::Region) <= regions);
    Require(Save(items, row, path) && Slurp(path) == text);
}

} // namespace
} // namespace vimbo

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace vimbo;
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Collection items;
    items.SetName(u"t");
    const sfz::Surroundings place{PathToWide((Folder() / "in").string()), u"", true, false};
    if (!sfz::ReadText(items, text, place))
        return 0;
    Require(IsConsistent(items));
    FixUpItems(items, kPruneAll, AfterLoad::Yes);
    Require(IsConsistent(items));
    for (const Waveform& wave : items.All<Waveform>())
        Require(wave.GetSourcePath().find(u"outside") == std::u16string::npos);
    WriteAndReadBack(items, data[0] % 4u);
    return 0;
}
