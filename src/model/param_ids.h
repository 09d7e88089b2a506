// Ids of numbered parameters: 0 to 188 articulation, 189 to 203 trigger, 204 to 208 loop, 209 to 216 texts
// and image, 217 to 221 waveform, 222 to 226 region, 227 to 230 MIDI location, 231 to 262 channel effects.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vimbo {

using ParamId = std::uint16_t;

inline constexpr std::size_t kArticulationParams = 189;

// Articulation. "Wheel", "Touch" and "Vel" are modulation wheel, aftertouch and velocity.
inline constexpr ParamId kArtTuning = 0;      ///< semitones
inline constexpr ParamId kArtKeyToPitch = 1;  ///< semitones per key
inline constexpr ParamId kArtBendToPitch = 2; ///< semitones at full bend
inline constexpr ParamId kArtPLfoToPitch = 3; ///< semitones; then wheel, touch, velocity
inline constexpr ParamId kArtWheelPLfoToPitch = 4;
inline constexpr ParamId kArtTouchPLfoToPitch = 5;
inline constexpr ParamId kArtVelPLfoToPitch = 6;
inline constexpr ParamId kArtXLfoToPitch = 7;
inline constexpr ParamId kArtWheelXLfoToPitch = 8;
inline constexpr ParamId kArtTouchXLfoToPitch = 9;
inline constexpr ParamId kArtVelXLfoToPitch = 10;
inline constexpr ParamId kArtPEnvToPitch = 11;
inline constexpr ParamId kArtVelPEnvToPitch = 12;
inline constexpr ParamId kArtRandomToPitch = 13;
inline constexpr ParamId kArtVolume = 14; ///< dB
inline constexpr ParamId kArtVelToVolume = 15;
inline constexpr ParamId kArtKeyToVolume = 16; ///< dB per octave
inline constexpr ParamId kArtWheelToVolume = 17;
inline constexpr ParamId kArtTouchToVolume = 18;
inline constexpr ParamId kArtVLfoToVolume = 19;
inline constexpr ParamId kArtWheelVLfoToVolume = 20;
inline constexpr ParamId kArtTouchVLfoToVolume = 21;
inline constexpr ParamId kArtVelVLfoToVolume = 22;
inline constexpr ParamId kArtFilterType = 23; ///< see FilterType
inline constexpr ParamId kArtCutoff = 24;     ///< Hz
inline constexpr ParamId kArtVelToCutoff = 25;
inline constexpr ParamId kArtKeyToCutoff = 26;
inline constexpr ParamId kArtWheelToCutoff = 27;
inline constexpr ParamId kArtTouchToCutoff = 28;
inline constexpr ParamId kArtFLfoToCutoff = 29;
inline constexpr ParamId kArtWheelFLfoToCutoff = 30;
inline constexpr ParamId kArtTouchFLfoToCutoff = 31;
inline constexpr ParamId kArtVelFLfoToCutoff = 32;
inline constexpr ParamId kArtFEnvToCutoff = 33;
inline constexpr ParamId kArtVelFEnvToCutoff = 34;
inline constexpr ParamId kArtResonance = 35; ///< dB
inline constexpr ParamId kArtVelToResonance = 36;
inline constexpr ParamId kArtWheelToResonance = 37;
inline constexpr ParamId kArtTouchToResonance = 38;
inline constexpr ParamId kArtEqMode = 39; ///< band n at + 4 * n: mode, frequency, gain, Q
inline constexpr ParamId kArtEqFrequency = 40;
inline constexpr ParamId kArtEqGain = 41;
inline constexpr ParamId kArtEqQ = 42;
inline constexpr ParamId kArtPan = 51; ///< -1 left to 1 right
inline constexpr ParamId kArtCc10ToPan = 52;
inline constexpr ParamId kArtKeyToPan = 53;
inline constexpr ParamId kArtXLfoToPan = 54;
inline constexpr ParamId kArtXEnvToPan = 55;
inline constexpr ParamId kArtRandomToPan = 56;
inline constexpr ParamId kArtSend = 57; ///< send n at + 2 * n: level, controller's depth
inline constexpr ParamId kArtCcToSend = 58;
inline constexpr ParamId kArtLfos = 65;          ///< LFO n at + 4 * n: shape, frequency, delay, ramp
inline constexpr ParamId kArtEnvelopes = 81;     ///< envelope n at + 27 * n; offsets in envelope.h
inline constexpr ParamId kArtShutdownRate = 107; ///< seconds from full volume to silence

inline constexpr std::size_t kEqBands = 3;
inline constexpr std::size_t kSends = 4;
inline constexpr ParamId kEqBandParams = 4;
inline constexpr ParamId kSendParams = 2;

// Trigger.
inline constexpr ParamId kParamLowKey = 189;
inline constexpr ParamId kParamHighKey = 190;
inline constexpr ParamId kParamLowVelocity = 191;
inline constexpr ParamId kParamHighVelocity = 192;
inline constexpr ParamId kParamKeyFadeIn = 193;
inline constexpr ParamId kParamKeyFadeOut = 194;
inline constexpr ParamId kParamVelocityFadeIn = 195;
inline constexpr ParamId kParamVelocityFadeOut = 196;
inline constexpr ParamId kParamKeyFadeFormula = 197;
inline constexpr ParamId kParamVelocityFadeFormula = 198;
inline constexpr ParamId kParamTriggerType = 199;
inline constexpr ParamId kParamPedalSwitch = 200;
inline constexpr ParamId kParamExclusionGroup = 201;
inline constexpr ParamId kParamNoteExclusionMode = 202;
inline constexpr ParamId kParamDelay = 203;
inline constexpr ParamId kFirstTriggerParam = kParamLowKey;
inline constexpr ParamId kLastTriggerParam = kParamDelay;

// Loop, of waveforms and as overrides of regions.
inline constexpr ParamId kParamLoopType = 204;
inline constexpr ParamId kParamLoopRelease = 205;
inline constexpr ParamId kParamLoopStart = 206;
inline constexpr ParamId kParamLoopEnd = 207;
inline constexpr ParamId kParamLoopPitch = 208;

// Texts and the image.
inline constexpr ParamId kTextName = 209;
inline constexpr ParamId kTextArtist = 210;
inline constexpr ParamId kTextComments = 211;
inline constexpr ParamId kTextCopyright = 212;
inline constexpr ParamId kTextEngineer = 213;
inline constexpr ParamId kTextProduct = 214;
inline constexpr ParamId kTextSourcePath = 215;
inline constexpr ParamId kTextImage = 216;

// Waveforms.
inline constexpr ParamId kParamWaveRate = 217;
inline constexpr ParamId kParamWaveRootKey = 218;
inline constexpr ParamId kParamWaveFineTune = 219;
inline constexpr ParamId kParamWaveVolume = 220;
inline constexpr ParamId kParamWaveSaveFormat = 221;

// Regions.
inline constexpr ParamId kParamRegionRootKey = 222;
inline constexpr ParamId kParamStartOffset = 223;
inline constexpr ParamId kParamEndOffset = 224;
inline constexpr ParamId kParamPhaseGroup = 225;
inline constexpr ParamId kParamPhaseMaster = 226;

// MIDI location of instruments.
inline constexpr ParamId kParamBankMsb = 227;
inline constexpr ParamId kParamBankLsb = 228;
inline constexpr ParamId kParamProgram = 229;
inline constexpr ParamId kParamDrum = 230;

// Channel effects: slot n at + 8 * n: three byte values, then five floats.
inline constexpr ParamId kParamChannelFx = 231;
inline constexpr ParamId kParamLast = 262;

} // namespace vimbo
