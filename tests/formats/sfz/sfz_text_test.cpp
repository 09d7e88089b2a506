#include "formats/sfz/sfz_opcodes.h"
#include "formats/sfz/sfz_text.h"

#include <gtest/gtest.h>

#include <map>

namespace vimbo::sfz {
namespace {

using Files = std::map<std::string, std::string>;

/// Names of files are their ids.
std::string Expand(std::string_view text, const Files& files = {}, TextLosses* losses = nullptr)
{
    const IncludeLoader load = [&files](std::string_view name,
                                        std::string_view) -> std::optional<IncludedText> {
        const auto found = files.find(std::string(name));
        return found == files.end() ? std::nullopt : std::optional(IncludedText{found->first, found->second});
    };
    TextLosses own;
    return Preprocess(text, "root", load, losses != nullptr ? *losses : own);
}

/// "<region> a=1 b=x y".
std::string Statements(std::string_view text)
{
    std::string out;
    Tokenize(Expand(text), {[&](std::string_view header) { out += "<" + std::string(header) + ">"; },
                            [&](std::string_view name, std::string_view value) {
                                out += "[" + std::string(name) + "=" + std::string(value) + "]";
                            }});
    return out;
}

TEST(SfzText, Tokens)
{
    const struct {
        std::string_view text, statements;
    } kCases[] = {
        {"<region> sample=folder\\a b.wav key=60", "<region>[sample=folder\\a b.wav][key=60]"},
        {"<region>sample=a.wav<region>key=1", "<region>[sample=a.wav<region>key=1]"},
        {"<region>sample=a.wav <region>key=1", "<region>[sample=a.wav]<region>[key=1]"},
        {"sample=\"a b.wav\"\r\nkey=c#4\r\n", "[sample=a b.wav][key=c#4]"},
        {"sample=a.wav // key=1\nlovel=3", "[sample=a.wav][lovel=3]"},
        {"/* a=1\nb=2 */ c=3 /* d=4 */ e=5", "[c=3][e=5]"},
        {"volume=-6 stray pan=3<group>tune=1", "[volume=-6][pan=3]<group>[tune=1]"},
        {"volume= -6 pan= tune=2", "[volume=-6][pan=][tune=2]"},
        {"sample=a  b.wav  \t key=2", "[sample=a  b.wav][key=2]"},
        {"default_path=my samples/ \nsample= x.wav", "[default_path=my samples/][sample=x.wav]"},
        {"region_label=Two words key=3", "[region_label=Two words][key=3]"},
        {"<region key=4", "[key=4]"},
        {"\xEF\xBB\xBF<group>", "<group>"},
        {"a=1\rb=2", "[a=1][b=2]"},
        {"sample=Piano C#4.wav key=c#4", "[sample=Piano C#4.wav][key=c#4]"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(Statements(each.text), each.statements) << each.text;
}

TEST(SfzText, DefinesReplaceLaterNames)
{
    EXPECT_EQ(Statements("a=$K\n#define $K 36 // kick\na=$K b=x$K.wav\n#define $K 40\nc=$K$K"),
              "[a=$K][a=36][b=x36.wav][c=4040]");
    EXPECT_EQ(Statements("#define $Key 1\n#define $KeyTwo 2\na=$KeyTwo b=$KeyThree"), "[a=2][b=1Three]")
        << "the longest name that is defined";
    EXPECT_EQ(Statements("#define $A 1\n#define $B $A$A\nx=$B"), "[x=11]");
    EXPECT_EQ(Statements("#define $A 1 #define $B 2 x=$A$B"), "[x=12]");
}

TEST(SfzText, IncludesAreSpliced)
{
    const Files files = {{"a.sfz", "x=$N\n#include \"sub/b.sfz\"\n"}, {"sub/b.sfz", "y=2"}};
    EXPECT_EQ(Statements(Expand("#define $N 7\n#define $F a\n#include \"$F.sfz\"\nz=3", files)),
              "[x=7][y=2][z=3]");
}

TEST(SfzText, CirclesAndFloodsEnd)
{
    TextLosses losses;
    const Files circle = {{"a", "x=1\n#include \"b\"\n"},
                          {"b", "y=1\n#include \"a\"\n#include \"root\"\n#include \"no\""}};
    EXPECT_EQ(Statements(Expand("#include \"a\"", circle, &losses)), "[x=1][y=1]");
    EXPECT_EQ(losses.refusedIncludes, 1u);
    EXPECT_EQ(losses.missingIncludes, 2u) << "the text itself is not among the files";

    Files doubling; // 2^40 lines, if nothing ended it
    for (int i = 0; i < 40; ++i) {
        const std::string next = "#include \"" + std::to_string(i + 1) + "\"\n";
        doubling[std::to_string(i)] = next + next;
    }
    doubling["40"] = "a=1";
    losses = {};
    EXPECT_LT(Expand("#include \"0\"", doubling, &losses).size(), kMaxTextBytes);
    EXPECT_GT(losses.refusedIncludes, 0u);

    std::string bomb = "#define $A0 0123456789\n";
    for (int i = 1; i < 30; ++i)
        bomb += "#define $A" + std::to_string(i) + " $A" + std::to_string(i - 1) + "$A" +
                std::to_string(i - 1) + "\n";
    EXPECT_LE(Expand(bomb + "x=$A29$A29", {}, &losses).size(), kMaxTextBytes);
}

TEST(SfzOpcodes, Keys)
{
    const struct {
        std::string_view text;
        double key; ///< kUnset: refused
    } kCases[] = {{"60", 60},   {"c4", 60},      {"C4", 60},  {"c#4", 61},    {"db4", 61},    {"b3", 59},
                  {"bb3", 58},  {"c-1", 0},      {"g9", 127}, {"-1", -1},     {"h4", kUnset}, {"c", kUnset},
                  {"", kUnset}, {"c4x", kUnset}, {"cb4", 59}, {"c99", kUnset}};
    for (const auto& each : kCases) {
        double key = kUnset;
        EXPECT_EQ(ParseKey(each.text, key), each.key != kUnset) << each.text;
        EXPECT_EQ(key, each.key) << each.text;
    }
}

TEST(SfzOpcodes, EveryOpHasAWrittenNameThatLeadsBack)
{
    for (std::size_t op = 0; op < kOps; ++op) {
        const OpcodeRow* row = RowOf(op);
        ASSERT_NE(row, nullptr) << op;
        EXPECT_EQ(row->op, op) << row->name;
        EXPECT_EQ(FindOpcode(row->name), row) << row->name;
    }
    for (const auto& [alias, name] :
         std::map<std::string_view, std::string_view>{{"loopmode", "loop_mode"},
                                                      {"offby", "off_by"},
                                                      {"polyphony_group", "group"},
                                                      {"filtype", "fil_type"},
                                                      {"bendup", "bend_up"},
                                                      {"cutoff_oncc1", "cutoff_cc1"},
                                                      {"cutoff_cc129", "cutoff_chanaft"},
                                                      {"cutoffcc1", "cutoff_cc1"},
                                                      {"volumecc1", "gain_cc1"},
                                                      {"pan_cc10", "pan_oncc10"},
                                                      {"amplfo_depth_oncc1", "amplfo_depthcc1"},
                                                      {"fillfo_depthcc129", "fillfo_depthchanaft"},
                                                      {"ampeg_attackcc131", "ampeg_vel2attack"},
                                                      {"tune_cc136", "pitch_random"},
                                                      {"resonance_cc131", "resonance_oncc131"},
                                                      {"locc64", "on_locc64"}}) {
        const OpcodeRow* found = FindOpcode(alias);
        ASSERT_NE(found, nullptr) << alias;
        EXPECT_EQ(RowOf(found->op)->name, name) << alias;
    }
    EXPECT_EQ(FindOpcode("cutoff_cc2"), nullptr);
    EXPECT_EQ(FindOpcode("eq4_gain"), nullptr);
    EXPECT_EQ(FindOpcode("ampeg_"), nullptr);
}

} // namespace
} // namespace vimbo::sfz
