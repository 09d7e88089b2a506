#include "model/track_builder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vimbo {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes Plain(std::span<const std::byte> bytes)
{
    Bytes plain(bytes.size());
    std::transform(bytes.begin(), bytes.end(), plain.begin(), std::to_integer<unsigned char>);
    return plain;
}

std::span<const std::byte> Payload(const Bytes& bytes)
{
    return std::as_bytes(std::span(bytes));
}

TEST(VariableLength, TakesAsManyBytesAsItNeeds)
{
    const struct {
        std::uint32_t value;
        Bytes bytes;
    } kCases[] = {
        {0, {0}},
        {0x7F, {0x7F}},
        {0x80, {0x81, 0x00}},
        {0x3FFF, {0xFF, 0x7F}},
        {0x4000, {0x81, 0x80, 0x00}},
        {0x1FFFFF, {0xFF, 0xFF, 0x7F}},
        {0x200000, {0x81, 0x80, 0x80, 0x00}},
        {0xFFFFFFF, {0xFF, 0xFF, 0xFF, 0x7F}},
        {0x10000001, {0x80, 0x80, 0x80, 0x01}}, // bits above 28 are lost
    };
    for (const auto& c : kCases) {
        const VariableLength number(c.value);
        EXPECT_EQ(Plain(std::span(number.bytes).first(number.size)), c.bytes) << c.value;
    }
}

TEST(TrackBuilder, WritesEventsByteForByte)
{
    TrackBuilder builder;
    EXPECT_TRUE(builder.IsEmpty());
    builder.PutMeta(kMetaTempo, Payload({7, 0xA1, 0x20}));
    builder.SetChannel(0x13); // four bits count
    builder.PutChannel(kNoteOn, 60, 0xC0);
    builder.SetTime(200);
    builder.PutChannel(0x9F, 60); // the lower half is the builder's
    builder.PutChannel(kProgramChange, 5, 99);
    builder.PutChannel(kProgramChange, 6);
    builder.PutCommon(0xF1, 1, 2);
    builder.PutChannel(kProgramChange, 7);
    builder.PutCommon(0xF2, 1, 2);
    builder.PutCommon(0xF3, 3);
    builder.PutSysex(Payload({0x7E, 0xF7}));
    builder.PutSysex({}, true);
    builder.SetTime(100); // back: counts as 200
    builder.PutChannel(kPitchBend, 0, 64);
    builder.SetChannel(0);
    builder.PutChannel(kPitchBend, 1, 65);
    for (const unsigned char bad : Bytes{0x00, 0x7F, 0xF0, 0xFF})
        builder.PutChannel(bad, 1, 1);
    for (const unsigned char bad : Bytes{0xF0, 0xF4, 0xFF, 0x90})
        builder.PutCommon(bad, 1, 1);
    builder.PutEndOfTrack();
    const Bytes expected = {0, 0xFF, 81, 3,  7,    0xA1, 0x20, 0,    0x93, 60,   0x40, 0x81, 0x48, 60, 0, //
                            0, 0xC3, 5,  0,  6,    0,    0xF1, 1,    0,    0xC3, 7,    0,    0xF2, 1,  2, //
                            0, 0xF3, 3,  0,  0xF0, 2,    0x7E, 0xF7, 0,    0xF7, 0,    0,    0xE3, 0,  64,
                            0, 0xE0, 1,  65, 0,    0xFF, 47,   0};
    EXPECT_EQ(Plain(builder.Data()), expected);
}

TEST(TrackBuilder, BridgesDeltasThatABlockCannotHold)
{
    TrackBuilder builder;
    builder.PutChannel(kNoteOn, 1, 1);
    builder.SetTime(0xFFFFFFF);
    builder.PutChannel(kNoteOn, 2, 2);
    builder.SetTime(3 * 0xFFFFFFFull + 1);
    builder.PutChannel(kNoteOn, 3, 3);
    const Bytes expected = {0,    0x90, 1, 1,    0xFF, 0xFF, 0xFF, 0x7F, 2, 2, 0xFF, 0xFF, 0xFF, 0x7F,
                            0xFF, 1,    0, 0xFF, 0xFF, 0xFF, 0x7F, 0xFF, 1, 0, 1,    0x90, 3,    3};
    EXPECT_EQ(Plain(builder.Data()), expected);
}

TEST(TrackBuilder, GrowsOutOfItsOwnRoom)
{
    // Sizes around 256 and 512 bytes, reached byte by byte and with one large payload.
    for (const std::size_t payloadSize : {0u, 100u, 250u, 251u, 252u, 253u, 500u, 1000u}) {
        TrackBuilder builder;
        Bytes expected;
        const Bytes payload(payloadSize, 0x55);
        builder.PutMeta(1, Payload(payload));
        expected.insert(expected.end(), {0, 0xFF, 1});
        const VariableLength length(static_cast<std::uint32_t>(payloadSize));
        const Bytes lengthBytes = Plain(std::span(length.bytes).first(length.size));
        expected.insert(expected.end(), lengthBytes.begin(), lengthBytes.end());
        expected.insert(expected.end(), payload.begin(), payload.end());
        for (unsigned i = 0; i < 300; ++i) {
            builder.SetChannel(static_cast<std::uint8_t>(i));
            builder.PutChannel(kNoteOn, static_cast<std::uint8_t>(i & 127), 1);
            expected.insert(expected.end(), {0, static_cast<unsigned char>(0x90 | (i & 15)),
                                             static_cast<unsigned char>(i & 127), 1});
            ASSERT_EQ(Plain(builder.Data()), expected) << payloadSize << ' ' << i;
        }
    }
}

TEST(TrackBuilder, PutRewritesWhatAWalkReads)
{
    // Running status in places where the builder writes the status out.
    const Bytes source = {5, 0x92, 1, 2, 0x81, 0, 3,    4, 0, 0xFF, 1,    1, 'a', 6, 5, 0,    0,    0xF7,
                          2, 1,    2, 0, 0xF8, 0, 0xF2, 1, 2, 0,    0xC1, 9, 0,   8, 0, 0xFF, 0x2F, 0};
    const Bytes expected = {5,    0x92, 1, 2, 0x81, 0, 3,    4,    0, 0xFF, 1,    1,    'a', 6,
                            0xFF, 5,    0, 0, 0xF7, 2, 1,    2,    0, 0xF8, 0,    0xF2, 1,   2,
                            0,    0xC1, 9, 0, 8,    0, 0xFF, 0x2F, 0, 0,    0xC7, 1};
    TrackBuilder builder;
    builder.SetChannel(7);
    builder.Put(TrackEvent{}); // no status
    EXPECT_TRUE(builder.IsEmpty());
    EventWalk walk(Payload(source));
    TrackEvent event;
    while (walk.Next(event))
        builder.Put(event);
    builder.PutChannel(kProgramChange, 1); // its own channel still stands
    EXPECT_EQ(Plain(builder.Data()), expected);
}

} // namespace
} // namespace vimbo
