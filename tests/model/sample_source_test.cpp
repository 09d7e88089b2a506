// Stereo waveforms read from two mono sources, and mono ones from one side of a stereo source.
#include "model/sample_source.h"

#include "base/last_error.h"
#include "model_builders.h"
#include "test_files.h"

#include <numeric>

namespace vimbo {
namespace {

using testing::Bytes;

/// Waveforms over one file of bytes that all differ from their neighbours.
class Sources {
public:
    Sources()
    {
        Bytes bytes(120000);
        std::uint32_t state = 1;
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>((state = state * 1664525 + 1013904223) >> 24);
        path = folder.Put("bank.bin", bytes);
    }

    Waveform& Add(std::u16string_view name, DataFormat format, std::uint32_t frames, unsigned channels,
                  std::uint64_t offset, std::uint32_t flags = 0)
    {
        Waveform& wave = items.Create<Waveform>(name);
        wave.SetSourceFormat(format, flags);
        wave.frames = frames;
        wave.channels = static_cast<std::uint8_t>(channels);
        wave.sourceOffset = offset;
        wave.rateHz = 32000;
        wave.SetText(kTextSourcePath, path);
        return wave;
    }

    testing::ScratchFolder folder;
    std::u16string path;
    Collection items;
};

/// The samples as a load gives them; reading in pieces from several places must agree.
std::vector<float> SamplesOf(Waveform& wave)
{
    wave.FreeSamples();
    const std::unique_ptr<FrameSource> frames = wave.OpenFrames();
    EXPECT_FALSE(wave.HasBlock()) << "streaming built the block";
    const std::span<float> loaded = wave.LockSamples();
    std::vector<float> samples(loaded.begin(), loaded.end());
    wave.FreeSamples();
    if (frames == nullptr || frames->Frames() != wave.frames || frames->Channels() != wave.channels) {
        ADD_FAILURE() << WideToUtf8(LastError());
        return samples;
    }
    std::vector<float> pieces(samples.size());
    const std::uint32_t middle = wave.frames / 3 * 2;
    const std::size_t split = std::size_t{middle} * wave.channels;
    EXPECT_TRUE(frames->Read(middle, std::span(pieces).subspan(split)));
    EXPECT_TRUE(frames->Read(0, std::span(pieces).first(split)));
    EXPECT_EQ(pieces, samples);
    for (const bool isUnsigned : {false, true}) {
        const SampleLayout layout{SampleCoding::Pcm16, isUnsigned, std::endian::big};
        Bytes stored(2 * (samples.size() - split)), encoded(stored.size());
        DeltaState none;
        EncodeSamples(layout, std::span(samples).subspan(split), encoded, none);
        EXPECT_TRUE(frames->ReadStored(layout, middle, stored));
        EXPECT_EQ(stored, encoded);
    }
    return samples;
}

SampleSource SourceOf(const Waveform& wave)
{
    SampleSource source;
    EXPECT_TRUE(DescribeSource(wave, source));
    return source;
}

TEST(SampleSource, APairIsWhatJoiningLoadedSamplesGives)
{
    struct Row {
        DataFormat left;
        std::uint32_t leftFrames;
        DataFormat right;
        std::uint32_t rightFrames;
        DataFormat reported;
    };
    const std::initializer_list<Row> rows = {
        {DataFormat::Pcm16, 20001, DataFormat::Pcm16, 20001, DataFormat::Pcm16},
        {DataFormat::Pcm16, 9000, DataFormat::Pcm16, 20001, DataFormat::Pcm16},
        {DataFormat::Pcm16, 20001, DataFormat::Pcm24, 9000, DataFormat::Pcm24},
        {DataFormat::Pcm12, 3, DataFormat::Delta16, 17001, DataFormat::Delta16},
        {DataFormat::Delta8, 20000, DataFormat::MuLaw, 1, DataFormat::Delta8},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.left));
        Sources sources;
        Waveform& left = sources.Add(u"A -L", row.left, row.leftFrames, 1, 7);
        Waveform& right = sources.Add(u"A -R", row.right, row.rightFrames, 1, 50001);
        right.rootKey = 70;
        Waveform& expected = sources.items.Clone(left);
        ASSERT_TRUE(expected.ToStereo(StereoMode::LeftAndSecond, &right));
        right.FreeSamples();
        const SampleSource leftSource = SourceOf(left), rightSource = SourceOf(right);

        ASSERT_TRUE(JoinStereo(left, right)) << WideToUtf8(LastError());
        EXPECT_FALSE(left.HasBlock() || right.HasBlock());
        EXPECT_FALSE(left.HasGenericImport());
        EXPECT_EQ(left.SourceFormat(), row.reported);
        EXPECT_EQ(left.bits, expected.bits);
        EXPECT_EQ(left.rootKey, 60);
        EXPECT_EQ(left.frames, expected.frames);
        const std::span<float> wanted = expected.LockSamples();
        EXPECT_EQ(SamplesOf(left), std::vector<float>(wanted.begin(), wanted.end()));
        EXPECT_EQ(SourceFiles(left), std::vector<std::u16string>({sources.path, sources.path}));

        Waveform* half = SplitStereo(sources.items.Clone(left));
        ASSERT_NE(half, nullptr);
        EXPECT_EQ(half->GetName(), u"A -L -R");
        EXPECT_EQ(SourceOf(*half), rightSource);
        half = SplitStereo(left);
        ASSERT_NE(half, nullptr);
        EXPECT_EQ(SourceOf(left), leftSource);
        EXPECT_TRUE(left.HasGenericImport() && half->HasGenericImport());
        EXPECT_TRUE(HasSameSource(*half, right));
    }
}

TEST(SampleSource, SidesOfAStereoSourceAndBack)
{
    const std::uint32_t planes = kSourceSequentialStereo;
    for (const std::uint32_t flags : {0u, planes}) {
        Sources sources;
        Waveform& wave = sources.Add(u"Strings S", DataFormat::Pcm16, 12345, 2, 11, flags);
        wave.secondOffset = flags != 0 ? 60000 : 0;
        wave.Validate();
        const SampleSource whole = SourceOf(wave);
        const std::vector<float> stereo = SamplesOf(wave);
        Waveform& loaded = sources.items.Clone(wave);
        Waveform* loadedRight = nullptr;
        ASSERT_TRUE(loaded.ToMono(MonoMode::Split, &loadedRight));

        Waveform* right = SplitStereo(wave);
        ASSERT_NE(right, nullptr);
        EXPECT_FALSE(wave.HasBlock() || right->HasBlock());
        EXPECT_EQ(wave.GetName(), loaded.GetName());
        EXPECT_EQ(right->GetName(), loadedRight->GetName());
        EXPECT_EQ(wave.sourceWord, FormatBit(DataFormat::Pcm16));
        const auto left = loaded.LockSamples(), other = loadedRight->LockSamples();
        EXPECT_EQ(SamplesOf(wave), std::vector<float>(left.begin(), left.end()));
        EXPECT_EQ(SamplesOf(*right), std::vector<float>(other.begin(), other.end()));
        EXPECT_FALSE(HasSameSource(wave, *right));

        // The wrong way round they are a pair of sides; the right way round, the source again.
        Waveform& mirrored = sources.items.Clone(*right);
        ASSERT_TRUE(JoinStereo(mirrored, wave));
        std::vector<float> swapped = stereo;
        for (std::size_t i = 0; i < swapped.size(); i += 2)
            std::swap(swapped[i], swapped[i + 1]);
        EXPECT_EQ(SamplesOf(mirrored), swapped);
        ASSERT_TRUE(JoinStereo(wave, *right));
        EXPECT_EQ(SourceOf(wave), whole);
        EXPECT_EQ(wave.derived, nullptr);
    }
}

TEST(SampleSource, SamplesInMemoryAreJoinedAndSplitThere)
{
    Sources sources;
    Waveform& left = sources.Add(u"x", DataFormat::Pcm16, 100, 1, 0);
    Waveform& right = sources.Add(u"y", DataFormat::Pcm16, 50, 1, 400);
    const std::span<float> own = left.LockSamplesForWrite();
    std::iota(own.begin(), own.end(), 1.0f);
    left.rootKey = 64;
    ASSERT_TRUE(JoinStereo(left, right));
    EXPECT_EQ(left.importProc, nullptr);
    EXPECT_FALSE(right.HasBlock());
    EXPECT_EQ(left.rootKey, 64);
    EXPECT_EQ(left.LockSamples()[198], 100.0f);
    Waveform* half = SplitStereo(left);
    ASSERT_NE(half, nullptr);
    EXPECT_EQ(half->frames, 100u);
    EXPECT_EQ(half->LockSamples()[49], right.LockSamples()[49]);

    right.rateHz = 8000;
    EXPECT_FALSE(JoinStereo(left, right));
    EXPECT_EQ(LastError(), u"Waveforms with different sample rates can't be joined");
    Waveform& stereo = sources.Add(u"s", DataFormat::Pcm8, 10, 2, 0);
    EXPECT_FALSE(JoinStereo(left, stereo) || JoinStereo(stereo, left));
    EXPECT_EQ(LastError(), u"Only mono waveforms can be joined");
    EXPECT_EQ(SplitStereo(left), nullptr);
}

TEST(SampleSource, WritingForgetsTheParts)
{
    Sources sources;
    Waveform& left = sources.Add(u"x", DataFormat::Pcm8, 100, 1, 0);
    Waveform& right = sources.Add(u"y", DataFormat::Pcm8, 100, 1, 400);
    ASSERT_TRUE(JoinStereo(left, right));
    Waveform& copy = sources.items.Clone(left);
    EXPECT_TRUE(HasSameSource(copy, left));
    copy.LockSamplesForWrite()[0] = 5;
    EXPECT_TRUE(copy.importProc == nullptr && copy.derived == nullptr);
    left.LockSamples();
    left.ReplaceBlock(copy.Block());
    EXPECT_TRUE(left.importProc == nullptr && left.derived == nullptr);
    EXPECT_TRUE(SourceFiles(left).empty());
}

TEST(SampleSource, MissingOrChangedSourcesFailCleanly)
{
    Sources sources;
    Waveform& left = sources.Add(u"x", DataFormat::Pcm16, 100, 1, 0);
    Waveform& right = sources.Add(u"y", DataFormat::Pcm16, 100, 1, 400);
    right.SetText(kTextSourcePath, sources.folder.Wide("gone.bin"));
    ASSERT_TRUE(JoinStereo(left, right));
    EXPECT_FALSE(left.EnsureData());
    EXPECT_EQ(LastError(), u"Could not open file");
    EXPECT_FALSE(left.HasBlock());

    const auto spoil = [&](auto change) {
        Waveform& pair = sources.Add(u"x", DataFormat::Pcm16, 100, 1, 0);
        EXPECT_TRUE(JoinStereo(pair, sources.Add(u"y", DataFormat::Pcm16, 100, 1, 400)));
        change(pair);
        EXPECT_FALSE(pair.EnsureData());
        EXPECT_EQ(pair.OpenFrames(), nullptr);
    };
    spoil([](Waveform& wave) { wave.frames = 101; });
    spoil([](Waveform& wave) { wave.frames = 0; });
    spoil([](Waveform& wave) { wave.channels = 1; });
    spoil([](Waveform& wave) { wave.derived = nullptr; });
    spoil([](Waveform& wave) { wave.importProc = &kChannelImport; });
}

TEST(SampleSource, StateRecordsKeepTheParts)
{
    Sources sources;
    Waveform& pair = sources.Add(u"x", DataFormat::Pcm16, 100, 1, 0x12345);
    pair.SetSourceFormat(DataFormat::Pcm24, kSourceBigEndian);
    ASSERT_TRUE(JoinStereo(pair, sources.Add(u"y", DataFormat::Pcm16, 90, 1, 400)));
    Waveform& side = sources.Add(u"s", DataFormat::Pcm16, 100, 2, 4, kSourceSequentialStereo);
    ASSERT_NE(SplitStereo(side), nullptr);

    for (Waveform* wave : {&pair, &side}) {
        ByteWriter first, second;
        wave->Serialize(first);
        Collection restored;
        Waveform& back = restored.Create<Waveform>(u"");
        ByteReader in(first.Bytes());
        ASSERT_TRUE(back.Deserialize(in));
        EXPECT_EQ(in.Left(), 0u);
        ASSERT_NE(back.derived, nullptr);
        EXPECT_EQ(*back.derived, *wave->derived);
        EXPECT_EQ(back.importProc, wave->importProc);
        EXPECT_EQ(SamplesOf(back), SamplesOf(*wave));
        back.Serialize(second);
        EXPECT_TRUE(std::ranges::equal(first.Bytes().subspan(4), second.Bytes().subspan(4))); // the handle

        const std::vector<std::byte> bytes = first.Release();
        for (std::size_t size = bytes.size() - 1; size > bytes.size() - 150; --size) {
            ByteReader cut{std::span(bytes).first(size)};
            EXPECT_FALSE(back.Deserialize(cut));
            EXPECT_EQ(LastError(), u"Damaged state record");
        }
        // Every field at its extremes: refused, or a waveform that loads or fails to.
        for (std::size_t at = bytes.size() - 2 * 60 - 2; at < bytes.size(); ++at)
            for (const int value : {0, 1, 5, 6, 255}) {
                std::vector<std::byte> damaged = bytes;
                damaged[at] = static_cast<std::byte>(value);
                ByteReader reader(damaged);
                if (back.Deserialize(reader) && back.EnsureData()) {
                    EXPECT_EQ(back.LockSamples().size(), std::size_t{back.frames} * back.channels);
                }
            }
    }
}

} // namespace
} // namespace vimbo
