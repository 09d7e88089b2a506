// Records of DLS banks. MIDI Manufacturers Association, Downloadable Sounds level 1 (1.1b, 2004) and
// level 2.2 (2006). The sample record `wsmp` stands in wave_records.h.
#pragma once

#include "base/packed.h"

namespace vimbo::dls {

/// `insh`.
struct InstrumentHeader {
    U32le regions;
    U32le bank; ///< bits 0 to 6 controller 32, bits 8 to 14 controller 0, bit 31 drum kit
    U32le program;
};
static_assert(DiskRecord<InstrumentHeader> && sizeof(InstrumentHeader) == 12);
inline constexpr std::uint32_t kDrumBank = 0x80000000;

/// `rgnh`; level 2 may have one word more, the layer.
struct RegionHeader {
    U16le lowKey, highKey, lowVelocity, highVelocity;
    U16le options;
    U16le keyGroup; ///< notes of one group end each other; 0: none
};
static_assert(DiskRecord<RegionHeader> && sizeof(RegionHeader) == 12);
inline constexpr std::uint16_t kOptionSelfNonExclusive = 1;

/// `wlnk`.
struct WaveLink {
    U16le options;
    U16le phaseGroup; ///< 0: none
    U32le channel;    ///< bits of the speakers
    U32le tableIndex; ///< cue of `ptbl`
};
static_assert(DiskRecord<WaveLink> && sizeof(WaveLink) == 12);
inline constexpr std::uint16_t kLinkPhaseMaster = 1;
inline constexpr std::uint32_t kChannelLeft = 1; ///< also of mono sounds
inline constexpr std::uint32_t kChannelRight = 2;

/// Head of `ptbl`, `art1` and `art2`: its own length, and how many records follow.
struct TableHead {
    U32le bytes;
    U32le count;
};
static_assert(DiskRecord<TableHead> && sizeof(TableHead) == 8);

/// What moves what, and how far.
struct ConnectionBlock {
    U16le source, control, destination;
    U16le transform; ///< kTransform bits; 0: linear
    I32le scale;
};
static_assert(DiskRecord<ConnectionBlock> && sizeof(ConnectionBlock) == 12);

enum Source : std::uint16_t {
    kSrcNone = 0,
    kSrcLfo = 1,
    kSrcVelocity = 2,
    kSrcKey = 3,
    kSrcEg2 = 5,
    kSrcPitchWheel = 6,
    kSrcPressure = 8,
    kSrcVibrato = 9,
    kSrcWheel = 129,
    kSrcCc7 = 135,
    kSrcCc10 = 138,
    kSrcCc11 = 139,
    kSrcCc91 = 219,
    kSrcCc93 = 221,
    kSrcWheelRange = 256 ///< registered parameter 0
};

enum Destination : std::uint16_t {
    kDstGain = 1,
    kDstEarlyPan = 2,
    kDstPitch = 3,
    kDstPan = 4,
    kDstChorus = 128,
    kDstReverb = 129,
    kDstLfoFrequency = 260,
    kDstLfoDelay = 261,
    kDstVibratoFrequency = 276,
    kDstVibratoDelay = 277,
    kDstEg1 = 518, ///< attack; the other stages follow
    kDstEg2 = 778,
    kDstCutoff = 1280,
    kDstResonance = 1281
};
// Places behind an envelope's first destination.
inline constexpr std::uint16_t kEgAttack = 0, kEgDecay = 1, kEgEarlySustain = 2, kEgRelease = 3,
                               kEgSustain = 4, kEgDelay = 5, kEgHold = 6, kEgShutdown = 7;

inline constexpr std::uint16_t kTransformBipolar = 0x4000;  ///< the source runs from -1 to 1
inline constexpr std::uint16_t kTransformInverted = 0x8000; ///< the source runs from high to low
inline constexpr std::uint16_t kTransformConcave = 0x0400;
inline constexpr std::uint16_t kControlBipolar = 0x0100;

/// A connection as programs handle it.
struct Connection {
    std::uint16_t source = 0, control = 0, destination = 0, transform = 0;
    std::int32_t scale = 0;
    friend auto operator<=>(const Connection&, const Connection&) = default;
};

} // namespace vimbo::dls
