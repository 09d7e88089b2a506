#include "codecs/mpeg_audio.h"

#include "codecs/mpeg_huffman.h"
#include "codecs/mpeg_layer12.h"
#include "codecs/mpeg_layer3.h"

#include <algorithm>

namespace vimbo {

using namespace mpeg;

struct MpegDecoder::State {
    /// The last frames' main data, and behind them those of this frame.
    std::array<std::uint8_t, kMpegReservoirBytes + kMpegMostBytes + kBitsMargin> data{};
    std::size_t dataBytes = 0;
    std::array<Spectrum, kMostChannels> spectra;
    SpectrumLines lines;
    std::array<SubbandSlots, kMostChannels> slots{};
    std::array<HybridFilter, kMostChannels> hybrids;
    std::array<SynthesisFilter, kMostChannels> filters;
    bool hasSecond = false; ///< the second channel's filters have something in them

    void SettleChannels(unsigned channels) noexcept;
    void Append(std::span<const std::byte> bytes) noexcept;
    void DropOld() noexcept;
    void DecodeLayer12(const MpegHeader& header, std::span<const std::byte> frame, float* out) noexcept;
    void DecodeLayer3(const MpegHeader& header, std::span<const std::byte> frame, float* out) noexcept;
    void ReadSpectra(const MpegHeader& header, const SideInfo& side, unsigned granule,
                     std::ptrdiff_t& bit) noexcept;
    void Synthesize(const MpegHeader& header, const std::array<GranuleInfo, kMostChannels>& granules,
                    float* out) noexcept;
};

/// Where a stream turns to mono, its second channel falls silent, and begins anew where it comes back.
void MpegDecoder::State::SettleChannels(unsigned channels) noexcept
{
    if (channels == 1 && hasSecond) {
        hybrids[1].Reset();
        filters[1].Reset();
    }
    hasSecond = channels == 2;
}

/// @param bytes at most kMpegMostBytes
void MpegDecoder::State::Append(std::span<const std::byte> bytes) noexcept
{
    if (!bytes.empty())
        std::memcpy(&data[dataBytes], bytes.data(), bytes.size());
    dataBytes += bytes.size();
    std::fill_n(data.begin() + static_cast<std::ptrdiff_t>(dataBytes), kBitsMargin, std::uint8_t{0});
}

void MpegDecoder::State::DropOld() noexcept
{
    if (dataBytes <= kMpegReservoirBytes)
        return;
    std::memmove(data.data(), &data[dataBytes - kMpegReservoirBytes], kMpegReservoirBytes);
    dataBytes = kMpegReservoirBytes;
}

void MpegDecoder::State::DecodeLayer12(const MpegHeader& header, std::span<const std::byte> frame,
                                       float* out) noexcept
{
    dataBytes = 0; // nothing is carried over; the memory serves as the frame's copy
    Append(frame);
    MpegBits bits(data.data(), dataBytes);
    bits.Seek(8 * std::min(header.DataAt(), dataBytes));
    SubbandReader reader(header, bits);
    const unsigned pieceSlots = header.layer == 1 ? SubbandReader::kSlots1 : kLines;
    const unsigned channels = header.Channels();
    for (unsigned slot = 0; slot * kSubbands < header.Frames(); slot += pieceSlots) {
        reader.Read(slots);
        for (unsigned channel = 0; channel < channels; ++channel)
            filters[channel].Run(slots[channel], pieceSlots, out + channel, channels);
        out += std::size_t{pieceSlots} * kSubbands * channels;
    }
    dataBytes = 0;
}

/// Reads the granule's scale factors and codes; one whose data are not there stays empty.
/// @param bit where they begin in `data`, below 0 ahead of it; moved behind them
void MpegDecoder::State::ReadSpectra(const MpegHeader& header, const SideInfo& side, unsigned granule,
                                     std::ptrdiff_t& bit) noexcept
{
    constexpr unsigned kIntensityBit = 1;
    for (unsigned channel = 0; channel < header.Channels(); ++channel) {
        const GranuleInfo& info = side.granules[granule][channel];
        Spectrum& spectrum = spectra[channel];
        MpegBits bits(data.data(), dataBytes);
        if (bit < 0 || static_cast<std::size_t>(bit) > bits.SizeBits()) {
            spectrum = {};
        } else {
            bits.Seek(static_cast<std::size_t>(bit));
            const bool isIntensity =
                channel == 1 && header.mode == MpegMode::Joint && (header.modeExtension & kIntensityBit) != 0;
            ReadGranule(header, info, granule == 1 ? &side.sharesScaleFactors[channel] : nullptr, isIntensity,
                        bits, spectrum);
        }
        bit += static_cast<std::ptrdiff_t>(info.bits);
    }
}

void MpegDecoder::State::Synthesize(const MpegHeader& header,
                                    const std::array<GranuleInfo, kMostChannels>& granules,
                                    float* out) noexcept
{
    const unsigned channels = header.Channels();
    if (channels == 2)
        ToLeftRight(header, granules, spectra);
    for (unsigned channel = 0; channel < channels; ++channel) {
        const GranuleInfo& info = granules[channel];
        unsigned subbands = ToLines(spectra[channel], info, LayoutFor(header, info), lines);
        if (!info.IsShort() && subbands != 0) {
            subbands = std::min(subbands + 1, kSubbands);
            ReduceAliases(lines, subbands - 1);
        } else if (info.isMixed) {
            ReduceAliases(lines, 1);
            subbands = std::max(subbands, 2u);
        }
        hybrids[channel].Run(lines, subbands, info.type, info.isMixed, slots[channel]);
        filters[channel].Run(slots[channel], kLines, out + channel, channels);
    }
}

void MpegDecoder::State::DecodeLayer3(const MpegHeader& header, std::span<const std::byte> frame,
                                      float* out) noexcept
{
    SideInfo side;
    const auto body = frame.subspan(std::min(header.DataAt(), frame.size()));
    const bool good = ParseSideInfo(header, body, side);
    if (!good)
        side = {};
    const std::size_t held = dataBytes;
    Append(body.subspan(std::min(header.SideInfoBytes(), body.size())));
    std::ptrdiff_t bit = 8 * (static_cast<std::ptrdiff_t>(held) - static_cast<std::ptrdiff_t>(side.dataBack));
    for (unsigned granule = 0; granule * kGranuleFrames < header.Frames(); ++granule) {
        if (good)
            ReadSpectra(header, side, granule, bit);
        else
            spectra = {};
        Synthesize(header, side.granules[granule], out);
        out += kGranuleFrames * header.Channels();
    }
    DropOld();
}

MpegDecoder::MpegDecoder() : state_(std::make_unique<State>())
{
    GetHuffmanTables(); // so that decoding finds them made
}

MpegDecoder::~MpegDecoder() = default;

void MpegDecoder::Reset() noexcept
{
    state_->dataBytes = 0;
    state_->spectra = {};
    for (HybridFilter& hybrid : state_->hybrids)
        hybrid.Reset();
    for (SynthesisFilter& filter : state_->filters)
        filter.Reset();
}

std::size_t MpegDecoder::Decode(const MpegHeader& header, std::span<const std::byte> frame,
                                std::span<float> out) noexcept
{
    if (out.size() < header.Frames() * header.Channels())
        return 0;
    frame = frame.first(std::min(frame.size(), kMpegMostBytes));
    state_->SettleChannels(header.Channels());
    if (header.layer == 3)
        state_->DecodeLayer3(header, frame, out.data());
    else
        state_->DecodeLayer12(header, frame, out.data());
    return header.Frames();
}

void MpegDecoder::Feed(const MpegHeader& header, std::span<const std::byte> frame) noexcept
{
    if (header.layer != 3)
        return;
    const std::size_t skipped = header.DataAt() + header.SideInfoBytes();
    state_->Append(frame.subspan(std::min(skipped, frame.size()))
                       .first(std::min(frame.size() - std::min(skipped, frame.size()), kMpegMostBytes)));
    state_->DropOld();
}

} // namespace vimbo
