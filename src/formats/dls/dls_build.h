// What instruments and waveforms become in a DLS bank: everything but the frames, settled before a byte is
// written.
#pragma once

#include "dsp/kernels/sample_convert.h"
#include "formats/conversion_notes.h"
#include "formats/dls/dls_units.h"
#include "formats/export_set.h"
#include "formats/format_table.h"
#include "formats/mpeg/mpeg.h"
#include "formats/wave/wave_units.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace vimbo::dls {

/// IMA ADPCM, of a channel.
inline constexpr std::size_t kImaBlockBytes = 512;
inline constexpr std::uint16_t kImaBlockFrames = 1017;

/// How samples of an encoding stand in a `fmt ` chunk.
struct Coding {
    DataFormat format;
    SampleCoding samples; ///< but for IMA ADPCM and MPEG
    std::uint16_t tag;
    std::uint16_t bits;
    bool isIma = false;

    bool IsMp3() const noexcept { return format == DataFormat::Compressed; }
};

/// A waveform, or one channel of a stereo one.
struct OutWave {
    static constexpr unsigned kWhole = 2;
    Waveform* wave = nullptr;
    unsigned channel = kWhole; ///< 0 or 1 of a stereo waveform
    unsigned channels = 1;     ///< in the file
    const Coding* coding = nullptr;
    Mp3Stream mp3; ///< where that is the coding; its bit rate is settled first

    std::u16string Name() const;
    std::uint64_t DataBytes() const noexcept;
};

struct WaveList {
    std::vector<OutWave> waves;
    /// The first one of a waveform; a split one's right channel follows directly.
    std::unordered_map<const Waveform*, std::size_t> places;
    ScratchFile scratch; ///< of the compressed ones
};
/// The waveforms that have frames, in the order of the set. Stereo ones are split unless the choice says that
/// they may stay, or are to be mixed. @return false with the Last error text if there is no encoder
[[nodiscard]] bool ListWaves(const ExportSet& set, const FormatChoice& choice, WaveList& out);

/// Encodes the waveforms that are to be compressed. @return false with the Last error text
[[nodiscard]] bool CompressWaves(WaveList& waves, Host& host);

/// Appends the waveform's samples, as many bytes as DataBytes says. @return false with the Last error text
/// @param scratch  that of the list
[[nodiscard]] bool WriteFrames(const OutWave& wave, FileObject& scratch, FileObject& file);

/// A region, or one side of it.
struct OutRegion {
    const Region* region = nullptr;
    std::size_t wave = 0;
    std::uint16_t layer = 0;
    WaveLink link{};
    bool isSplit = false; ///< one side of a stereo sound
    Sound sound;
    ArticulationBlock held; ///< what a reader makes of it
};
struct OutInstrument {
    const Instrument* instrument = nullptr;
    std::vector<OutRegion> regions;
};
/// Instruments that have something to play.
std::vector<OutInstrument> ListInstruments(const ExportSet& set, const WaveList& waves, std::uint32_t level);

/// `wsmp` of a waveform, and of a region.
struct OutRecord {
    WsmpHead head;
    WsmpLoop loop;
};
OutRecord RecordOf(const Waveform& wave) noexcept;
OutRecord RecordOf(const OutRegion& region, const Waveform& wave) noexcept;
bool IsSame(const OutRecord& a, const OutRecord& b) noexcept;

} // namespace vimbo::dls
