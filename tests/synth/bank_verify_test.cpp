// Conversions of a real bank, judged by what is heard: every preset of the first programs is played from the
// original and from what came back.
#include "synth/bank_compare.h"

#include "base/path.h"
#include "base/text.h"
#include "formats/open.h"
#include "formats/save.h"
#include "model/collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace vimbo::synth {
namespace {

constexpr std::u16string_view kBank = u"/usr/share/sounds/sf2/TimGM6mb.sf2";
constexpr std::size_t kPresets = 24;

int RowOf(std::u16string_view extension, std::u16string_view words)
{
    for (int row = 0; FindRow(row) != nullptr; ++row)
        if (FindRow(row)->extension == extension && FindRow(row)->write != nullptr &&
            std::u16string_view(FindRow(row)->description).find(words) != std::u16string_view::npos)
            return row;
    return -1;
}

/// The bank with its first presets only.
void LoadPart(Collection& bank)
{
    ASSERT_TRUE(LoadFile(bank, kBank, AllowRaw::No));
    std::vector<Instrument*> all = bank.List<Instrument>();
    std::ranges::sort(all, {}, [](const Instrument* x) { return x->location.word; });
    for (std::size_t i = kPresets; i < all.size(); ++i)
        bank.Destroy(all[i]->Handle());
}

struct Levels {
    double median = 0, most = 0; ///< magnitudes in dB: half and 95 % of the notes are within
    double pitch = 0;            ///< cents, 95 %
    std::size_t notes = 0, silent = 0;
};

Levels Compare(Collection& a, Collection& b)
{
    CompareGrid grid;
    grid.keys = {36, 60, 84};
    grid.velocities = {50, 110};
    std::vector<double> levels, cents;
    Levels result;
    for (const ComparedInstrument& instrument : CompareBanks(a, b, grid, [](double) { return false; })) {
        EXPECT_FALSE(instrument.isMissing) << WideToUtf8(instrument.nameA);
        for (const ComparedNote& note : instrument.notes) {
            ++result.notes;
            result.silent += note.difference.isSilentInOne ? 1 : 0;
            levels.push_back(std::abs(note.difference.levelDb));
            if (note.difference.pitchCents)
                cents.push_back(std::abs(*note.difference.pitchCents));
        }
    }
    std::ranges::sort(levels);
    std::ranges::sort(cents);
    if (levels.empty() || cents.empty())
        return result;
    result.median = levels[levels.size() / 2];
    result.most = levels[levels.size() * 95 / 100];
    result.pitch = cents[cents.size() * 95 / 100];
    return result;
}

TEST(BankVerify, ConversionsSoundAlike)
{
    if (!IsFile(kBank))
        GTEST_SKIP() << "the bank of the package timgm6mb-soundfont is missing";
    struct Case {
        std::u16string_view extension, words;
        double median, most, cents; // limits; the formats' own steps explain them
    };
    constexpr Case kCases[] = {
        {u"sf2", u"SoundFont", 1e-4, 1e-3, 0.01}, // every value comes back
        {u"dls", u"level 2+", 0.005, 0.15, 1.5},  // times and cents in whole steps
        {u"sfz", u"2", 0.005, 0.05, 0.5},
    };
    Collection bank;
    LoadPart(bank);
    ASSERT_EQ(bank.CountOf(ItemKind::Instrument), kPresets);
    for (const Case& each : kCases) {
        SCOPED_TRACE(WideToUtf8(each.extension));
        const int row = RowOf(each.extension, each.words);
        ASSERT_GE(row, 0);
        const bool isOneByOne = each.extension == u"sfz"; // one instrument a file
        const auto folder =
            std::filesystem::temp_directory_path() /
            ("vimbo-verify-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
             WideToUtf8(each.extension));
        std::filesystem::create_directories(folder);
        const std::u16string path = PathToWide((folder / "bank.").native()) + std::u16string(each.extension);
        Collection back;
        if (isOneByOne) { // one preset stands for all
            Instrument& first = *bank.List<Instrument>().front();
            ASSERT_TRUE(SaveItem(&first, row, path, AutoChoice(row)));
        } else {
            ASSERT_TRUE(SaveItem(&bank, row, path, AutoChoice(row)));
        }
        ASSERT_TRUE(LoadFile(back, path, AllowRaw::No));
        Collection* original = &bank;
        Collection part;
        if (isOneByOne) {
            part.CopyFrom(bank);
            const auto all = part.List<Instrument>();
            for (std::size_t i = 1; i < all.size(); ++i)
                part.Destroy(all[i]->Handle());
            back.List<Instrument>().front()->location = part.List<Instrument>().front()->location;
            original = &part;
        }
        const Levels levels = Compare(*original, back);
        std::filesystem::remove_all(folder);
        EXPECT_GE(levels.notes, isOneByOne ? 6u : kPresets * 5);
        EXPECT_EQ(levels.silent, 0u);
        EXPECT_LE(levels.median, each.median);
        EXPECT_LE(levels.most, each.most);
        EXPECT_LE(levels.pitch, each.cents);
    }
}

} // namespace
} // namespace vimbo::synth
