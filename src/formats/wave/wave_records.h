// Records of RIFF WAVE files, as Microsoft and IBM drew them: Multimedia Programming Interface and Data
// Specifications 1.0 (1991), New Multimedia Data Types and Data Techniques (1994), mmreg.h; RF64: EBU Tech
// 3306; BW64: ITU-R BS.2088; wsmp: MMA, DLS level 2.2. All fields are little-endian; RIFX files have them
// reversed (see ReverseFields).
#pragma once

#include "base/packed.h"

#include <string_view>

namespace vimbo {

using U8 = Packed<std::uint8_t, std::endian::little>;
using I8 = Packed<std::int8_t, std::endian::little>;

struct RiffChunkHead {
    FourCc id;
    U32le size; ///< bytes that follow, without the pad byte that makes the place of the next chunk even
};
static_assert(DiskRecord<RiffChunkHead> && sizeof(RiffChunkHead) == 8);

struct RiffFormHead {
    RiffChunkHead chunk;
    FourCc type;
};
static_assert(DiskRecord<RiffFormHead> && sizeof(RiffFormHead) == 12);

/// `fmt `: the part that all codings share.
struct FmtCommon {
    U16le tag, channels;
    U32le rateHz;
    U32le averageBytes; ///< per second
    U16le blockAlign;
};
static_assert(DiskRecord<FmtCommon> && sizeof(FmtCommon) == 14);

/// What follows FmtCommon under tag 65534.
struct FmtExtensible {
    U16le containerBits, extraBytes;
    U16le validBits; ///< left-justified in the container; 0 where the coding has none
    U32le speakerMask;
    U32le subTag; ///< first word of the SubFormat GUID
    std::array<std::uint8_t, 12> guidRest;
};
static_assert(DiskRecord<FmtExtensible> && sizeof(FmtExtensible) == 26);

inline constexpr std::array<std::uint8_t, 12> kWaveGuidRest = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                                               0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

/// What follows FmtCommon under tags 2 and 17 (MS and IMA ADPCM).
struct FmtBlocks {
    U16le bits, extraBytes;
    U16le samplesPerBlock;
};
static_assert(DiskRecord<FmtBlocks> && sizeof(FmtBlocks) == 6);

/// What follows FmtCommon under tag 80 (MPEG layers 1 and 2).
struct FmtMpeg {
    U16le bits, extraBytes;
    U16le layer;
    U32le bitRate; ///< bit/s
    U16le mode;    ///< kMpegMode bits
    U16le modeExtension, emphasis, flags;
    U32le timeLow, timeHigh;
};
static_assert(DiskRecord<FmtMpeg> && sizeof(FmtMpeg) == 26);
inline constexpr unsigned kMpegModeSingleChannel = 8;
inline constexpr unsigned kMpegModeTwoChannels = 7; ///< stereo, joint stereo, dual channel

/// What follows FmtCommon under tag 85 (MPEG layer 3).
struct FmtMp3 {
    U16le bits, extraBytes;
    U16le id;
    U32le flags;
    U16le blockBytes, framesPerBlock, codecDelay;
};
static_assert(DiskRecord<FmtMp3> && sizeof(FmtMp3) == 16);

/// `ds64`: the sizes that do not fit elsewhere. A size field of all ones refers to it.
struct Ds64 {
    U64le riffBytes, dataBytes, frames;
    U32le tableLength; ///< entries for further chunks; not read
};
static_assert(DiskRecord<Ds64> && sizeof(Ds64) == 28);
inline constexpr std::uint32_t kSizeInDs64 = 0xFFFFFFFF;

/// `smpl`, fixed part.
struct SmplHead {
    U32le manufacturer, product;
    U32le samplePeriod;  ///< nanoseconds per frame
    U32le unityNote;     ///< MIDI key, but 32 bits are stored
    U32le pitchFraction; ///< how far the sample lies above the unity note, 2^32 = one semitone
    U32le smpteFormat, smpteOffset;
    U32le loopCount;
    U32le extraBytes; ///< sampler data behind the loops
};
static_assert(DiskRecord<SmplHead> && sizeof(SmplHead) == 36);

struct SmplLoop {
    U32le id;
    U32le type; ///< 0 forward, 1 alternating, 2 backward
    U32le start;
    U32le end;      ///< last frame that is played
    U32le fraction; ///< 2^32 = one frame more
    U32le playCount;
};
static_assert(DiskRecord<SmplLoop> && sizeof(SmplLoop) == 24);

/// Sampler data of Creamware STS files.
struct CreamwareData {
    FourCc id; ///< "CWDT"
    I8 loopPitch;
    std::array<std::uint8_t, 3> constant;
    U32le loopMode; ///< 0 loop, 1 loop until release, 2 none
    U32le reserved1;
    U32le frames;
    U32le reserved2;
    U32le rootKey;
};
static_assert(DiskRecord<CreamwareData> && sizeof(CreamwareData) == 28);

/// Sampler data of Akai files (manufacturer 0x47, product 94).
struct AkaiData {
    U8 kind; ///< below 3
    U8 zero;
    U8 pitch;     ///< MIDI key
    I8 semitones; ///< tuning
    I8 cents;
    U8 unused1;
    U8 loopMode;
    std::array<std::uint8_t, 3> unused2;
    U32le start, end; ///< frames that are played
};
static_assert(DiskRecord<AkaiData> && sizeof(AkaiData) == 18);

/// `mesa`: the header of an Akai S1000 sample.
struct MesaHead {
    std::array<std::uint8_t, 2> unused1;
    U8 pitch;
    std::array<std::uint8_t, 12> name; ///< Akai character code
    U8 unused2;
    U8 activeLoops;
    std::array<std::uint8_t, 2> unused3;
    U8 loopMode;
    I8 cents, semitones;
    std::array<std::uint8_t, 16> unused4;
    U32le loopStart;
    U16le loopFraction; ///< 1/65536 frame
    U32le loopLength;
    std::array<std::uint8_t, 90> unused5;
    U16le rateHz;
    I8 loopPitch; ///< cents
};
static_assert(DiskRecord<MesaHead> && sizeof(MesaHead) == 141);

struct InstBody {
    U8 unityNote;
    I8 cents, gainDb;
    std::array<std::uint8_t, 4> ranges; ///< key and velocity; not read
};
static_assert(DiskRecord<InstBody> && sizeof(InstBody) == 7);

struct CuePoint {
    U32le id, position;
    FourCc chunk;
    U32le chunkStart, blockStart;
    U32le frame;
};
static_assert(DiskRecord<CuePoint> && sizeof(CuePoint) == 24);

/// `ltxt`: gives the cue point of that id a length.
struct CueLength {
    U32le id, frames;
    FourCc purpose;
    U16le country, language, dialect, codePage;
};
static_assert(DiskRecord<CueLength> && sizeof(CueLength) == 20);

/// `wsmp`: the DLS sample record.
struct WsmpHead {
    U32le bytes; ///< of this head; loops follow behind it
    U16le unityNote;
    I16le cents;
    I32le gain; ///< 1/655360 dB
    U32le options, loopCount;
};
static_assert(DiskRecord<WsmpHead> && sizeof(WsmpHead) == 20);

struct WsmpLoop {
    U32le bytes; ///< of this record
    U32le type;  ///< 0 forward, 1 until release
    U32le start, length;
};
static_assert(DiskRecord<WsmpLoop> && sizeof(WsmpLoop) == 16);

/// Widths in bytes of a record's fields, one digit each, for turning RIFX bodies into little-endian ones.
inline constexpr std::string_view kFmtFields = "22442";
inline constexpr std::string_view kFmtExtensibleFields =
    "222442211111111"; // GUID: 4, 2, 2 and eight single bytes
inline constexpr std::string_view kFmtMpegFields = "2224222244";
inline constexpr std::string_view kFmtMp3Fields = "2224222";
inline constexpr std::string_view kSmplHeadFields = "444444444";
inline constexpr std::string_view kSmplLoopFields = "444444";
inline constexpr std::string_view kCuePointFields = "441111444";
inline constexpr std::string_view kCueLengthFields = "4411112222";
inline constexpr std::string_view kWsmpHeadFields = "422444";
inline constexpr std::string_view kWsmpLoopFields = "4444";
inline constexpr std::string_view kWordField = "4";

} // namespace vimbo
