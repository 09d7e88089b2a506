// Waveforms whose samples come from other waveforms' sources: a stereo pair read from two mono sources, or
// one channel of a stereo source. Nothing is loaded when they are made, so banks stay on disk.
#pragma once

#include "model/waveform.h"

#include <compare>

namespace vimbo {

/// Where a waveform's samples lie and how they are fetched, without the waveform.
struct SampleSource {
    static constexpr std::uint8_t kAllChannels = 255;

    const ImportProcedure* importProc = nullptr;
    std::uint32_t sourceWord = 0;
    std::uint64_t offset = 0;
    std::uint64_t secondOffset = 0;
    std::uint64_t formatOffset = 0;
    std::uint64_t bytes = 0;
    std::uint32_t frames = 0;
    std::uint32_t rateHz = 0;
    std::uint8_t channels = 1; ///< of the source, 1 or 2
    std::uint8_t bits = 0;
    std::uint8_t tag = 0;
    std::uint8_t channel = kAllChannels; ///< the one channel of a stereo source that is taken, if not all
    std::u16string path;
    friend auto operator<=>(const SampleSource&, const SampleSource&) = default;
};

/// What kPairImport and kChannelImport read. Each part gives one channel: it is a mono source or takes one
/// channel of a stereo source; parts are never derived themselves.
struct DerivedSource {
    std::vector<SampleSource> parts; ///< the left and the right one, or one alone
    friend bool operator==(const DerivedSource&, const DerivedSource&) = default;
};

/// Two parts as one stereo waveform; the shorter one is padded with silence. Id 5.
extern const ImportProcedure kPairImport;
/// One channel of a stereo source as a mono waveform. Id 6.
extern const ImportProcedure kChannelImport;

/// True for the two procedures above.
inline bool IsDerivedImport(const ImportProcedure* procedure) noexcept
{
    return procedure == &kPairImport || procedure == &kChannelImport;
}

/// The source of a waveform that can be read again from where it came. False if its samples exist only in
/// memory (no import procedure), and for pairs, which have two.
[[nodiscard]] bool DescribeSource(const Waveform& wave, SampleSource& out);
/// True if both can be read again, from the same place in the same way: their samples are equal then.
bool HasSameSource(const Waveform& a, const Waveform& b);
/// The files that the samples are read from; empty if they exist only in memory.
std::vector<std::u16string> SourceFiles(const Waveform& wave);

/// Makes the mono waveform `left` a stereo one with the samples of both, without loading them if both can be
/// read from their sources, else in memory. Frames become the greater count, `bits` and the save format those
/// of the wider one. Loop, tuning and texts stay those of `left`; `right` is left alone. Errors: "Only mono
/// waveforms can be joined", "Waveforms with different sample rates can't be joined", and those of
/// Waveform::ToStereo; on failure nothing changed.
[[nodiscard]] bool JoinStereo(Waveform& left, Waveform& right);
/// Splits a stereo waveform: it keeps the left channel, the right one becomes a new waveform. Names as
/// Waveform::ToMono with MonoMode::Split. Nothing is loaded if the source can be read again; a joined pair
/// gets its two sources back.
/// @return the right half; null with the Last error text on failure, and for mono waveforms
Waveform* SplitStereo(Waveform& wave);

/// The record of a derived source in state files.
void WriteDerived(ByteWriter& out, const DerivedSource& derived);
/// Null with the Last error text if the record is damaged or does not fit `procedure`. Procedures are looked
/// up in `owner`; an unknown one leaves a part that cannot be read.
std::shared_ptr<const DerivedSource> ReadDerived(ByteReader& in, const ImportProcedure& procedure,
                                                 const Collection& owner);

} // namespace vimbo
