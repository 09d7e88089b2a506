// Songs and tracks as sound.
#pragma once

#include "synth/song_instruments.h"
#include "synth/wave_sink.h"

namespace vimbo::synth {

/// How songs are rendered; the names are those of the settings store ("mid2wav.").
struct RenderSettings {
    unsigned rateHz = 48000;   ///< dwSampleRate
    bool effects = true;       ///< bEffects
    bool normalizePeak = true; ///< bNormalizePeak
    bool trimSilence = true;   ///< bDeleteSilence
    float gain = 1;            ///< applied where the peak is not normalised
    std::u16string gmBank;     ///< wszGMBank; "": the system's
    unsigned polyphony = 128;  ///< iMaxPolyphony
    unsigned threads = 0;      ///< 0: all cores
    /// Seconds that notes and effects may ring on after the last event. 0 cuts there, with half a second of
    /// silence behind.
    double tailSeconds = 30;
};

enum class RenderEnd {
    Done,
    NoNotes, ///< "Done: No notes to render!"
    Aborted, ///< "Done: Rendered aborted!"
    Failed   ///< Last error text
};

struct RenderResult {
    RenderEnd end = RenderEnd::Failed;
    Waveform* wave = nullptr; ///< in the song's collection
    InstrumentChoice instruments;
    double seconds = 0;   ///< of the song, without its tail
    float peak = 0;       ///< before it was normalised
    bool clipped = false; ///< went beyond full scale where that is cut off (without normalising)
    std::size_t mostVoices = 0;
};

/// Only this channel sounds (port * 16 + channel); all do.
inline constexpr int kAllChannels = -1;

/// Renders a song, or a track with the tempo of its song, into a new waveform of the song's collection, which
/// is named after it. Its frames lie in `scratch`, which must live as long as the waveform reads them; memory
/// does not grow with the song. Messages and progress go to the collection's host, which may cancel.
/// `sources.own` and `sources.host` are taken from the song.
RenderResult RenderSong(Item& songOrTrack, const RenderSettings& settings, InstrumentSources sources,
                        ScratchFile& scratch, int onlyChannel = kAllChannels);

/// Channels (port * 16 + channel) that start notes, in ascending order: what stems are made of.
std::vector<int> ChannelsWithNotes(Item& songOrTrack);

/// Plays one note of an instrument into a new waveform of its collection, not trimmed: the key is held for
/// `holdSeconds` and all that follows until silence or `totalSeconds` is taken.
struct Audition {
    unsigned key = 60, velocity = 100;
    double holdSeconds = 1, totalSeconds = 2;
};
Waveform* RenderNote(Instrument& instrument, const Audition& note, const RenderSettings& settings,
                     ScratchFile& scratch);

} // namespace vimbo::synth
