// Records of SoundFont banks. SoundFont technical specification 2.04, E-mu Systems (2006), sections 4 to 8.
#pragma once

#include "base/packed.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vimbo::sf2 {

/// One preset; the last record is a terminal one ("EOP").
struct PresetHeader {
    std::array<char, 20> name; ///< ends at its first NUL
    U16le preset;              ///< MIDI program 0..127
    U16le bank;                ///< MIDI bank; 128 holds drum kits
    U16le bagIndex;            ///< first zone; the next record's index ends the list
    U32le library, genre, morphology;
};
static_assert(DiskRecord<PresetHeader> && sizeof(PresetHeader) == 38);

/// One zone of a preset or an instrument: the first of its generators and of its modulators.
struct Bag {
    U16le generatorIndex;
    U16le modulatorIndex;
};
static_assert(DiskRecord<Bag> && sizeof(Bag) == 4);

struct Modulator {
    U16le source;       ///< controller and curve, see section 8.2
    U16le destination;  ///< generator
    I16le amount;       ///< in the destination's unit
    U16le amountSource; ///< second source that scales the amount; 0: none
    U16le transform;    ///< 0: linear
};
static_assert(DiskRecord<Modulator> && sizeof(Modulator) == 10);

struct Generator {
    U16le type;
    U16le amount; ///< signed, unsigned, or two bytes (low edge in the low byte)
};
static_assert(DiskRecord<Generator> && sizeof(Generator) == 4);

struct InstrumentHeader {
    std::array<char, 20> name;
    U16le bagIndex;
};
static_assert(DiskRecord<InstrumentHeader> && sizeof(InstrumentHeader) == 22);

struct SampleHeader {
    std::array<char, 20> name;
    U32le start, end; ///< frames in `smpl`; end is the frame behind the last. Compressed: bytes
    U32le loopStart,
        loopEnd; ///< frames in `smpl`; loopEnd is the frame behind the loop. Compressed: from the start
    U32le rateHz;
    std::uint8_t originalPitch;  ///< MIDI key; 255 for unpitched sounds
    std::int8_t pitchCorrection; ///< cents
    U16le link;                  ///< the other half of a stereo pair
    U16le type;                  ///< SampleType bits
};
static_assert(DiskRecord<SampleHeader> && sizeof(SampleHeader) == 46);

inline constexpr std::uint16_t kVersion1 = 1;
inline constexpr std::uint32_t kVersion1RateHz = 44100; ///< of all samples

/// Of version 1, which has a table of names (`snam`) beside it. Frames in `smpl`.
struct SampleHeader1 {
    U32le start, end, loopStart, loopEnd;
};
static_assert(DiskRecord<SampleHeader1> && sizeof(SampleHeader1) == 16);

struct SampleName {
    std::array<char, 20> text;
};
static_assert(DiskRecord<SampleName> && sizeof(SampleName) == 20);

inline constexpr std::uint16_t kSampleMono = 1;
inline constexpr std::uint16_t kSampleRight = 2;
inline constexpr std::uint16_t kSampleLeft = 4;
inline constexpr std::uint16_t kSampleLinked = 8;
inline constexpr std::uint16_t kSampleVorbis = 0x10; ///< compressed banks
inline constexpr std::uint16_t kSampleFlac = 0x20;
inline constexpr std::uint16_t kSampleRom = 0x8000;

/// Generators, section 8.1.2.
enum Gen : std::uint16_t {
    kGenStartOffset = 0,
    kGenEndOffset = 1,
    kGenLoopStartOffset = 2,
    kGenLoopEndOffset = 3,
    kGenStartCoarse = 4,
    kGenModLfoToPitch = 5,
    kGenVibLfoToPitch = 6,
    kGenModEnvToPitch = 7,
    kGenCutoff = 8,
    kGenResonance = 9,
    kGenModLfoToCutoff = 10,
    kGenModEnvToCutoff = 11,
    kGenEndCoarse = 12,
    kGenModLfoToVolume = 13,
    kGenChorusSend = 15,
    kGenReverbSend = 16,
    kGenPan = 17,
    kGenModLfoDelay = 21,
    kGenModLfoFrequency = 22,
    kGenVibLfoDelay = 23,
    kGenVibLfoFrequency = 24,
    kGenModEnvDelay = 25,
    kGenModEnvAttack = 26,
    kGenModEnvHold = 27,
    kGenModEnvDecay = 28,
    kGenModEnvSustain = 29,
    kGenModEnvRelease = 30,
    kGenKeyToModEnvHold = 31,
    kGenKeyToModEnvDecay = 32,
    kGenVolEnvDelay = 33,
    kGenVolEnvAttack = 34,
    kGenVolEnvHold = 35,
    kGenVolEnvDecay = 36,
    kGenVolEnvSustain = 37,
    kGenVolEnvRelease = 38,
    kGenKeyToVolEnvHold = 39,
    kGenKeyToVolEnvDecay = 40,
    kGenInstrument = 41,
    kGenKeyRange = 43,
    kGenVelocityRange = 44,
    kGenLoopStartCoarse = 45,
    kGenKey = 46,
    kGenVelocity = 47,
    kGenAttenuation = 48,
    kGenLoopEndCoarse = 50,
    kGenCoarseTune = 51,
    kGenFineTune = 52,
    kGenSample = 53,
    kGenSampleModes = 54,
    kGenScaleTuning = 56,
    kGenExclusiveClass = 57,
    kGenRootKey = 58
};
inline constexpr std::size_t kGenerators = 61;

} // namespace vimbo::sf2
