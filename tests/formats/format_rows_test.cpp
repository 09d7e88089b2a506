// The rows as data: their order, the rows that are known in every field, and rules that hold across all of
// them.
#include "formats/format_table.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <string>
#include <tuple>
#include <utility>

namespace vimbo {
namespace {

std::string Label(std::size_t index)
{
    const FormatRow& row = FormatRows()[index];
    std::string text = "row " + std::to_string(index) + " ";
    for (const char16_t unit : row.extension)
        text += static_cast<char>(unit);
    for (const char16_t unit : row.description)
        text += static_cast<char>(unit);
    return text;
}

constexpr std::uint32_t Formats(std::initializer_list<DataFormat> formats) noexcept
{
    std::uint32_t mask = 0;
    for (const DataFormat format : formats)
        mask |= FormatBit(format);
    return mask;
}

bool StoresTextOrEvents(const FormatRow& row)
{
    return (row.caps & Formats({DataFormat::AsciiText, DataFormat::Midi})) != 0;
}

using enum DataFormat;

// Users' settings hold row numbers, so neither a row's place nor its names may ever change.
TEST(FormatRows, OrderAndNamesArePinned)
{
    std::uint64_t hash = 0xcbf29ce484222325; // FNV-1a of "ext: description; " over all rows
    const auto add = [&hash](std::u16string_view text) {
        for (const char16_t unit : text)
            hash = (hash ^ unit) * 0x100000001b3;
    };
    for (const FormatRow& row : FormatRows()) {
        add(row.extension);
        add(u": ");
        add(row.description);
        add(u"; ");
    }
    EXPECT_EQ(hash, 0x75ff98f567159c9au);
}

TEST(FormatRows, RowsKnownInEveryField)
{
    struct Known {
        std::size_t index;
        std::u16string_view extension, description;
        std::uint8_t kinds;
        std::uint32_t caps, variant;
    };
    const Known kKnown[] = {
        {0, u"*", u"Unrecognized", 0x01, 0, 0},
        {15, u"aif", u"Audio interchange", 0x01, 0x300035, 0},
        {64, u"dls", u"DownLoadable Sounds level 2", 0x91, 0x2100005, 2},
        {65, u"dls", u"DownLoadable Sounds level 2+", 0x91, 0x2122375, 3},
        {109, u"flac", u"Free lossless audio codec (default)", 0x01, 0x30001F, 0},
        {162, u"gig", u"GigaStudio v1 - Normal", 0x91, 0x300005, 0},
        {232, u"mid", u"Standard MIDI", 0x60, 0x80000, 0},
        {244, u"mp3", u"MPEG layer III - CBR", 0x01, 0x320000, 0},
        {279, u"ogg", u"Ogg Vorbis", 0x01, 0x320000, 0},
        {288, u"p", u"AKAI S1000 program", 0x10, 0x2100004, 1},
        {298, u"pat", u"Gravis Ultrasound patch", 0x11, 0x100005, 0},
        {381, u"sf2", u"SoundFont v2 bank", 0x91, 0x2100014, 0},
        {437, u"txt", u"Ascii text parameter descriptions", 0xF3, 0x40000, 0},
        {480, u"wav", u"Microsoft wave", 0x01, 0x327F75, 0},
    };
    for (const Known& known : kKnown) {
        SCOPED_TRACE(Label(known.index));
        const FormatRow& row = FormatRows()[known.index];
        EXPECT_EQ(row.extension, known.extension);
        EXPECT_EQ(row.description, known.description);
        EXPECT_EQ(row.kinds, known.kinds);
        EXPECT_EQ(row.caps, known.caps);
        EXPECT_EQ(row.variant, known.variant);
    }
}

TEST(FormatRows, WritersAcceptWhatTheirFormatsHold)
{
    struct Spot {
        std::size_t index;
        std::uint32_t formats, channels;
    };
    constexpr std::uint32_t kBoth = kCapsMono | kCapsStereo;
    constexpr std::uint32_t kPairs = kCapsMono | kCapsDualMono;
    const Spot kSpots[] = {
        {16, Formats({Pcm8, Pcm16, Pcm24, Pcm32}), kBoth},             // aiff
        {9, Formats({Compressed}), kBoth},                             // aac
        {193, Formats({Pcm8, Pcm16}), kBoth},                          // iti
        {194, Formats({Pcm8, Pcm16}), kBoth},                          // its
        {362, Formats({Pcm8, Pcm16}), kBoth},                          // s3i
        {526, Formats({Delta8, Delta16}), kCapsMono},                  // xi stores differences
        {438, Formats({Pcm8, Pcm16, Pcm24, Float32}), kBoth},          // numbers as text
        {375, Formats({Pcm8, Pcm12, Pcm16, Pcm20, Pcm24}), kCapsMono}, // sample dump mixes stereo down
        {172, Formats({Gsm}), kCapsMono},                              // gsm with header
        {140, Formats({Adpcm3}), kCapsMono},                           // g723-3
        {144, Formats({Adpcm5}), kCapsMono},                           // g723-5
        {63, Formats({Pcm8, Pcm16}), kPairs},                          // dls level 1
        {383, Formats({Pcm16, Pcm24, Compressed}), kPairs},            // sf3
        {293, Formats({Pcm12}), kPairs},                               // S900 has 12-bit memory
        {344, Formats({Midi}), 0},                                     // rmi
        {181, Formats({Midi}), 0},                                     // imy
    };
    for (const Spot& spot : kSpots) {
        SCOPED_TRACE(Label(spot.index));
        EXPECT_EQ(FormatRows()[spot.index].caps, spot.formats | spot.channels);
    }
}

TEST(FormatRows, ReadingRowsOfAFamilyHaveNoCapabilities)
{
    for (const std::size_t index : {8u, 14u, 40u, 62u, 108u, 161u, 179u, 238u, 243u, 338u, 336u, 343u, 377u,
                                    384u, 388u, 399u, 481u, 527u, 531u})
        EXPECT_EQ(FormatRows()[index].caps, 0u) << Label(index);
}

TEST(FormatRows, KindsOfTheFamilies)
{
    const auto expect = [](std::initializer_list<std::size_t> indices, std::uint8_t kinds) {
        for (const std::size_t index : indices)
            EXPECT_EQ(FormatRows()[index].kinds, kinds) << Label(index);
    };
    expect({238}, kKindSong | kKindTrack | kKindInstrument | kKindWave |
                      kKindCollection); // the one module with a song
    expect({192, 527, 6}, kKindInstrument | kKindWave | kKindCollection);
    expect({363}, kKindWave | kKindCollection); // no instruments in an s3m
    expect({344, 439, 180}, kKindSong | kKindTrack);
    expect({194, 362, 375, 482, 422}, kKindWave);
    expect({526, 193}, kKindInstrument | kKindWave);
    expect({531}, 0); // an archive is passed on and brings no items
}

TEST(FormatRows, VariantsOfTheFamilies)
{
    const auto expect = [](std::initializer_list<std::size_t> indices, std::uint32_t first) {
        for (const std::size_t index : indices)
            EXPECT_EQ(FormatRows()[index].variant, first++) << Label(index);
    };
    expect({63, 64, 65, 66}, 1);     // DLS level word
    expect({162, 163, 164, 165}, 0); // GigaStudio level word
    expect({389, 390, 391, 392}, 0); // SFZ generation and place of the waves
    expect({344, 345, 346}, 0);      // DLS level inside RIFF-MIDI
    expect({383}, 3);                // compressed SoundFont
    expect({413}, 5);                // Creamware mode of the Akai writer
}

TEST(FormatRows, RulesThatHoldOnAllRows)
{
    constexpr std::uint8_t kAllKinds =
        kKindWave | kKindSynth | kKindInstrument | kKindTrack | kKindSong | kKindCollection;
    for (std::size_t index = 0; index < FormatRows().size(); ++index) {
        SCOPED_TRACE(Label(index));
        const FormatRow& row = FormatRows()[index];
        for (const char16_t unit : row.extension)
            EXPECT_TRUE(unit > u' ' && unit < 0x7F && unit != u'.' && !(unit >= u'A' && unit <= u'Z'));
        EXPECT_EQ(row.kinds & ~kAllKinds, 0);
        EXPECT_EQ(row.caps & ~(kDataFormatMask | kCapsChannels), 0u);
        // Tracks live in songs only.
        EXPECT_EQ((row.kinds & kKindTrack) != 0, (row.kinds & kKindSong) != 0);
        EXPECT_TRUE(row.read == nullptr || row.detect != nullptr);
        EXPECT_TRUE(row.caps == 0 || (row.caps & kDataFormatMask) != 0);
        if (row.caps != 0 && !StoresTextOrEvents(row)) {
            EXPECT_NE(row.caps & kCapsChannels, 0u) << "no channel form to write";
        }
        if ((row.caps & FormatBit(Midi)) != 0) {
            EXPECT_NE(row.kinds & kKindSong, 0);
        } else if (row.caps != 0 && (row.caps & FormatBit(AsciiText)) == 0) {
            EXPECT_EQ(row.kinds & kKindSong, 0) << "a writer of samples cannot hold a song";
        }
        // Pairs of mono waves exist because the format has no stereo waves; the two exclude each other.
        if ((row.caps & kCapsDualMono) != 0) {
            EXPECT_EQ(row.caps & (kCapsMono | kCapsStereo), kCapsMono);
        }
    }
}

TEST(FormatRows, FunctionsAndCapabilitiesAgree)
{
    for (std::size_t index = 0; index < FormatRows().size(); ++index) {
        SCOPED_TRACE(Label(index));
        const FormatRow& row = FormatRows()[index];
        if (row.write != nullptr) {
            EXPECT_NE(row.caps, 0u) << "a writer without capabilities";
        }
        if (row.subFormats != nullptr) {
            EXPECT_NE(row.caps & FormatBit(Compressed), 0u) << "settings without the compressed format";
        }
    }
}

// Rows that differ only in their extension share one driver and must offer the same.
TEST(FormatRows, AliasesAreEqual)
{
    constexpr std::pair<std::size_t, std::size_t> kAliases[] = {
        {14, 17},   {15, 16},   {21, 22},   {40, 481},  {42, 43},   {120, 123},
        {121, 124}, {122, 125}, {288, 290}, {289, 291}, {336, 365}, {352, 354},
        {353, 355}, {351, 356}, {446, 448}, {371, 372}, {223, 247},
    };
    for (const auto& [a, b] : kAliases) {
        const FormatRow& first = FormatRows()[a];
        const FormatRow& second = FormatRows()[b];
        EXPECT_EQ(std::tie(first.kinds, first.caps, first.variant),
                  std::tie(second.kinds, second.caps, second.variant))
            << Label(a) << " / " << Label(b);
    }
}

// Two writing rows of one extension must differ for their driver: in the variant, the formats or the kinds.
TEST(FormatRows, SiblingWritersCanBeToldApart)
{
    std::set<std::tuple<std::u16string_view, std::uint8_t, std::uint32_t, std::uint32_t>> seen;
    for (std::size_t index = 0; index < FormatRows().size(); ++index) {
        const FormatRow& row = FormatRows()[index];
        if (row.caps != 0) {
            EXPECT_TRUE(seen.emplace(row.extension, row.kinds, row.caps, row.variant).second) << Label(index);
        }
    }
}

// The variant of a raw row is the source word that its reader gives to the waveform.
TEST(FormatRows, RawRowsCarryTheirSourceWord)
{
    struct Raw {
        std::size_t index;
        DataFormat format;
        std::uint32_t flags;
        bool writes;
    };
    const Raw kRaw[] = {
        {21, ALaw, 0, true},
        {103, Float32, 0, true},
        {105, Float64, 0, true},
        {336, Pcm8, 0, false},
        {366, Pcm8, 0, true},
        {377, Pcm32, 0, false},
        {398, Pcm8, kSourceUnsigned, false},
        {422, Pcm16, 0, true},
        {423, Pcm16, kSourceBigEndian, true},
        {444, Pcm8, kSourceUnsigned, true},
        {445, Pcm32, kSourceUnsigned, false},
        {446, MuLaw, 0, true},
        {453, Pcm16, kSourceUnsigned, true},
        {454, Pcm16, kSourceUnsigned | kSourceBigEndian, true},
    };
    for (const Raw& raw : kRaw) {
        SCOPED_TRACE(Label(raw.index));
        const FormatRow& row = FormatRows()[raw.index];
        EXPECT_EQ(row.variant & 0x1FFFFFF, FormatBit(raw.format) | raw.flags);
        EXPECT_EQ(row.caps & kDataFormatMask, raw.writes ? FormatBit(raw.format) : 0u);
        EXPECT_EQ(row.kinds, kKindWave);
    }
}

} // namespace
} // namespace vimbo
