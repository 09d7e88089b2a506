// Waveforms that are there twice are told by what they hold, and read only when that is the question.
#include "model/sample_source.h"
#include "model/stereo_pairs.h"
#include "model_builders.h"
#include "test_files.h"

#include <functional>
#include <map>
#include <random>

namespace vimbo {
namespace {

using testing::Bytes;

/// A file that holds the same 40,000 bytes twice.
class Bank {
public:
    static constexpr std::uint64_t kCopy = 40000;

    Bank()
    {
        Bytes bytes;
        for (std::uint32_t i = 0; i < 2 * kCopy; ++i)
            bytes.push_back(static_cast<std::byte>(i % kCopy * 2654435761u >> 24));
        path = folder.Put("bank.bin", bytes);
    }

    Waveform& Add(std::uint64_t offset)
    {
        Waveform& wave = items.Create<Waveform>(u"Tom");
        wave.SetSourceFormat(DataFormat::Pcm16, 0);
        wave.SetText(kTextSourcePath, path);
        wave.sourceOffset = offset;
        wave.frames = 19000;
        wave.markers = {{false, 5, 0, u"m"}};
        return wave;
    }

    testing::ScratchFolder folder;
    std::u16string path;
    Collection items;
};

TEST(RemoveDuplicateWaves, RulesOfEquality)
{
    struct Row {
        const char* name;
        bool isSame;
        std::function<void(Bank&, Waveform&)> change;
    };
    const std::vector<Row> rows = {
        {"as it is", true, [](Bank&, Waveform&) {}},
        {"other place, same bytes", true, [](Bank&, Waveform& w) { w.sourceOffset = Bank::kCopy; }},
        {"other place, other bytes", false, [](Bank&, Waveform& w) { w.sourceOffset = 2; }},
        {"in memory", true, [](Bank&, Waveform& w) { w.LockSamplesForWrite(); }},
        {"last sample", false, [](Bank&, Waveform& w) { w.LockSamplesForWrite().back() += 0.5f; }},
        {"same source, unreadable", true,
         [](Bank& b, Waveform& w) {
             for (Waveform& wave : b.items.All<Waveform>())
                 wave.SetText(kTextSourcePath, u"/no");
             static_cast<void>(w);
         }},
        {"unreadable", false, [](Bank&, Waveform& w) { w.SetText(kTextSourcePath, u"/no"); }},
        {"case of the name", true, [](Bank&, Waveform& w) { w.SetName(u"TOM"); }},
        {"name", false, [](Bank&, Waveform& w) { w.SetName(u"Tam"); }},
        {"marker", false, [](Bank&, Waveform& w) { w.markers[0].name = u"n"; }},
        {"volume", false, [](Bank&, Waveform& w) { w.volume = 1; }},
        {"fine tune", false, [](Bank&, Waveform& w) { w.fineTune = 1; }},
        {"root key", false, [](Bank&, Waveform& w) { w.rootKey = 1; }},
        {"rate", false, [](Bank&, Waveform& w) { w.rateHz = 1; }},
        {"loop", false, [](Bank&, Waveform& w) { w.loop.type = LoopType::Forward; }},
        {"frames", false, [](Bank&, Waveform& w) { w.frames = 18999; }},
        {"encoding", false, [](Bank&, Waveform& w) { w.sourceWord |= kSourceBigEndian; }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bank bank;
        Waveform& first = bank.Add(0);
        Waveform& second = bank.Add(0);
        Instrument& instrument = AddInstrument(bank.items, 1, 1, second);
        SynthModel& model = bank.items.Create<SynthModel>(u"");
        ASSERT_TRUE(model.SetModel(1));
        model.AddChild(second.Handle());
        model.SetWaveReference(3, second.Handle());
        row.change(bank, second);
        const ItemHandle wanted = (row.isSame ? first : second).Handle();
        const bool hadBlock = second.HasBlock();
        EXPECT_EQ(RemoveDuplicateWaves(bank.items), row.isSame ? 1u : 0u);
        EXPECT_EQ(bank.items.CountOf(ItemKind::Waveform), row.isSame ? 1u : 2u);
        EXPECT_EQ(instrument.Layers()[0]->Regions()[0]->Wave()->Handle(), wanted);
        EXPECT_EQ(model.WaveReference(3), wanted);
        EXPECT_EQ(model.Child(0), bank.items.FindItem(wanted));
        EXPECT_FALSE(first.HasBlock());
        EXPECT_TRUE(row.isSame || second.HasBlock() == hadBlock);
    }
}

TEST(RemoveDuplicateWaves, ManyOfOneNameAndDerivedSources)
{
    Bank bank;
    for (unsigned i = 0; i < 60; ++i)
        bank.Add(i % 30 * 2).frames = 500;
    const auto pair = [&bank](std::uint64_t right) -> Waveform& {
        Waveform& wave = bank.Add(0);
        EXPECT_TRUE(JoinStereo(wave, bank.Add(right)));
        return wave;
    };
    pair(6);
    pair(6);
    pair(Bank::kCopy + 6);
    pair(8);
    // 30 of 60; two of four pairs; of the pairs' right halves, which stay behind, two of four.
    EXPECT_EQ(RemoveDuplicateWaves(bank.items), 34u);
    EXPECT_EQ(RemoveDuplicateWaves(bank.items), 0u);
    for (const Waveform& wave : bank.items.All<Waveform>())
        EXPECT_FALSE(wave.HasBlock());
}

/// Waveforms of several files at random; which ones stay, and what is played then, by a search of all earlier
/// ones for each.
TEST(ShareSources, AgreesWithThePlainSearch)
{
    struct Known {
        std::size_t file;
        std::uint64_t offset;
        std::int8_t tune;
        bool isPlayed;
        const Region* region;
    };
    std::mt19937 random(7);
    const auto below = [&random](unsigned count) { return random() % count; };
    std::size_t gone = 0;
    for (unsigned round = 0; round < 60; ++round) {
        const Unplayed unplayed = round % 2 == 0 ? Unplayed::Keep : Unplayed::Drop;
        Collection items;
        std::vector<FileStart> files{{0, MayLeave::No}};
        std::vector<Known> known;
        for (unsigned i = 0; i < 30; ++i) {
            if (below(5) == 0)
                files.push_back({i, below(4) == 0 ? MayLeave::No : MayLeave::Yes});
            Waveform& wave = items.Create<Waveform>(u"w");
            wave.SetSourceFormat(DataFormat::Pcm16, 0);
            wave.SetText(kTextSourcePath, u"/bank");
            wave.sourceOffset = below(3);
            wave.fineTune = static_cast<std::int8_t>(below(2));
            wave.frames = 100;
            wave.rootKey = static_cast<std::uint8_t>(i);
            const bool hasRegion = below(2) == 0;
            const Region* region =
                hasRegion ? AddInstrument(items, 1, 1, wave).Layers()[0]->Regions()[0] : nullptr;
            known.push_back({files.size() - 1, wave.sourceOffset, wave.fineTune,
                             hasRegion || unplayed == Unplayed::Keep, region});
        }

        std::vector<std::size_t> kept;
        std::map<std::size_t, std::size_t> standIns;
        for (std::size_t i = 0; i < known.size(); ++i) {
            const Known& wave = known[i];
            const auto found = std::ranges::find_if(kept, [&](std::size_t k) {
                return files[wave.file].leaves == MayLeave::Yes && known[k].file != wave.file &&
                       known[k].offset == wave.offset &&
                       (!wave.isPlayed || !known[k].isPlayed || known[k].tune == wave.tune);
            });
            if (found == kept.end()) {
                kept.push_back(i);
            } else if (known[*found].isPlayed || !wave.isPlayed) {
                standIns[i] = *found;
            } else {
                standIns[*found] = i;
                *found = i;
            }
        }
        std::ranges::sort(kept);

        EXPECT_EQ(ShareSources(items, std::span(files).subspan(1), unplayed), standIns.size());
        std::vector<std::size_t> left;
        for (const Waveform& wave : items.All<Waveform>())
            left.push_back(wave.rootKey);
        EXPECT_EQ(left, kept);
        for (std::size_t i = 0; i < known.size(); ++i)
            if (known[i].region != nullptr) {
                EXPECT_EQ(known[i].region->Wave()->rootKey, standIns.contains(i) ? standIns[i] : i);
                EXPECT_EQ(known[i].region->EffectiveRootKey(), i) << "its own, whatever it plays";
            }
        gone += standIns.size();
    }
    EXPECT_GT(gone, 300u);
}

} // namespace
} // namespace vimbo
