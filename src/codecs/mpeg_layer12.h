// MPEG audio layers I and II up to the subband samples. Internal to this folder.
#pragma once

#include "codecs/mpeg_bits.h"
#include "codecs/mpeg_filters.h"
#include "codecs/mpeg_header.h"

#include <array>

namespace vimbo::mpeg {

/// Samples of a whole frame of layer I or II, taken out in order.
class SubbandReader {
public:
    /// Reads allocation and scale factors. @param bits at the data's start; outlives this
    SubbandReader(const MpegHeader& header, MpegBits& bits) noexcept;

    static constexpr unsigned kSlots1 = 12; ///< of a frame of layer I
    static constexpr unsigned kSlots2 = 36;

    /// The next slots: kSlots1 in layer I, kLines in layer II.
    void Read(std::array<SubbandSlots, 2>& out) noexcept;

private:
    static constexpr unsigned kParts = 3; ///< of a frame of layer II, each with scale factors of its own

    void ReadLayer1();
    void ReadLayer2();
    void ReadScaleFactors2();
    void ReadSlot1(unsigned slot, std::array<SubbandSlots, 2>& out) noexcept;
    void ReadTriple2(unsigned slot, std::array<SubbandSlots, 2>& out) noexcept;

    const MpegHeader& header_;
    MpegBits& bits_;
    unsigned channels_;
    unsigned subbands_ = kSubbands;
    unsigned bound_ = kSubbands; ///< subbands from here on have the same samples in both channels
    unsigned slot_ = 0;
    std::array<std::array<std::uint16_t, kSubbands>, 2> steps_{}; ///< 0: nothing is coded
    std::array<std::array<std::array<float, kParts>, kSubbands>, 2> scales_{};
};

} // namespace vimbo::mpeg
