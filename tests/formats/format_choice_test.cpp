#include "formats/format_choice.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <array>

namespace vimbo {
namespace {

constexpr std::uint32_t Caps(std::initializer_list<DataFormat> formats)
{
    std::uint32_t caps = 0;
    for (DataFormat format : formats)
        caps |= FormatBit(format);
    return caps;
}

float Settings(std::uint32_t index, std::uint32_t, std::u16string* name)
{
    constexpr std::array<float, 3> kValues{64, 128, 192};
    if (name)
        *name = u"setting";
    return index < kValues.size() ? kValues[index] : 0;
}

struct Picked {
    DataFormat format;
    float kbit;
    friend bool operator==(const Picked&, const Picked&) = default;
};

Picked Pick(SaveFormat wish, std::uint32_t caps, float kbit = 0, SubFormatFn settings = Settings)
{
    Collection collection;
    Waveform& wave = collection.Create<Waveform>(u"w");
    wave.saveFormat = wish;
    FormatChoice choice;
    choice.caps = caps;
    choice.kbit = kbit;
    Picked result{};
    result.format = PickDataFormat(wave, choice, result.kbit, settings);
    return result;
}

using enum DataFormat;

TEST(PickDataFormat, WishWhereAllowedElseWiderNeverNarrower)
{
    EXPECT_EQ(Pick(SaveFormat::Pcm24, Caps({Pcm8, Pcm16, Pcm24})).format, Pcm24);
    EXPECT_EQ(Pick(SaveFormat::Pcm8, Caps({Pcm16, Pcm24})).format, Pcm16);
    EXPECT_EQ(Pick(SaveFormat::Pcm24, Caps({Pcm16, Float32})).format, Float32);
    EXPECT_EQ(Pick(SaveFormat::Float32, Caps({Pcm8, Pcm16})).format, Pcm16) << "nothing wider: PCM 16";
    EXPECT_EQ(Pick(SaveFormat::Float32, Caps({Pcm8, Pcm20})).format, Pcm8)
        << "nothing wider, no PCM 16: the lowest";
    EXPECT_EQ(Pick(SaveFormat::MuLaw, Caps({Pcm8, Pcm16, Pcm24})).format, Pcm16);
    EXPECT_EQ(Pick(SaveFormat::Float32, Caps({Pcm8})).format, Pcm8) << "the only one";
}

TEST(PickDataFormat, CodedFormatsWhereNothingLinearExists)
{
    EXPECT_EQ(Pick(SaveFormat::Pcm16, Caps({Delta8, Delta16})).format, Delta16);
    EXPECT_EQ(Pick(SaveFormat::Pcm8, Caps({Delta8, Delta16})).format, Delta8);
    EXPECT_EQ(Pick(SaveFormat::Pcm24, Caps({MuLaw, Compressed})), (Picked{Compressed, 192}));
    EXPECT_EQ(Pick(SaveFormat::Pcm24, Caps({ALaw, MuLaw})).format, MuLaw) << "the lowest bit";
}

TEST(PickDataFormat, CompressedSettings)
{
    const std::uint32_t only = Caps({Compressed});
    const auto wish128 = BitrateToSaveFormat(128);
    EXPECT_EQ(Pick(wish128, only), (Picked{Compressed, 128}));
    EXPECT_EQ(Pick(wish128, only, 64), (Picked{Compressed, 64})) << "the request outweighs the waveform";
    EXPECT_EQ(Pick(BitrateToSaveFormat(112), only), (Picked{Compressed, 128})) << "next setting at or above";
    EXPECT_EQ(Pick(BitrateToSaveFormat(320), only), (Picked{Compressed, 192}))
        << "past the end: the last setting";
    EXPECT_EQ(Pick(SaveFormat::Pcm16, only), (Picked{Compressed, 192})) << "no rate at all counts as 256";
    EXPECT_EQ(Pick(SaveFormat::Pcm16, only, 100, nullptr), (Picked{Compressed, 100}));
    EXPECT_EQ(Pick(wish128, Caps({Pcm16, Compressed})), (Picked{Compressed, 128}));
    EXPECT_EQ(Pick(wish128, Caps({Pcm16, Compressed}), 64), (Picked{Pcm16, 0}));
}

TEST(PickDataFormat, SetsTakeTheWidest)
{
    Collection collection;
    std::vector<const Waveform*> waves;
    const auto add = [&](SaveFormat wish) {
        Waveform& wave = collection.Create<Waveform>(u"w");
        wave.saveFormat = wish;
        waves.push_back(&wave);
    };
    FormatChoice choice;
    choice.caps = Caps({Pcm8, Pcm16, Pcm24, MuLaw, Compressed});
    float kbit = -1;
    EXPECT_EQ(PickDataFormatForSet(waves, choice, kbit, Settings), Pcm8) << "no waveforms: the first format";
    add(SaveFormat::Pcm8);
    EXPECT_EQ(PickDataFormatForSet(waves, choice, kbit, Settings), Pcm8);
    add(SaveFormat::MuLaw);
    EXPECT_EQ(PickDataFormatForSet(waves, choice, kbit, Settings), MuLaw);
    add(BitrateToSaveFormat(64));
    add(BitrateToSaveFormat(128));
    EXPECT_EQ(PickDataFormatForSet(waves, choice, kbit, Settings), Compressed);
    EXPECT_EQ(kbit, 128);
    add(SaveFormat::Pcm16);
    add(SaveFormat::Pcm24);
    add(SaveFormat::Pcm16);
    EXPECT_EQ(PickDataFormatForSet(waves, choice, kbit, Settings), Pcm24);
    EXPECT_EQ(kbit, 0);
}

TEST(PickChannels, OwnChannelsIfAllowedElseTheOther)
{
    Collection collection;
    Waveform& wave = collection.Create<Waveform>(u"w");
    FormatChoice choice;
    const auto pick = [&](std::uint8_t channels, std::uint32_t caps) {
        wave.channels = channels;
        choice.caps = caps;
        return PickChannels(wave, choice);
    };
    EXPECT_EQ(pick(1, kCapsMono | kCapsStereo), 1u);
    EXPECT_EQ(pick(1, kCapsStereo), 2u);
    EXPECT_EQ(pick(2, kCapsMono | kCapsStereo), 2u);
    EXPECT_EQ(pick(2, kCapsMono), 1u);
    EXPECT_EQ(PickChannels(wave, ChoiceForEncoding({.caps = kCapsMono | kCapsStereo}, Adpcm3)), 1u);
    EXPECT_EQ(PickChannels(wave, ChoiceForEncoding({.caps = kCapsMono | kCapsStereo}, ALaw)), 2u);
}

TEST(DescribeItem, WhatAutoMeans)
{
    Collection collection;
    std::u16string text;
    Waveform& mono = collection.Create<Waveform>(u"a");
    mono.saveFormat = SaveFormat::Pcm24;
    EXPECT_EQ(DescribeDataFormat(480, mono, text), Pcm24);
    EXPECT_EQ(text, u"PCM 24-bit");
    EXPECT_EQ(DescribeChannelFormat(480, mono), 1);
    EXPECT_EQ(DescribeDataFormat(480, collection, text), Pcm24);
    Waveform& stereo = collection.Create<Waveform>(u"b");
    stereo.channels = 2;
    stereo.saveFormat = SaveFormat::Pcm8;
    EXPECT_EQ(DescribeDataFormat(480, collection, text), None);
    EXPECT_EQ(text, u"");
    EXPECT_EQ(DescribeChannelFormat(480, collection), 0);
    EXPECT_EQ(DescribeChannelFormat(480, stereo), 2);
    EXPECT_EQ(DescribeDataFormat(-1, mono, text), None);
    EXPECT_EQ(DescribeChannelFormat(-1, mono), 0);
}

TEST(OpenFramesForWriter, GivesTheChannelsThatTheFormatHolds)
{
    testing::ScriptedHost host;
    Collection collection;
    collection.SetHost(host);
    Waveform& wave = collection.Create<Waveform>(u"w");
    wave.frames = 2;
    wave.channels = 2;
    const auto samples = wave.LockSamplesForWrite();
    ASSERT_EQ(samples.size(), 4u);
    samples[0] = 0.5f;
    samples[1] = 0.25f;
    samples[2] = -1.0f;
    samples[3] = 0.0f;
    FormatChoice choice;
    choice.caps = kCapsMono;
    const auto source = OpenFramesForWriter(wave, choice);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->Channels(), 1u);
    std::array<float, 2> mono{};
    ASSERT_TRUE(source->Read(0, mono));
    EXPECT_EQ(mono, (std::array<float, 2>{0.375f, -0.5f}));
    host.progress.clear();
    ASSERT_TRUE(source->Read(1, std::span(mono).first(1)));
    EXPECT_EQ(host.progress, std::vector<double>{0.5}) << "half of it is behind us";
}

} // namespace
} // namespace vimbo
