#include "cli/program_runner.h"

#include "formats/format_table.h"

#include <fstream>
#include <iterator>
#include <set>

namespace vimbo::cli {
namespace {

using nlohmann::json;

TEST_F(ProgramTest, FormatsListsTheWholeTable)
{
    const json list = RunJson({"formats", "--json"});
    ASSERT_EQ(list.size(), kFormatRowCount);
    for (int row = 0; FindRow(row); ++row) {
        const json& entry = list[static_cast<std::size_t>(row)];
        EXPECT_EQ(entry["index"], row);
        EXPECT_EQ(entry["read"], FindRow(row)->read != nullptr) << row;
        EXPECT_EQ(entry["write"], FindRow(row)->write != nullptr) << row;
        for (const char* key : {"kinds", "dataFormats", "subFormats"})
            EXPECT_TRUE(entry[key].is_array()) << row;
    }
    const json& wav = list[480];
    EXPECT_EQ(wav["extension"], "wav");
    EXPECT_EQ(wav["description"], "Microsoft wave");
    EXPECT_EQ(wav["kinds"], json::array({"waveform"}));
    EXPECT_EQ(wav["mono"], true);
    EXPECT_EQ(wav["stereo"], true);
    const std::set<std::string> formats = wav["dataFormats"];
    EXPECT_TRUE(formats.contains("PCM 24-bit"));
    EXPECT_FALSE(formats.contains("PCM 20-bit"));
}

TEST_F(ProgramTest, FormatsCanBeNarrowed)
{
    for (const json& entry : RunJson({"formats", "--write", "--json"}))
        EXPECT_EQ(entry["write"], true) << entry["index"];
    for (const json& entry : RunJson({"formats", "--read", "--json"}))
        EXPECT_EQ(entry["read"], true) << entry["index"];
    const json wavs = RunJson({"formats", "--json", ".WAV"});
    ASSERT_EQ(wavs.size(), 2u);
    EXPECT_EQ(wavs[1]["index"], 481);
    const std::string table = Run({"formats", "wav"}).out;
    EXPECT_NE(table.find("480 wav       rw Microsoft wave"), std::string::npos) << table;
}

TEST_F(ProgramTest, TheFormatListOfTheDocumentationIsUpToDate)
{
    std::ifstream stream(std::string(VIMBO_SOURCE_DIR) + "/docs/formats.md", std::ios::binary);
    const std::string document{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_TRUE(document == Run({"formats", "--markdown"}).out)
        << "run: vimbo formats --markdown > docs/formats.md";
}

} // namespace
} // namespace vimbo::cli
