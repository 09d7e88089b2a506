// Records of AIFF (Apple, Audio Interchange File Format, version 1.3, 1989), AIFF-C (draft of 1991) and MAUD
// (MacroSystem). All fields are big-endian.
#pragma once

#include "base/packed.h"

#include <cstdint>

namespace vimbo {

struct IffChunkHead {
    FourCc id;
    U32be size; ///< of the body; an odd one is followed by a pad byte
};
static_assert(DiskRecord<IffChunkHead> && sizeof(IffChunkHead) == 8);

struct IffFormHead {
    IffChunkHead chunk;
    FourCc type;
};
static_assert(DiskRecord<IffFormHead> && sizeof(IffFormHead) == 12);

/// IEEE 754 double extended, with the leading one of its mantissa.
struct Extended80 {
    U16be signExponent; ///< the exponent counts from 16383
    U64be mantissa;
};
static_assert(DiskRecord<Extended80> && sizeof(Extended80) == 10);

/// `COMM`; in AIFF-C a FourCc and a Pascal string follow.
struct CommBody {
    I16be channels;
    U32be frames; ///< of packet codings: rounds of packets
    I16be bits;
    Extended80 rateHz;
};
static_assert(DiskRecord<CommBody> && sizeof(CommBody) == 18);

/// `SSND`, ahead of the samples.
struct SsndHead {
    U32be offset; ///< bytes between this head and the samples
    U32be blockBytes;
};
static_assert(DiskRecord<SsndHead> && sizeof(SsndHead) == 8);

/// An entry of `MARK`; a Pascal string follows, padded to even with its length byte.
struct MarkHead {
    U16be id;
    U32be frame;
};
static_assert(DiskRecord<MarkHead> && sizeof(MarkHead) == 6);

struct InstLoop {
    I16be mode; ///< 0 none, 1 forward, 2 forward and backward
    U16be beginMark;
    U16be endMark;
};
static_assert(DiskRecord<InstLoop> && sizeof(InstLoop) == 6);

struct AiffInst {
    std::int8_t baseNote = 60;
    std::int8_t detune = 0; ///< cents by which playing is to be altered
    std::int8_t lowNote = 0;
    std::int8_t highNote = 127;
    std::int8_t lowVelocity = 0;
    std::int8_t highVelocity = 127;
    I16be gainDb;
    InstLoop sustain;
    InstLoop release;
};
static_assert(DiskRecord<AiffInst> && sizeof(AiffInst) == 20);

/// `MHDR` of MAUD, as far as it is used.
struct MhdrBody {
    U32be frames;
    U16be bits;
    U16be decodedBits;
    U32be rateNumerator;
    U16be rateDenominator;
    U16be channelLayout; ///< 0 mono, 1 stereo
    U16be channels;
    U16be compression; ///< 0 none, 2 A-law, 3 mu-law
};
static_assert(DiskRecord<MhdrBody> && sizeof(MhdrBody) == 20);

} // namespace vimbo
