#include "model/track_events.h"

#include "model/model_builders.h"
#include "model/plain_walk.h"

#include <numeric>
#include <random>

namespace vimbo {
namespace {

using Bytes = std::vector<unsigned char>;

/// What one event of a walk held, with its payload copied.
struct Seen {
    std::uint64_t time;
    std::uint32_t delta;
    int status, channel, metaType, data1, data2;
    Bytes payload;
    friend bool operator==(const Seen&, const Seen&) = default;
    friend void PrintTo(const Seen& e, std::ostream* out)
    {
        *out << "time " << e.time << " delta " << e.delta << std::hex << " status " << e.status << " channel "
             << e.channel << " type " << e.metaType << " data " << e.data1 << ' ' << e.data2 << " payload "
             << e.payload.size();
    }
};

/// Every event of a walk; payloads must lie in the block.
template <class AnyWalk>
std::vector<Seen> Collect(std::span<const std::byte> block, WalkEnd end)
{
    std::vector<Seen> events;
    AnyWalk walk(block, end);
    TrackEvent event;
    while (walk.Next(event)) {
        Seen seen{event.time,     event.delta, event.status, event.channel,
                  event.metaType, event.data1, event.data2,  {}};
        for (const std::byte& byte : event.payload) {
            EXPECT_TRUE(&byte >= block.data() && &byte < block.data() + block.size());
            seen.payload.push_back(std::to_integer<unsigned char>(byte));
        }
        events.push_back(seen);
    }
    return events;
}

/// A copy that ends where the bytes end, so that sanitizers see a read behind it.
template <class AnyWalk = EventWalk>
std::vector<Seen> Walk(const Bytes& bytes, WalkEnd end = WalkEnd::Block)
{
    const auto copy = std::make_unique<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return Collect<AnyWalk>(std::as_bytes(std::span(copy.get(), bytes.size())), end);
}

TEST(EventWalk, ReadsEveryFormOfEvent)
{
    const struct {
        const char* name;
        Bytes bytes;
        std::vector<Seen> expected;
    } kCases[] = {
        {"empty", {}, {}},
        {"channel events, all kinds",
         {0x00, 0x81, 60,  64, 0x01, 0x92, 61,   127,  0x02, 0xA3, 62,   1,    0x03,
          0xB4, 7,    100, 4,  0xC5, 12,   0x05, 0xDF, 99,   0x06, 0xE0, 0x7F, 0x40},
         {{0, 0, 0x80, 1, 0, 60, 64, {}},
          {1, 1, 0x90, 2, 0, 61, 127, {}},
          {3, 2, 0xA0, 3, 0, 62, 1, {}},
          {6, 3, 0xB0, 4, 0, 7, 100, {}},
          {10, 4, 0xC0, 5, 0, 12, 0, {}},
          {15, 5, 0xD0, 15, 0, 99, 0, {}},
          {21, 6, 0xE0, 0, 0, 127, 64, {}}}},
        {"deltas of one to four bytes, and a fifth byte that is a status",
         {0x7F, 0x90, 1,    2,    0x81, 0x00, 3,    4,    0xFF, 0xFF, 0x7F, 5, 6,
          0xFF, 0xFF, 0xFF, 0x7F, 7,    8,    0x80, 0x80, 0x80, 0x85, 0x91, 9, 10},
         {{0x7F, 0x7F, 0x90, 0, 0, 1, 2, {}},
          {0xFF, 0x80, 0x90, 0, 0, 3, 4, {}},
          {0x2000FE, 0x1FFFFF, 0x90, 0, 0, 5, 6, {}},
          {0x102000FD, 0xFFFFFFF, 0x90, 0, 0, 7, 8, {}},
          {0x10200102, 5, 0x90, 1, 0, 9, 10, {}}}},
        {"running status of channel, meta, sysex and common events",
         {0,    0xC3, 1, 0, 2,    0, 0xFF, 3, 1, 'a', 7, 5, 2, 'b',  'c', 0, 0xF0, 1,
          0xF7, 0,    2, 8, 0xF7, 0, 0xF2, 1, 2, 0,   3, 4, 0, 0xF3, 5,   0, 6},
         {{0, 0, 0xC0, 3, 0, 1, 0, {}},
          {0, 0, 0xC0, 3, 0, 2, 0, {}},
          {0, 0, 0xFF, 0, 3, 0, 0, {'a'}},
          {7, 7, 0xFF, 0, 5, 0, 0, {'b', 'c'}},
          {7, 0, 0xF0, 0, 0, 0, 0, {0xF7}},
          {7, 0, 0xF0, 0, 0, 0, 0, {8, 0xF7}},
          {7, 0, 0xF2, 0, 0, 1, 2, {}},
          {7, 0, 0xF2, 0, 0, 3, 4, {}},
          {7, 0, 0xF3, 0, 0, 5, 0, {}},
          {7, 0, 0xF3, 0, 0, 6, 0, {}}}},
        {"system events without data, also by running status: the byte after the delta stays",
         {0, 0xF8, 0, 0x40, 0xFE, 0, 0xF1, 9, 0, 0xF7, 2, 0xF0, 1},
         {{0, 0, 0xF8, 0, 0, 0, 0, {}},
          {0, 0, 0xF8, 0, 0, 0, 0, {}},
          {0x40, 0x40, 0xFE, 0, 0, 0, 0, {}},
          {0x40, 0, 0xF1, 0, 0, 9, 0, {}},
          {0x40, 0, 0xF7, 0, 0, 0, 0, {0xF0, 1}}}},
        {"data bytes keep seven bits; meta types keep eight",
         {0, 0x90, 0xBC, 0xFF, 0, 0xFF, 0xE1, 0},
         {{0, 0, 0x90, 0, 0, 0x3C, 0x7F, {}}, {0, 0, 0xFF, 0, 0xE1, 0, 0, {}}}},
        {"no status at all", {3, 60, 64, 0, 61}, {{3, 3, 0, 0, 0, 60, 64, {}}, {3, 0, 0, 0, 0, 61, 0, {}}}},
        {"a length beyond the block",
         {0, 0xFF, 1, 0xFF, 0xFF, 0xFF, 0x7F, 'x', 'y'},
         {{0, 0, 0xFF, 0, 1, 0, 0, {'x', 'y'}}}},
        {"a length of four bytes",
         {0, 0xF0, 0x80, 0x80, 0x80, 0x82, 1, 2, 0, 0x80, 3, 4},
         {{0, 0, 0xF0, 0, 0, 0, 0, {1, 2}}, {0, 0, 0x80, 0, 0, 3, 4, {}}}},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(Walk(c.bytes), c.expected) << c.name;
}

TEST(EventWalk, StopsAtTheEndOfTrackIfAsked)
{
    const Bytes block = {0, 0xFF, 0x2F, 0, 9, 0xFF, 0x2F, 0, 1, 0x90, 1, 1};
    EXPECT_EQ(Walk(block).size(), 3u);
    ASSERT_EQ(Walk(block, WalkEnd::EndOfTrack).size(), 1u);
    EXPECT_EQ(Walk(block, WalkEnd::EndOfTrack)[0].metaType, kMetaEndOfTrack);
}

/// Events of all forms, and the offset behind the delta time and behind the end of each.
const Bytes kMixed = {0x81, 0x00, 0x90, 60, 64, 5,    61, 65,   0,    0xC1, 7,    0,
                      0xFF, 0x58, 4,    4,  2,  24,   8,  0,    0xF2, 1,    2,    0x80,
                      0,    0xF0, 3,    1,  2,  0xF7, 0,  0xF8, 0,    0xFF, 0x2F, 0};
constexpr std::size_t kBodyAt[] = {2, 6, 9, 12, 20, 25, 31, 33};
constexpr std::size_t kEndAt[] = {5, 8, 11, 19, 23, 30, 32, 36};

TEST(EventWalk, CutBlocksKeepWhatThereIs)
{
    const std::vector<Seen> whole = Walk(kMixed);
    ASSERT_EQ(whole.size(), std::size(kEndAt));
    for (std::size_t size = 0; size <= kMixed.size(); ++size) {
        const Bytes cut(kMixed.begin(), kMixed.begin() + static_cast<std::ptrdiff_t>(size));
        const std::vector<Seen> events = Walk(cut);
        // An event counts from the first byte behind its delta time on.
        const auto begun = std::count_if(std::begin(kBodyAt), std::end(kBodyAt),
                                         [size](std::size_t at) { return at < size; });
        ASSERT_EQ(events.size(), static_cast<std::size_t>(begun)) << size;
        for (std::size_t i = 0; i < events.size(); ++i) {
            if (size >= kEndAt[i]) {
                EXPECT_EQ(events[i], whole[i]) << size;
                continue;
            }
            EXPECT_EQ(events[i].time, whole[i].time);
            EXPECT_EQ(events[i].status, whole[i].status);
            EXPECT_TRUE(events[i].data1 == whole[i].data1 || events[i].data1 == 0);
            EXPECT_EQ(events[i].data2, 0);
            EXPECT_TRUE(
                std::equal(events[i].payload.begin(), events[i].payload.end(), whole[i].payload.begin()));
        }
    }
    EXPECT_EQ(Walk({0, 0x90, 60}), (std::vector<Seen>{{0, 0, 0x90, 0, 0, 60, 0, {}}}));
    EXPECT_EQ(Walk({0, 0xFF, 1, 5, 'a', 'b'}), (std::vector<Seen>{{0, 0, 0xFF, 0, 1, 0, 0, {'a', 'b'}}}));
    EXPECT_EQ(Walk({0, 0xFF}), (std::vector<Seen>{{0, 0, 0xFF, 0, 0, 0, 0, {}}}));
}

TEST(EventWalk, LongestEventCutWithMoreBytesBehind)
{
    const Bytes block = {0xFF, 0xFF, 0xFF, 0x7F, 0xFF, 1, 0x80, 0x80, 0x80, 0x02, 'x', 'y', 0, 0, 0, 0};
    for (std::size_t size = 5; size <= 12; ++size) {
        EventWalk walk(std::as_bytes(std::span(block).first(size)));
        TrackEvent event;
        ASSERT_TRUE(walk.Next(event));
        EXPECT_EQ(event.payload.size(), size < 10 ? 0 : size - 10) << size;
        EXPECT_FALSE(walk.Next(event)) << size;
        Walk(Bytes(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size)));
    }
}

// Far from the end of the block the walk takes another way than near it.
TEST(EventWalk, BytesBehindAnEventDoNotChangeIt)
{
    const std::vector<Seen> whole = Walk(kMixed);
    for (const unsigned char fill : Bytes{0x00, 0x7F, 0x80, 0xFF}) {
        Bytes longer = kMixed;
        longer.resize(kMixed.size() + 40, fill);
        std::vector<Seen> events = Walk(longer);
        ASSERT_GE(events.size(), whole.size());
        events.resize(whole.size());
        EXPECT_EQ(events, whole) << int{fill};
    }
}

/// Bytes of all classes that a walk tells apart, data bytes most often. Which classes occur, and how often,
/// differs from block to block, so that some hold long stretches of plain channel events.
Bytes RandomBlock(std::mt19937& random)
{
    constexpr unsigned char kFirst[] = {0x80, 0xC0, 0xD0, 0xF0, 0xF1, 0xF2, 0xF3, 0xF7, 0xF8, 0xFF, 0x2F};
    const auto below = [&random](std::size_t limit) { return static_cast<unsigned>(random() % limit); };
    const unsigned highOutOf100 = below(70), kinds = 1 + below(std::size(kFirst));
    const unsigned spread = below(2) == 0 ? 16 : 1;
    Bytes block(below(200));
    for (unsigned char& byte : block) {
        const unsigned high = kFirst[below(kinds)] + below(spread);
        const unsigned low = below(below(4) == 0 ? 128 : 5);
        byte = static_cast<unsigned char>(below(100) < highOutOf100 ? high : low);
    }
    return block;
}

TEST(EventWalk, AgreesWithThePlainWalkOnAnyBytes)
{
    std::mt19937 random(5);
    std::size_t total = 0;
    for (int i = 0; i < 20'000; ++i) {
        const Bytes block = RandomBlock(random);
        for (const WalkEnd end : {WalkEnd::Block, WalkEnd::EndOfTrack}) {
            const std::vector<Seen> events = Walk(block, end);
            ASSERT_EQ(events, Walk<PlainWalk>(block, end)) << "block " << i;
            total += events.size();
        }
    }
    EXPECT_GT(total, 500'000u);
}

TEST(EventWalk, TimeDoesNotWrapAtThirtyTwoBits)
{
    Bytes block;
    for (int i = 0; i < 20; ++i)
        block.insert(block.end(), {0xFF, 0xFF, 0xFF, 0x7F, 0xC0, 1});
    EXPECT_EQ(Walk(block).back().time, 20u * 0xFFFFFFFull);
}

TEST(TrackEvent, OnlyNoteOnsWithVelocityStartNotes)
{
    TrackEvent event;
    event.status = kNoteOn;
    EXPECT_FALSE(event.StartsNote());
    event.data2 = 1;
    EXPECT_TRUE(event.StartsNote());
    event.status = kNoteOff;
    EXPECT_FALSE(event.StartsNote());
}

TEST(Track, CountsAndReplacesItsEvents)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    Track& track = AddTrack(song, {0, 0x90, 60, 64, 10, 60, 0, 0, 0xFF, 0x2F, 0, 5});
    EXPECT_EQ(track.EventCount(), 3u); // a delta time with nothing behind it is no event
    track.SetData(track.Data().first(7));
    EXPECT_EQ(track.EventCount(), 2u);
    EXPECT_EQ(track.Data().size(), 7u);
    track.SetData({});
    EXPECT_EQ(track.EventCount(), 0u);
    EXPECT_TRUE(track.Data().empty());
}

TEST(Song, CopiesAndDeletesTracks)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    for (unsigned char key = 0; key < 3; ++key)
        AddTrack(song, {0, 0x90, key, 64}).port = key;
    const Song& copy = items.Clone(song);
    const ItemHandle middle = song.Children()[1];
    items.Destroy(middle);
    ASSERT_EQ(song.Children().size(), 2u);
    EXPECT_EQ(song.TrackAt(0)->port, 0);
    EXPECT_EQ(song.TrackAt(1)->port, 2);
    EXPECT_EQ(song.TrackAt(2), nullptr);
    ASSERT_EQ(copy.Children().size(), 3u);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(copy.TrackAt(i)->port, i);
        EXPECT_EQ(std::to_integer<unsigned>(copy.TrackAt(i)->Data()[2]), i);
        EXPECT_EQ(copy.TrackAt(i)->Parent(), copy.Handle());
    }
    items.Destroy(song.Handle());
    EXPECT_EQ(items.CountOf(ItemKind::Track), 3u);
    ExpectConsistent(items);
}

TEST(Song, ValidateSuppliesDivisionAndName)
{
    Collection items;
    items.SetName(u"Album");
    auto& song = static_cast<Song&>(*items.CreateItem(ItemHandle(ItemKind::Song, 7)));
    EXPECT_EQ(song.format, 1);
    EXPECT_EQ(song.division, 24);
    song.division = 0;
    song.Validate();
    EXPECT_EQ(song.division, 24);
    EXPECT_EQ(song.GetName(), u"Album");
    song.division = 0xE728;
    song.Validate();
    EXPECT_EQ(song.division, 0xE728);
}

} // namespace
} // namespace vimbo
