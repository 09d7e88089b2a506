// FLAC and Ogg Vorbis: bytes of the `flac` program, what the writers keep, streams inside larger files, and
// damage.
#include "base/text.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/save.h"
#include "formats/wave/wave_bytes.h"
#include "formats/xiph/comments.h"
#include "formats/xiph/riff_blocks.h"
#include "formats/xiph/xiph.h"
#include "model/consistency.h"
#include "model/instrument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vimbo {
namespace {

/// flac 1.4.2 with --keep-foreign-metadata, of a WAV file with `smpl`, `cue ` and a label.
const ByteList kFlac =
    Spell("'fLaC' 00000022 100010000000160000160AC440F0000000064023A87BC7A7E800146260F5A47A727D"
          "0400004D 20000000 'reference libFLAC 1.4.2 20221022' 02000000"
          "0B000000 'TITLE=N' C3A4 'me' 12000000 'description=Second'"
          "02000010 'riffRIFF' B4000000 'WAVE'"
          "0200001C 'riff' 'fmt ' 10000000 0100 0100 44AC0000 88580100 0200 1000"
          "0200000C 'riff' 'data' 0C000000"
          "02000048 'riff' 'smpl' 3C000000 00000000 00000000 94580000 2D000000 00000040 00000000 00000000"
          "01000000 00000000 00000000 01000000 01000000 04000000 00000080 00000000"
          "02000028 'riff' 'cue ' 1C000000 01000000 07000000 00000000 'data' 00000000 00000000 03000000"
          "82000020 'riff' 'LIST' 14000000 'adtl' 'labl' 08000000 07000000 'Hit' 00"
          "FFF86908 00050602 00000100 FE007FFF 80000001 3476");
constexpr std::size_t kStreamInfoAt = 8; ///< body of the first block
constexpr std::size_t kAudioAt = 369 - 20;
const std::vector<float> kFlacSamples = {0,  256 / 32768.0f, -512 / 32768.0f, 32767 / 32768.0f,
                                         -1, 1 / 32768.0f};

const ByteList kPng = Spell("89 'PNG' 0D0A1A0A 00000000");
const ByteList kGif = Spell("'GIF89a' 01000100");

struct Read {
    explicit Read(std::span<const std::byte> bytes, ReadFn read = ReadFlac) : file(bytes)
    {
        isRead = read(items, file, 0);
        if (isRead)
            wave = items.List<Waveform>().front();
    }
    std::vector<float> Samples()
    {
        if (!file.Seek(wave->sourceOffset) || !wave->importProc->load(*wave, file))
            return {};
        const auto samples = wave->LockSamples();
        return {samples.begin(), samples.end()};
    }
    MemoryFile file;
    Collection items;
    bool isRead;
    Waveform* wave = nullptr;
};

TEST(Flac, KnownBytes)
{
    ASSERT_EQ(kFlac.size(), 369u);
    Read read(kFlac);
    ASSERT_TRUE(read.isRead);
    Waveform& wave = *read.wave;
    EXPECT_EQ(wave.frames, 6u);
    EXPECT_EQ(wave.channels, 1);
    EXPECT_EQ(wave.rateHz, 44100u);
    EXPECT_EQ(wave.bits, 16);
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm16);
    EXPECT_EQ(wave.SourceFormat(), DataFormat::Pcm16);
    EXPECT_EQ(wave.GetName(), u"N\u00E4me");
    EXPECT_EQ(wave.GetText(kTextComments), u"Second");
    EXPECT_EQ(wave.rootKey, 45);
    EXPECT_EQ(wave.fineTune, -25);
    EXPECT_EQ(wave.loop.type, LoopType::Alternating);
    EXPECT_EQ(wave.loop.start, 1);
    EXPECT_EQ(wave.loop.end, 5.5);
    ASSERT_EQ(wave.markers.size(), 1u);
    EXPECT_EQ(wave.markers[0].position, 3u);
    EXPECT_EQ(wave.markers[0].name, u"Hit");
    EXPECT_EQ(read.Samples(), kFlacSamples);
}

TEST(Flac, LengthThatIsUnknownOrFalse)
{
    constexpr std::size_t kFramesAt = kStreamInfoAt + 14; // the low 32 bits of the frame count
    for (const char* frames : {"00000000", "7FFFFFFF"}) {
        ByteList bytes = kFlac;
        std::ranges::copy(Spell(frames), bytes.begin() + kFramesAt);
        EXPECT_EQ(Read(bytes).wave->frames, 6u);
    }
    ByteList longer = kFlac; // a claim that the bytes could hold, but do not
    std::ranges::copy(Spell("00000010"), longer.begin() + kFramesAt);
    Read read(longer);
    std::vector<float> silent = kFlacSamples;
    silent.resize(16);
    EXPECT_EQ(read.Samples(), silent);
    Read trailing(Join({kFlac, ByteList(128, std::byte{0xFF})})); // as old taggers add it
    EXPECT_EQ(trailing.Samples(), kFlacSamples);
}

TEST(Flac, TagBeforeTheStream)
{
    const ByteList tagged = Join({Spell("'ID3' 0300 00 00000105"), ByteList(133), kFlac});
    Read read(tagged);
    ASSERT_TRUE(read.isRead);
    EXPECT_EQ(read.wave->GetName(), u"N\u00E4me");
    EXPECT_EQ(read.Samples(), kFlacSamples);
    EXPECT_EQ(DetectFlac(tagged, 0, tagged.size()), 6);
}

/// Two partials in the left channel, noise in the right.
Waveform& AddSound(Collection& collection, std::uint8_t channels, std::uint32_t frames)
{
    Waveform& wave = collection.Create<Waveform>(u"Sound \u266A");
    wave.channels = channels;
    wave.rateHz = 44100;
    wave.frames = frames;
    std::uint32_t seed = 7;
    const auto samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double t = 2 * std::numbers::pi * static_cast<double>(i / channels) / 44100;
        seed = seed * 1664525 + 1013904223;
        const auto noise = static_cast<float>(static_cast<std::int32_t>(seed)) / 2147483648.0f;
        samples[i] = i % channels == 1
                         ? noise * 0.25f
                         : static_cast<float>(0.4 * std::sin(440 * t) + 0.2 * std::sin(1760 * t));
    }
    return wave;
}

ByteList Written(Waveform& wave, WriteFn write, FormatChoice choice)
{
    MemoryFile file;
    EXPECT_TRUE(write(wave, file, choice)) << WideToUtf8(LastError());
    EXPECT_EQ(file.Position(), file.Size());
    return file.Release();
}

ByteList WrittenFlac(Waveform& wave, DataFormat format, std::uint32_t variant = 0)
{
    return Written(wave, WriteFlac,
                   {.caps = FormatBit(format) | kCapsMono | kCapsStereo, .variant = variant});
}

ByteList WrittenOgg(Waveform& wave, float kbit)
{
    return Written(wave, WriteOgg,
                   {.caps = FormatBit(DataFormat::Compressed) | kCapsMono | kCapsStereo, .kbit = kbit});
}

TEST(Flac, WritesTheCodesOfPcmFiles)
{
    for (const std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        Collection collection;
        Waveform& wave = AddSound(collection, channels, 30001);
        const auto samples = wave.LockSamplesForWrite();
        samples[0] = 1.0f; // saturates
        samples[1] = -2.0f;
        samples[2] = std::nanf("");
        for (const auto& [format, coding] : {std::pair{DataFormat::Pcm8, SampleCoding::Pcm8},
                                             {DataFormat::Pcm12, SampleCoding::Pcm12},
                                             {DataFormat::Pcm16, SampleCoding::Pcm16},
                                             {DataFormat::Pcm20, SampleCoding::Pcm20},
                                             {DataFormat::Pcm24, SampleCoding::Pcm24}}) {
            SCOPED_TRACE(WideToUtf8(DataFormatName(format)));
            Read read(WrittenFlac(wave, format));
            ASSERT_TRUE(read.isRead);
            EXPECT_EQ(read.wave->bits, DataFormatBits(format));
            EXPECT_EQ(read.wave->SourceFormat(), format);
            std::vector<std::byte> bytes(StoredBytes(coding, samples.size()));
            std::vector<float> wanted(samples.size());
            DeltaState none;
            EncodeSamplesPlain({coding}, samples, bytes, none);
            DecodeSamplesPlain({coding}, bytes, wanted, none);
            EXPECT_EQ(read.Samples(), wanted);
        }
        EXPECT_LT(WrittenFlac(wave, DataFormat::Pcm16, kFlacVariantMaxCompression).size(),
                  WrittenFlac(wave, DataFormat::Pcm16).size());
    }
}

TEST(Xiph, WhatWritersKeep)
{
    Collection collection;
    Waveform& wave = AddSound(collection, 1, 3000);
    wave.SetText(kTextArtist, u"Ann \u00D8");
    wave.SetText(kTextComments, u"two\nlines");
    wave.SetText(kTextCopyright, u"(c)");
    wave.SetText(kTextEngineer, u"Eve");
    wave.SetText(kTextProduct, u"Set");
    wave.SetImage(kPng);
    wave.rootKey = 72;
    wave.fineTune = -13;
    wave.loop = {.type = LoopType::Alternating, .start = 100, .end = 2500.25};
    wave.markers = {Marker{.isRange = true, .position = 5, .end = 9, .name = u"Part"}};
    Read flac(WrittenFlac(wave, DataFormat::Pcm16));
    Read ogg(WrittenOgg(wave, 96), ReadOgg);
    for (const Read* read : {&flac, &ogg}) {
        ASSERT_TRUE(read->isRead);
        const Waveform& back = *read->wave;
        for (std::uint16_t id = kTextName; id <= kTextProduct; ++id)
            EXPECT_EQ(back.GetText(id), wave.GetText(id)) << id;
        EXPECT_TRUE(std::ranges::equal(back.GetImage(), kPng));
        EXPECT_EQ(back.loop.type, LoopType::Alternating);
        EXPECT_EQ(back.loop.start, 100);
        EXPECT_NEAR(back.loop.end, 2500.25, read == &flac ? 1e-9 : 0.25); // comments hold whole frames
        EXPECT_EQ(back.frames, 3000u);
    }
    EXPECT_EQ(flac.wave->rootKey, 72);
    EXPECT_EQ(flac.wave->fineTune, -13);
    ASSERT_EQ(flac.wave->markers.size(), 1u);
    EXPECT_TRUE(flac.wave->markers[0].SameAs(wave.markers[0]));
}

TEST(Flac, RiffBlocksCountTheSamples)
{
    Collection collection;
    Waveform& wave = AddSound(collection, 2, 10);
    EXPECT_TRUE(MakeRiffBlocks(wave, 1, 8, 3).empty()) << "nothing to say";
    wave.rootKey = 61;
    EXPECT_TRUE(MakeRiffBlocks(wave, 2, 16, 1u << 30).empty()) << "over 4 GB";
    const RiffBlocks blocks = MakeRiffBlocks(wave, 1, 8, 3);
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_EQ(blocks[0], Spell("'RIFF' 54000000 'WAVE'")); // 4 + 24 + 12 with the pad byte + 44
    EXPECT_EQ(blocks[1], Spell("'fmt ' 10000000 0100 0100 44AC0000 44AC0000 0100 0800"));
    EXPECT_EQ(blocks[2], Spell("'data' 03000000"));
    EXPECT_EQ(blocks[3].size(), 44u);
}

double SignalToNoiseDb(std::span<const float> wanted, std::span<const float> got, std::size_t step)
{
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 0; i < wanted.size(); i += step) {
        signal += double{wanted[i]} * wanted[i];
        noise += std::pow(double{wanted[i]} - got[i], 2);
    }
    return 10 * std::log10(signal / std::max(noise, 1e-20));
}

TEST(Ogg, RatesAndQuality)
{
    for (const std::uint8_t channels : {std::uint8_t{1}, std::uint8_t{2}}) {
        Collection collection;
        Waveform& wave = AddSound(collection, channels, 60000);
        std::size_t lastSize = 0;
        for (const float kbit : {48.0f, 128.0f, 224.0f}) {
            SCOPED_TRACE(kbit);
            const ByteList bytes = WrittenOgg(wave, kbit);
            EXPECT_EQ(bytes, WrittenOgg(wave, kbit)) << "the same bytes each time";
            EXPECT_GT(bytes.size(), lastSize);
            lastSize = bytes.size();
            Read read(bytes, ReadOgg);
            ASSERT_TRUE(read.isRead);
            EXPECT_EQ(read.wave->bits, 1);
            EXPECT_EQ(read.wave->SourceFormat(), DataFormat::Compressed);
            EXPECT_EQ(read.wave->saveFormat, BitrateToSaveFormat(kbit));
            EXPECT_EQ(read.wave->frames, 60000u);
            EXPECT_GT(SignalToNoiseDb(wave.LockSamples(), read.Samples(), channels), 20);
        }
    }
    EXPECT_EQ(NearestVorbisKbit(2, 44100, 320), 320);
    EXPECT_EQ(NearestVorbisKbit(1, 44100, 320), 240); // the highest for one channel
    EXPECT_EQ(NearestVorbisKbit(1, 400000, 128), 0);
}

TEST(Ogg, AwkwardSamplesAndLengths)
{
    for (const std::uint32_t frames : {1u, 63u, 2049u}) {
        Collection collection;
        Waveform& wave = AddSound(collection, 2, frames);
        wave.LockSamplesForWrite()[0] = std::nanf("");
        wave.LockSamplesForWrite()[1] = -1e30f;
        Read read(WrittenOgg(wave, 128), ReadOgg);
        ASSERT_TRUE(read.isRead);
        EXPECT_EQ(read.wave->frames, frames);
        const auto samples = read.Samples();
        ASSERT_EQ(samples.size(), frames * 2);
        EXPECT_TRUE(std::ranges::all_of(samples, [](float x) { return std::isfinite(x); }));
    }
    Collection collection;
    Waveform& empty = collection.Create<Waveform>(u"Empty");
    empty.frames = 0;
    EXPECT_EQ(Read(WrittenOgg(empty, 64), ReadOgg).wave->frames, 0u);
    EXPECT_EQ(Read(WrittenFlac(empty, DataFormat::Pcm16)).wave->frames, 0u);
}

TEST(Xiph, PiecesOfAStreamInALargerFile)
{
    Collection collection;
    Waveform& wave = AddSound(collection, 2, 20000);
    for (const bool isFlac : {true, false}) {
        const ByteList stream = isFlac ? WrittenFlac(wave, DataFormat::Pcm16) : WrittenOgg(wave, 128);
        const auto describe = [&](Waveform& part, FileObject& file, std::uint64_t offset,
                                  std::uint64_t bytes) {
            return isFlac ? DescribeFlac(part, file, offset, bytes)
                          : DescribeVorbis(part, file, offset, bytes);
        };
        const ByteList bank = Join({Spell("'OggSfLaC' 00"), stream, stream, Spell("'OggSfLaC'")});
        MemoryFile file(bank);
        Waveform& part = collection.Create<Waveform>(u"part");
        ASSERT_TRUE(describe(part, file, 9 + stream.size(), stream.size()));
        EXPECT_EQ(part.frames, 20000u) << "a chained second stream would count twice";
        ASSERT_TRUE(file.Seek(part.sourceOffset) && part.importProc->load(part, file));
        const std::span<const float> whole = part.LockSamples();

        const auto source = part.importProc->stream(part, std::make_unique<MemoryFile>(bank));
        ASSERT_NE(source, nullptr);
        for (const std::uint32_t first : {19999u, 0u, 4095u, 4096u, 9000u, 100u, 101u}) {
            std::vector<float> piece(std::min(500u, 20000u - first) * 2);
            ASSERT_TRUE(source->Read(first, piece));
            EXPECT_TRUE(std::ranges::equal(piece, whole.subspan(std::size_t{first} * 2, piece.size())))
                << first;
        }
        EXPECT_FALSE(describe(part, file, bank.size() + 5, 0));
        EXPECT_FALSE(describe(part, file, 9 + stream.size(), 20)) << "the header alone does not fit";
    }
}

LoopInfo LoopOf(std::initializer_list<std::string> comments)
{
    Collection collection;
    Waveform& wave = collection.Create<Waveform>(u"w");
    wave.frames = 1000;
    CoverPicker cover;
    ApplyComments(std::vector<std::string>(comments), cover, wave);
    return wave.loop;
}

TEST(Comments, LoopPoints)
{
    using enum LoopType;
    const struct {
        std::initializer_list<std::string> comments;
        LoopType type;
        double start, end;
    } cases[] = {
        {{"LOOPSTART=10", "LOOPLENGTH=90"}, Forward, 10, 100},
        {{"loop_start=10", "Loop-End=90"}, Forward, 10, 90},
        {{"LOOP_BEGIN=10", "LOOP_END=90", "LOOP_BIDI=1"}, Alternating, 10, 90},
        {{"LOOPSTART=10"}, Forward, 10, 1000},
        {{"LOOPEND=10"}, Forward, 0, 10},
        {{"LOOPSTART=10", "LOOPLENGTH=0"}, Off, 0, 4294967296.0},
        {{"LOOPSTART=ten", "LOOPLENGTH=9"}, Off, 0, 4294967296.0},
        {{"LOOPSTART=-1", "LOOPLENGTH=99999999999"}, Off, 0, 4294967296.0},
        {{"LOOPLENGTH=9"}, Off, 0, 4294967296.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(*c.comments.begin());
        const LoopInfo loop = LoopOf(c.comments);
        EXPECT_EQ(loop.type, c.type);
        EXPECT_EQ(loop.start, c.start);
        EXPECT_EQ(loop.end, c.end);
    }
}

TEST(Comments, TextsAndPictures)
{
    // RFC 4648, section 10
    for (const auto& [plain, coded] :
         {std::pair{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}}) {
        const std::string_view text(plain);
        EXPECT_EQ(EncodeBase64(std::as_bytes(std::span(text))), coded);
        ByteList bytes;
        EXPECT_TRUE(DecodeBase64(coded, bytes));
        EXPECT_TRUE(std::ranges::equal(bytes, std::as_bytes(std::span(text))));
    }
    ByteList bytes;
    EXPECT_FALSE(DecodeBase64("Zm9?", bytes));

    ByteList back = MakePictureBlock(kGif);
    back[3] = std::byte{4}; // back cover
    ByteList address = MakePictureBlock(kPng);
    address.resize(address.size() - 1); // no longer whole
    CoverPicker cover;
    cover.Offer(address);
    EXPECT_TRUE(cover.Image().empty());
    cover.Offer(back);
    EXPECT_EQ(cover.Image(), kGif);

    Collection collection;
    Waveform& wave = collection.Create<Waveform>(u"w");
    const std::vector<std::string> comments = {"description=late", "Comment=early", "no comment",
                                               "artist=A",         "ARTIST=B",      MakePictureComment(kPng)};
    ApplyComments(comments, cover, wave);
    EXPECT_EQ(wave.GetText(kTextComments), u"early");
    EXPECT_EQ(wave.GetText(kTextArtist), u"A");
    EXPECT_TRUE(std::ranges::equal(wave.GetImage(), kPng)) << "the front cover goes before others";
}

TEST(Xiph, Detection)
{
    Collection collection;
    const ByteList ogg = WrittenOgg(AddSound(collection, 1, 500), 64);
    EXPECT_EQ(DetectFlac(kFlac, 0, kFlac.size()), 6);
    EXPECT_EQ(DetectFlac(Spell("'fLaC' 04"), 0, 5), 4);
    EXPECT_EQ(DetectFlac(ogg, 0, ogg.size()), 0);
    EXPECT_EQ(DetectOgg(ogg, 0, ogg.size()), 6);
    EXPECT_EQ(DetectOgg(std::span(ogg).first(28), 0, 28), 4);
    EXPECT_EQ(DetectOgg(kFlac, 0, kFlac.size()), 0);
    ByteList opus = ogg; // the first packet of another codec, then a page that goes on
    opus[28] = std::byte{'O'};
    EXPECT_EQ(DetectOgg(opus, 0, opus.size()), 0);
    // Another stream begins first: 27 + 1 bytes of page and a packet of one byte.
    const ByteList first = Spell("'OggS' 00 02 0000000000000000 05000000 00000000 00000000 01 01 58");
    EXPECT_EQ(DetectOgg(Join({first, ogg}), 0, 1000), 6);
}

TEST(Xiph, Refusals)
{
    const auto fails = [](std::span<const std::byte> bytes, ReadFn read, std::u16string_view words) {
        ClearLastError();
        const Read result(bytes, read);
        EXPECT_FALSE(result.isRead);
        EXPECT_EQ(result.items.CountOf(ItemKind::Waveform), 0u);
        EXPECT_EQ(LastError(), words);
    };
    ByteList wide = kFlac;
    wide[kStreamInfoAt + 12] = std::byte{0x44}; // three channels
    fails(wide, ReadFlac, u"Files of more than two channels are not supported");
    ByteList unknown = kFlac;
    unknown[kStreamInfoAt + 17] = std::byte{0}; // no length, and its only packet broken
    unknown[kAudioAt + 12] ^= std::byte{1};
    fails(unknown, ReadFlac, u"No samples could be decoded");
    fails(Spell("'fLaC' 84000000"), ReadFlac, u"Not a FLAC file");
    fails(Spell("'RIFF'"), ReadFlac, u"Not a FLAC file");
    fails(Spell("'OggS' 00"), ReadOgg, u"Could not open Ogg file");
    fails(kFlac, ReadOgg, u"Could not open Ogg file");

    ByteList silent = kFlac;
    silent[kAudioAt + 12] ^= std::byte{1}; // a sample of the only packet
    Collection collection;
    ByteList damaged = WrittenFlac(AddSound(collection, 2, 20000), DataFormat::Pcm16);
    damaged[damaged.size() / 2] ^= std::byte{1};
    for (const auto& [bytes, words] :
         {std::pair(silent, u"No samples could be decoded"), {damaged, u"Corrupted FLAC data"}}) {
        Read read(bytes);
        ASSERT_TRUE(read.isRead);
        EXPECT_TRUE(read.Samples().empty());
        EXPECT_EQ(LastError(), words);
    }

    Waveform& wave = AddSound(collection, 1, 100);
    FormatChoice choice{.caps = FormatBit(DataFormat::Compressed) | kCapsMono};
    MemoryFile file;
    wave.rateHz = 400000;
    EXPECT_FALSE(WriteOgg(wave, file, choice));
    EXPECT_EQ(LastError(), u"Could not initialize Ogg encoder with the selected format");
    EXPECT_FALSE(WriteOgg(collection.Create<Instrument>(u"I"), file, choice));
    EXPECT_FALSE(WriteFlac(collection.Create<Instrument>(u"I"), file, choice));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
}

TEST(Xiph, DamagedFilesFailCleanly)
{
    Collection collection;
    const ByteList ogg = WrittenOgg(AddSound(collection, 1, 300), 32);
    const auto check = [](std::span<const std::byte> bytes, ReadFn read) {
        Read result(bytes, read);
        if (!result.isRead)
            return;
        static_cast<void>(result.Samples());
        EXPECT_TRUE(IsConsistent(result.items));
    };
    for (std::size_t n = 0; n < kFlac.size(); ++n)
        check(std::span(kFlac).first(n), ReadFlac);
    for (std::size_t at = 0; at < kFlac.size(); ++at) {
        for (const int fill : {0x00, 0x7F, 0xFF}) {
            ByteList bytes = kFlac;
            bytes[at] = static_cast<std::byte>(fill);
            check(bytes, ReadFlac);
        }
    }
    // The setup header is long, and checksums catch most else: one cut in 7, and the pages' heads.
    for (std::size_t n = 0; n < ogg.size(); n += 7)
        check(std::span(ogg).first(n), ReadOgg);
    for (std::size_t at = 0; at < 58; ++at) {
        ByteList bytes = ogg;
        bytes[at] = std::byte{0xFF};
        check(bytes, ReadOgg);
    }
}

} // namespace
} // namespace vimbo
