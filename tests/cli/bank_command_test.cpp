// Banks on the command line: selection and the conversion report.
#include "base/text.h"
#include "cli/notes_report.h"
#include "cli/selection.h"
#include "model/instrument.h"
#include "model/waveform.h"

#include <gtest/gtest.h>

namespace vimbo::cli {
namespace {

struct Bank {
    Collection items;
    Bank()
    {
        for (const char16_t* name : {u"Kick", u"Snare", u"808"})
            items.Create<Waveform>(name).frames = 10;
        const std::vector<Waveform*> waves = items.List<Waveform>();
        items.Create<Instrument>(u"Drums").AddLayer().AddRegion(waves[0]->Handle());
        items.Create<Instrument>(u"Grand Piano").AddLayer().AddRegion(waves[1]->Handle());
    }
    std::string Left(const std::vector<std::string>& words, ItemKind kind)
    {
        for (const std::string& word : KeepSelected(items, words, kind))
            return "no " + word;
        std::string left;
        for (const Instrument& instrument : items.All<Instrument>())
            left += WideToUtf8(instrument.GetName()) + ";";
        for (const Waveform& wave : items.All<Waveform>())
            left += WideToUtf8(wave.GetName()) + ";";
        return left;
    }
};

TEST(Selection, TakesNamesNumbersAndWildcards)
{
    using Words = std::vector<std::string>;
    const auto left = [](const Words& words, ItemKind kind) { return Bank().Left(words, kind); };
    EXPECT_EQ(left({}, ItemKind::Instrument), "Drums;Grand Piano;Kick;Snare;808;");
    EXPECT_EQ(left({"grand piano"}, ItemKind::Instrument), "Grand Piano;Snare;");
    EXPECT_EQ(left({"1"}, ItemKind::Instrument), "Drums;Kick;");
    EXPECT_EQ(left({"*a*o", "DRUMS"}, ItemKind::Instrument), "Drums;Grand Piano;Kick;Snare;");
    EXPECT_EQ(left({"3"}, ItemKind::Instrument), "no 3");
    EXPECT_EQ(left({"Drums", "piano"}, ItemKind::Instrument), "no piano") << "a part of a name is none";
    EXPECT_EQ(left({"808"}, ItemKind::Waveform), "Drums;Grand Piano;808;") << "a name before a number";
    EXPECT_EQ(left({"2"}, ItemKind::Waveform), "Drums;Grand Piano;Snare;");
    EXPECT_EQ(left({"drums"}, ItemKind::Waveform), "Drums;Grand Piano;Kick;") << "what an instrument plays";
    EXPECT_EQ(left({"?ick"}, ItemKind::Waveform), "Drums;Grand Piano;Kick;");
}

TEST(NotesReport, GroupsAndKeepsAll)
{
    const std::vector<ConversionNote> notes{
        {Fidelity::Kept, NoteTopic::Parameter, u"", u"Pan position", u"", u"", u"", 7},
        {Fidelity::Lost, NoteTopic::Parameter, u"A / Layer 1", u"EQ 1 Gain", u"3 dB", u"", u"", 1},
        {Fidelity::Lost, NoteTopic::Parameter, u"B", u"EQ 1 Gain", u"4 dB", u"", u"", 1},
        {Fidelity::Approximated, NoteTopic::Text, u"C", u"Name", u"Long name", u"Long", u"20 characters", 1},
    };
    EXPECT_EQ(NotesText(notes), "  kept: 7 values\n"
                                "  approximated:\n"
                                "    1 Name (20 characters): Long name -> Long in C\n"
                                "  lost:\n"
                                "    2 EQ 1 Gain, such as 3 dB in A / Layer 1\n");
    const Json json = NotesJson(notes);
    ASSERT_EQ(json.size(), 4u);
    EXPECT_EQ(json[3], (Json{{"fidelity", "approximated"},
                             {"topic", "text"},
                             {"item", "C"},
                             {"what", "Name"},
                             {"from", "Long name"},
                             {"to", "Long"},
                             {"reason", "20 characters"},
                             {"count", 1}}));
    EXPECT_EQ(NotesText({}), "");
}

} // namespace
} // namespace vimbo::cli
