#include "formats/save_all.h"

#include "bank_builder.h"
#include "base/last_error.h"
#include "model/song.h"
#include "test_files.h"
#include "test_host.h"

#include <algorithm>

namespace vimbo {
namespace {

using testing::Bank;
using testing::MakeBytes;
using testing::ScratchFolder;
using testing::ScriptedHost;

std::string NameOf(const Item& item, AutoNaming naming, std::size_t number = 7,
                   std::u16string_view base = u"/x/foo.aif", SubFolders sub = SubFolders::No)
{
    return WideToUtf8(AutoName(base, item, naming, sub, number));
}

TEST(AutoName, EveryModeNamesItsWay)
{
    Bank bank;
    bank.wave.SetName(u"kick.wav");
    bank.wave.SetText(kTextSourcePath, u"/some/where/Drum.Loop.WAV");
    struct Case {
        AutoNaming naming;
        std::size_t number;
        std::string expected;
    };
    const Case cases[] = {
        {AutoNaming::BaseAndNumber, 7, "/x/foo - 07.aif"},
        {AutoNaming::BaseAndNumber, 99, "/x/foo - 99.aif"},
        {AutoNaming::BaseAndNumber, 100, "/x/foo - 100.aif"},
        {AutoNaming::BaseAndNumber, 1234, "/x/foo - 1234.aif"},
        {AutoNaming::NumberAndBase, 7, "/x/07 - foo.aif"},
        {AutoNaming::BaseAndName, 7, "/x/foo - kick_wav.aif"},
        {AutoNaming::Name, 7, "/x/kick_wav.aif"},
        {AutoNaming::NumberAndName, 7, "/x/07 - kick_wav.aif"},
        {AutoNaming::SourceFile, 7, "/x/Drum.Loop.aif"},
        {AutoNaming::Prompt, 7, "/x/kick_wav.aif"},
        {AutoNaming::ProgramAndName, 7, "/x/kick_wav.aif"},
    };
    for (const Case& test : cases)
        EXPECT_EQ(NameOf(bank.wave, test.naming, test.number), test.expected);
    EXPECT_EQ(NameOf(bank.wave, AutoNaming::BaseAndNumber, 7, u"foo"), "foo - 07");
    EXPECT_EQ(NameOf(bank.wave, AutoNaming::Name, 7, u"/x.y/a.b.aif", SubFolders::Yes),
              "/x.y/kick_wav/kick_wav.aif");
    EXPECT_EQ(NameOf(bank.wave, AutoNaming::NumberAndBase, 7, u"/foo.aif", SubFolders::Yes),
              "/07 - foo/07 - foo.aif");
    bank.wave.SetText(kTextSourcePath, u"<Clipboard>");
    EXPECT_EQ(NameOf(bank.wave, AutoNaming::SourceFile), "/x/kick_wav.aif") << "no file";
}

TEST(AutoName, ProgramsNameThePartsOfInstruments)
{
    Bank bank;
    Instrument& instrument = bank.Add(u"Kit 1", 0, {{{36, 36, 0, 127}}});
    instrument.location.SetBankMsb(3);
    instrument.location.SetBankLsb(2);
    instrument.location.SetProgram(1);
    const Layer& layer = *instrument.Layers()[0];
    const Region& region = *layer.Regions()[0];
    EXPECT_EQ(NameOf(instrument, AutoNaming::ProgramAndName), "/x/3-2-1 - Kit 1.aif");
    instrument.location.SetDrum(true);
    EXPECT_EQ(NameOf(instrument, AutoNaming::ProgramAndName), "/x/d3-2-1 - Kit 1.aif");
    EXPECT_EQ(NameOf(layer, AutoNaming::ProgramAndName), "/x/d3-2-1 - Kit 1.Layer 1.aif");
    EXPECT_EQ(NameOf(region, AutoNaming::ProgramAndName), "/x/d3-2-1 - Kit 1.Layer 1.C2__C2 _ w.aif");
}

TEST(AutoName, LongNamesFitIntoPathsAndFileNames)
{
    Bank bank;
    for (const char16_t letter : {u'x', u'\u65E5'})
        for (const std::size_t depth : {1u, 100u, 200u, 400u})
            for (const SubFolders sub : {SubFolders::No, SubFolders::Yes}) {
                bank.wave.SetName(std::u16string(250, letter) + u" 12-L");
                const std::u16string folder = u"/" + std::u16string(depth, u'f');
                const std::u16string path =
                    AutoName(folder + u"/foo.aif", bank.wave, AutoNaming::BaseAndName, sub, 1);
                EXPECT_TRUE(path.ends_with(u"12-L.aif"));
                EXPECT_TRUE(path.starts_with(folder + u"/foo - " + letter));
                EXPECT_LE(path.size(), depth <= 200 ? 259u : depth + 60);
                EXPECT_LE(WideToPath(path.substr(path.rfind(u'/') + 1)).size(), 255u);
            }
}

/// A folder, a host and a collection of named waveforms, saved as unsigned bytes.
struct Batch {
    Batch()
    {
        items.SetHost(host);
        base.path = folder.Wide("foo.ub");
        base.row = FindRowByExtension(u"ub", kKindWave);
        base.choice = AutoChoice(base.row);
    }
    Waveform& Add(std::u16string_view name, std::uint32_t frames)
    {
        Waveform& wave = items.Create<Waveform>(name);
        wave.frames = frames;
        return wave;
    }
    bool Go()
    {
        result = {};
        host.status.clear();
        host.asked.clear();
        return SaveAll(items, base, options, &result);
    }
    /// "a.ub:3 b.ub:5", sizes behind the names, sub-folders with their paths.
    std::string Files() const
    {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path()))
            if (entry.is_regular_file())
                files.push_back(std::filesystem::relative(entry.path(), folder.Path()).string() + ':' +
                                std::to_string(entry.file_size()));
        std::sort(files.begin(), files.end());
        std::string text;
        for (const std::string& file : files)
            text += (text.empty() ? "" : " ") + file;
        return text;
    }

    ScratchFolder folder;
    ScriptedHost host;
    Collection items;
    SaveTarget base;
    SaveAllOptions options;
    SaveAllResult result;
};

TEST(SaveAll, WritesOneFilePerItem)
{
    Batch run;
    run.Add(u"a", 3);
    run.Add(u"b", 5);
    ASSERT_TRUE(run.Go());
    EXPECT_EQ(run.Files(), "a.ub:3 b.ub:5");
    EXPECT_EQ(run.host.status.back(), u"Done: Saved 2 files.");
    run.options.naming = AutoNaming::BaseAndNumber;
    run.options.subFolders = SubFolders::Yes;
    run.base.path = run.folder.Wide("foo"); // the row's extension is added
    ASSERT_TRUE(run.Go());
    EXPECT_EQ(run.Files(), "a.ub:3 b.ub:5 foo - 01/foo - 01.ub:3 foo - 02/foo - 02.ub:5");
    EXPECT_TRUE(run.host.asked.empty());
}

TEST(SaveAll, CollisionsAreAskedAbout)
{
    struct Case {
        std::size_t answer, again;
        std::size_t asked;
        std::string files;
        std::string status;
    };
    const Case cases[] = {
        {0, 1, 4, "a.ub:3 b.ub:5 c.ub:7 d.ub:9",
         "Done: Saved 4 files."}, // three questions, one about the rest
        {0, 0, 2, "a.ub:3 b.ub:5 c.ub:7 d.ub:9", "Done: Saved 4 files."},
        {1, 0, 2, "a.ub:1 b.ub:1 c.ub:7 d.ub:1", "Done: Saved 1 files."},
        {2, 0, 2, "a.ub:1 a2.ub:3 b.ub:1 b2.ub:5 c.ub:7 d.ub:1 d2.ub:9", "Done: Saved 4 files."},
        {3, 0, 1, "a.ub:1 b.ub:1 d.ub:1", "Failed: Cancelled after 0 files."},
    };
    for (const Case& test : cases) {
        Batch run;
        for (const char* name : {"a.ub", "b.ub", "d.ub"})
            run.folder.Put(name, MakeBytes({1}));
        run.Add(u"a", 3);
        run.Add(u"b", 5);
        run.Add(u"c", 7);
        run.Add(u"d", 9);
        run.host.answers = {{"save-all-collision", test.answer}, {"save-all-collisions", test.again}};
        run.options.pickTarget = [&](const Item& item, SaveTarget& target) {
            target.path = run.folder.Wide(WideToUtf8(item.GetName()) + "2.ub");
            return true;
        };
        ASSERT_TRUE(run.Go());
        EXPECT_EQ(run.Files(), test.files);
        EXPECT_EQ(WideToUtf8(run.host.status.back()), test.status);
        EXPECT_EQ(run.host.asked.size(), test.asked);
        EXPECT_EQ(WideToUtf8(run.host.asked[0]), "The auto-named file \"" +
                                                     WideToUtf8(run.folder.Wide("a.ub")) +
                                                     "\" already exists!\nWhat do you want to do with it?");
        EXPECT_EQ(run.result.cancelled, test.answer == 3);
    }
}

TEST(SaveAll, FilesMayHoldTheSamplesOfOthers)
{
    Batch run;
    run.folder.Put("a.ub", MakeBytes({1, 2}));
    run.folder.Put("b.ub", MakeBytes({3, 4}));
    run.folder.Put("c.ub", MakeBytes({5, 6}));
    std::filesystem::create_symlink(run.folder.Path() / "a.ub", run.folder.Path() / "link");
    const auto add = [&](std::u16string_view name, const char* source) {
        Waveform& wave = run.Add(name, 2);
        wave.SetSourceFormat(DataFormat::Pcm8, kSourceUnsigned);
        wave.SetText(kTextSourcePath, run.folder.Wide(source));
    };
    add(u"a", "b.ub");
    add(u"b", "link");
    add(u"c", "b.ub"); // gone by then
    add(u"d", "a.ub");
    run.host.answers = {{"save-all-collision", 0}, {"save-all-collisions", 0}};
    ASSERT_TRUE(run.Go());
    EXPECT_EQ(run.folder.Get("a.ub"), MakeBytes({3, 4}));
    EXPECT_EQ(run.folder.Get("b.ub"), MakeBytes({1, 2}));
    EXPECT_EQ(run.folder.Get("c.ub"), MakeBytes({3, 4}));
    EXPECT_EQ(run.folder.Get("d.ub"), MakeBytes({1, 2}));
}

TEST(SaveAll, PromptsAndGoesOnAfterFailures)
{
    Batch run;
    run.Add(u"a", 3);
    run.Add(u"b", 5);
    run.Add(u"c", 7);
    run.options.naming = AutoNaming::Prompt;
    std::vector<std::u16string> presets;
    run.options.pickTarget = [&](const Item& item, SaveTarget& target) {
        presets.push_back(target.path);
        if (item.GetName() == u"a")
            target.path = run.folder.Wide("a.ub/is/no/folder");
        return item.GetName() != u"c";
    };
    run.folder.Put("a.ub", MakeBytes({1}));
    ASSERT_TRUE(run.Go());
    EXPECT_EQ(presets, (std::vector<std::u16string>{run.folder.Wide("a.ub"), run.folder.Wide("b.ub"),
                                                    run.folder.Wide("c.ub")}));
    EXPECT_EQ(run.Files(), "a.ub:1 b.ub:5");
    EXPECT_EQ(run.host.shown, std::vector<std::u16string>{u"Could not create file"});
    EXPECT_EQ(run.host.status.back(), u"Failed: Cancelled after 1 files.");
    EXPECT_EQ(run.result.failed, 1u);
}

TEST(SaveAll, RefusesWhatItCannotSave)
{
    Batch run;
    EXPECT_FALSE(run.Go());
    EXPECT_EQ(LastError(), u"No waveforms to save!");
    run.base.row = -1;
    EXPECT_FALSE(run.Go());
    EXPECT_EQ(LastError(), u"Invalid export format selected");
    run.base.row = 0;
    EXPECT_FALSE(run.Go());
    EXPECT_EQ(LastError(), u"Invalid export format selected") << "a row that only reads";
}

} // namespace
} // namespace vimbo
