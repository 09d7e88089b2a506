// Reading the scale factors of layer III. Internal to this folder.
#pragma once

#include "codecs/mpeg_layer3.h"

namespace vimbo::mpeg {

/// @param hasPreemphasis  gets whether kPreemphasis is added to those of long blocks
void ReadScaleFactors(const MpegHeader& header, const GranuleInfo& granule, const std::array<bool, 4>* shared,
                      bool isIntensity, MpegBits& in, Spectrum& out, bool& hasPreemphasis) noexcept;

} // namespace vimbo::mpeg
