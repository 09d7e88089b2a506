// Which encoding and how many channels a waveform is written with, given what a format allows and what was
// asked for.
#pragma once

#include "formats/format_table.h"

#include <memory>
#include <string>

namespace vimbo {

/// 1 or 2: the waveform's own channels if the choice allows them, else the other.
unsigned PickChannels(const Waveform& wave, const FormatChoice& choice) noexcept;

/// The choice once the encoding is known: GSM and ADPCM of 2 to 5 bits are mono codings.
FormatChoice ChoiceForEncoding(FormatChoice choice, DataFormat format) noexcept;

/// The encoding for one waveform: what it wishes if allowed, else the next wider linear one, else what there
/// is.
/// @param kbit gets the compressed setting in kbit/s, 0 if the result is not Compressed
DataFormat PickDataFormat(const Waveform& wave, const FormatChoice& choice, float& kbit,
                          SubFormatFn subFormats, std::uint32_t variant = 0);

/// One encoding for a list of waveforms: the widest that any of them gets.
DataFormat PickDataFormatForSet(std::span<const Waveform* const> waves, const FormatChoice& choice,
                                float& kbit, SubFormatFn subFormats, std::uint32_t variant = 0);

/// What "Auto" means for an item on this row. For a set of waveforms: the one format of all, or None if they
/// differ. `text` gets the name to show; "Compressed" if they only differ in their settings.
DataFormat DescribeDataFormat(int row, const Item& item, std::u16string& text);
/// 0 mixed, 1 mono, 2 stereo.
int DescribeChannelFormat(int row, const Item& item);

/// Opens the waveform's frames for a writer, with the number of channels that the choice allows. Reading
/// tells the collection's host how far it has come.
/// @param rateHz  the rate that the format wants; 0: the waveform's. Another rate than that is refused until
/// there is a resampler.
/// @return null with the Last error text on failure
std::unique_ptr<FrameSource> OpenFramesForWriter(Waveform& wave, const FormatChoice& choice,
                                                 std::uint32_t rateHz = 0);
/// The same; of a waveform without frames an empty source.
std::unique_ptr<FrameSource> OpenFramesOrNone(Waveform& wave, const FormatChoice& choice,
                                              std::uint32_t rateHz = 0);

} // namespace vimbo
