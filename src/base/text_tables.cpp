// Windows-1252 as published (code page 1252), and look-alikes made by hand: a letter of the same shape where
// Latin has one, otherwise of the same sound; accents, iotation and ligatures' second halves are dropped; '?'
// where nothing fits.
#include "base/text_tables.h"

namespace vimbo {
namespace {

// clang-format off
constexpr std::string_view kLatinExtendedA =    // U+0100..U+017F
    "AaAaAaCcCcCcCcDd"
    "DdEeEeEeEeEeGgGg"
    "GgGgHhHhIiIiIiIi"
    "IiIiJjKkkLlLlLlL"
    "lLlNnNnNnnNnOoOo"
    "OoOoRrRrRrSsSsSs"
    "SsTtTtTtUuUuUuUu"
    "UuUuWwYyYZzZzZzs";

constexpr std::string_view kGreek =             // U+0370..U+03FF
    "HhTt',Nn??iccc;J"
    "????" "'\"A.EHI?O?YO"    // in two, since "??'" is a trigraph
    "iABGDEZHTIKLMNXO"
    "PP?STYFXPOIYaeni"
    "uabgdezntikluvxo"
    "ppsstufxpwiuouwK"
    "btYYYfpkQqSsFfQq"
    "SsSsFfKkHhGgCcTt"
    "kpcjTeePpCMmpCCC";

constexpr std::string_view kCyrillic =          // U+0400..U+0467
    "EEDGESIIJLNCKIYD"
    "ABBGDEZZIIKLMHOP"
    "PCTYFXCCSSbYbEUA"
    "abbgdezziiklmhop"
    "pctyfxccssbybeua"
    "eedgesiijlnckiyd"
    "OwEeEeAa";
// clang-format on

static_assert(kLatinExtendedA.size() == 0x180 - 0x100);
static_assert(kGreek.size() == 0x400 - 0x370);
static_assert(kCyrillic.size() == 0x468 - 0x400);

} // namespace

// clang-format off
const std::array<char16_t, 32> kWindows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
// clang-format on

const std::array<BestFitTable, 3> kBestFitTables = {
    {{0x100, kLatinExtendedA}, {0x370, kGreek}, {0x400, kCyrillic}}};

} // namespace vimbo
