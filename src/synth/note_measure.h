// What a rendered note is like, in numbers that two notes can be compared by.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace vimbo::synth {

/// One note: `held` frames with the key down, the rest behind its release. Planar stereo.
struct NoteSound {
    std::vector<float> left, right;
    std::size_t held = 0;
    double rateHz = 44100;
};

struct NoteMeasure {
    double levelDb = -120;         ///< power of both sides while the key is down, dB of full scale
    double brightnessHz = 0;       ///< root mean square frequency of the spectrum while the key is down
    double balanceDb = 0;          ///< right against left, limited to -60..60
    double attackSeconds = 0;      ///< from the start to half the greatest level of 5 ms (in amplitude)
    double releaseSeconds = 0;     ///< from the key's release to 30 dB below the level there
    std::vector<float> envelopeDb; ///< level of each 5 ms, down to -120
};

NoteMeasure MeasureNote(const NoteSound& note);

/// How far `b` is from `a`.
struct NoteDifference {
    double levelDb = 0;
    std::optional<double> pitchCents; ///< none for sounds without a pitch, or of two quite different ones
    double brightnessOctaves = 0;
    double balanceDb = 0;
    double attackSeconds = 0, releaseSeconds = 0;
    double envelopeDb = 0; ///< greatest difference of the 5 ms levels that are within 40 dB of the loudest
    bool isSilentInOne = false; ///< nothing else counts then
};

/// Pitch is compared by the periods that both have in common: the lag of greatest likeness of each, close to
/// the other's; exact to a tenth of a cent for steady tones.
NoteDifference CompareNotes(const NoteSound& a, const NoteSound& b);

} // namespace vimbo::synth
