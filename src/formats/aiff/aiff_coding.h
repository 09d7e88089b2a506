// Which coding a file's samples have, how many frames they are, and how a waveform is told.
#pragma once

#include "base/packed.h"
#include "formats/speech/coded_frames.h"
#include "model/waveform.h"

#include <cstdint>

namespace vimbo {

/// Plain: samples of equal size, for the general loader. The numbers go into state files.
enum class AiffCodec : std::uint8_t {
    Plain = 0,
    Ima4 = 1,
    Mace3 = 2,
    Mace6 = 3,
    Gsm = 4,
    G722 = 5,
    G726 = 6 ///< G.721, G.723 and G.726
};

struct AiffCoding {
    AiffCodec codec = AiffCodec::Plain;
    DataFormat format = DataFormat::Pcm16;
    std::uint32_t flags = 0;  ///< of the source word
    unsigned bits = 16;       ///< significant bits of a sample
    unsigned minCodeBits = 0; ///< G726: which widths the tag allows
    unsigned maxCodeBits = 0;
    unsigned codeBits = 0; ///< G726: the width, once it is settled
};

/// Tag and width of `COMM`; AIFF files count as "NONE". Errors: "Unsupported compression type: " and the tag,
/// "Unknown sample format or compression".
[[nodiscard]] bool SettleAiffCoding(const FourCc& tag, int bits, AiffCoding& out);
/// Compression and width of `MHDR`. Errors: "Unknown sample format or compression".
[[nodiscard]] bool SettleMaudCoding(unsigned compression, unsigned bits, AiffCoding& out);
/// Speech codings are mono, and those of several widths show theirs by the amount of data where `COMM` says
/// nothing sensible.
[[nodiscard]] bool SettleSpeech(unsigned channels, int bits, std::uint32_t claimedFrames,
                                std::uint64_t dataBytes, AiffCoding& coding);

/// Frames of `dataBytes` bytes of data, of which the file claims `claimed`: packets of packet codings, frames
/// of the others. Never more than the data holds.
std::uint32_t AiffFrameCount(const AiffCoding& coding, unsigned channels, std::uint32_t claimed,
                             std::uint64_t dataBytes) noexcept;

/// Fills in bits, source word, import procedure and its tag.
void DescribeAiffSource(const AiffCoding& coding, Waveform& wave) noexcept;

} // namespace vimbo
