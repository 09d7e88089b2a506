// How the plain encodings of waveforms lie in files.
#pragma once

#include "dsp/kernels/sample_convert.h"
#include "model/data_format.h"

#include <optional>

namespace vimbo {

/// The layout of an encoding under the flags of a source word; nothing for encodings that are no plain
/// samples.
std::optional<SampleLayout> PlainLayout(DataFormat format, std::uint32_t flags) noexcept;

} // namespace vimbo
