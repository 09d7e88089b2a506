// The format tags of WAV files, by family, and what each family asks of the `fmt ` chunk. Tags: mmreg.h and
// the files of makers who never registered theirs.
#pragma once

#include "formats/wave/wave_format.h"

#include <array>

namespace vimbo {

inline constexpr std::uint16_t kTagExtensible = 65534;
inline constexpr std::uint16_t kTagUsrGsm = 771; ///< U.S. Robotics modems: 38-byte records of 160 frames

/// What a family asks of the fields behind the common part.
struct FamilyRow {
    WaveFamily family;
    std::u16string_view name;
    unsigned fixedBits; ///< 0: the word behind the common part says it
    unsigned minBits, maxBits;
    SaveFormat saveFormat; ///< Default: by bits or bit rate
    unsigned maxChannels;  ///< 0: any
    std::u16string_view badBits;
    std::u16string_view badChannels;
};

inline constexpr unsigned kAnyBits = 0xFFFF;
inline constexpr std::array kFamilies = {
    FamilyRow{WaveFamily::Pcm, u"PCM", 0, 0, kAnyBits, SaveFormat::Default, 0, u"", u""},
    FamilyRow{WaveFamily::Float, u"float", 0, 32, 64, SaveFormat::Float32, 0,
              u"Unsupported bits/sample for IEEE floating point samples", u""},
    FamilyRow{WaveFamily::ALaw, u"A-law", 8, 8, 8, SaveFormat::ALaw, 0, u"", u""},
    FamilyRow{WaveFamily::MuLaw, u"mu-law", 8, 8, 8, SaveFormat::MuLaw, 0, u"", u""},
    FamilyRow{WaveFamily::MsAdpcm, u"MS ADPCM", 0, 4, 4, SaveFormat::Adpcm4, 0,
              u"Unsupported or invalid MS ADPCM file", u""},
    FamilyRow{WaveFamily::ImaAdpcm, u"IMA ADPCM", 0, 2, 4, SaveFormat::Adpcm4, 0,
              u"Unsupported or invalid IMA ADPCM file", u""},
    FamilyRow{WaveFamily::DialogicAdpcm, u"Dialogic ADPCM", 0, 4, 4, SaveFormat::Pcm16, 1,
              u"Unsupported or invalid Dialogic ADPCM file", u"Can only handle mono Dialogic ADPCM format"},
    FamilyRow{WaveFamily::YamahaAdpcm, u"Yamaha ADPCM", 0, 4, 4, SaveFormat::Pcm16, 2,
              u"Unsupported bits/sample for Yamaha ADPCM format", u"> 2ch Yamaha ADPCM not supported"},
    FamilyRow{WaveFamily::G72xAdpcm, u"G.72x ADPCM", 0, 2, 5, SaveFormat::Adpcm4, 0,
              u"Invalid no bits/sample for CCITT G.721/.723/.726 ADPCM encoding", u""},
    FamilyRow{WaveFamily::Gsm, u"GSM 06.10", 2, 2, 2, SaveFormat::Pcm16, 1, u"",
              u"Can only handle (the standard!) mono GSM"},
    FamilyRow{WaveFamily::RockwellAdpcm, u"Rockwell ADPCM", 0, 2, 4, SaveFormat::Adpcm4, 1,
              u"Unsupported or invalid Rockwell ADPCM file", u"Can only handle mono Rockwell ADPCM format"},
    FamilyRow{WaveFamily::MpegLayer12, u"MPEG", 1, 1, 1, SaveFormat::Default, 0, u"", u""},
    FamilyRow{WaveFamily::MpegLayer3, u"MPEG", 1, 1, 1, SaveFormat::Default, 0, u"", u""},
    FamilyRow{WaveFamily::G722, u"G.722", 4, 4, 4, SaveFormat::Adpcm4, 0, u"", u""},
    FamilyRow{WaveFamily::Aac, u"AAC", 1, 1, 1, SaveFormat::Default, 0, u"", u""},
    FamilyRow{WaveFamily::Vorbis, u"Ogg Vorbis", 1, 1, 1, SaveFormat::Default, 0, u"", u""},
};

struct TagList {
    WaveFamily family;
    std::array<std::uint16_t, 14> tags; ///< filled up with 0, which is no coding
};

inline constexpr std::array kTags = {
    TagList{WaveFamily::Pcm, {1}},
    TagList{WaveFamily::MsAdpcm, {2}},
    TagList{WaveFamily::Float, {3}},
    TagList{WaveFamily::ALaw, {6, 370}},
    TagList{WaveFamily::MuLaw, {7, 369}},
    TagList{WaveFamily::ImaAdpcm, {17}},
    TagList{WaveFamily::DialogicAdpcm, {23}},
    TagList{WaveFamily::YamahaAdpcm, {32}},
    TagList{WaveFamily::G72xAdpcm, {20, 64, 66, 69, 89, 100, 133, 139, 147, 291, 320, 16963, 41221, 41223}},
    TagList{WaveFamily::Gsm, {49, kTagUsrGsm, 4096}},
    TagList{WaveFamily::RockwellAdpcm, {59, 768}},
    TagList{WaveFamily::MpegLayer12, {80}},
    TagList{WaveFamily::MpegLayer3, {85}},
    TagList{WaveFamily::G722, {101, 655}},
    TagList{WaveFamily::Aac, {176, 255, 384, 8198, 8199, 16707, 41222}},
    TagList{WaveFamily::Vorbis, {26447, 26448, 26449, 26479, 26480, 26481}},
};

} // namespace vimbo
