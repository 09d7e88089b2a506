// Records of Standard MIDI Files (MIDI Manufacturers Association, Standard MIDI Files 1.0, 1988) and of the
// IFF forms of extended MIDI. All fields are big-endian but for the count of sequences.
#pragma once

#include "base/packed.h"

namespace vimbo::midi {

struct ChunkHead {
    FourCc id;
    U32be size; ///< bytes that follow; in extended MIDI without the pad byte that makes the length even
};
static_assert(DiskRecord<ChunkHead> && sizeof(ChunkHead) == 8);

/// Body of `MThd`.
struct SmfHeader {
    U16be format, tracks;
    U16be division; ///< ticks per quarter note, or an SMPTE word
};
static_assert(DiskRecord<SmfHeader> && sizeof(SmfHeader) == 6);

struct FormHead {
    ChunkHead chunk; ///< `FORM` or `CAT `
    FourCc type;
};
static_assert(DiskRecord<FormHead> && sizeof(FormHead) == 12);

/// All of an extended MIDI file that stands ahead of the events of its only sequence.
struct XmiFront {
    FormHead directory;
    ChunkHead info;
    U16le sequences;
    FormHead catalog, form;
    ChunkHead events;
};
static_assert(DiskRecord<XmiFront> && sizeof(XmiFront) == 54);

} // namespace vimbo::midi
