// MPEG audio frames with random contents, for what encoders at hand never make: layer I, intensity stereo,
// mixed blocks, every Huffman table.
#pragma once

#include "codecs/mpeg_header.h"
#include "codecs/mpeg_huffman_codes.h"
#include "codecs/mpeg_tables.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace vimbo::testing {

class BitString {
public:
    void Put(std::uint32_t value, unsigned bits)
    {
        for (unsigned i = bits; i-- > 0;)
            bits_.push_back((value >> i & 1) != 0);
    }
    void PutCode(const std::string& code)
    {
        for (const char c : code)
            bits_.push_back(c == '1');
    }
    void Append(const BitString& other) { bits_.insert(bits_.end(), other.bits_.begin(), other.bits_.end()); }
    std::size_t Size() const { return bits_.size(); }
    /// Filled up with zeros.
    std::vector<std::byte> Bytes(std::size_t count) const
    {
        std::vector<std::byte> bytes(count);
        for (std::size_t i = 0; i < bits_.size() && i < 8 * count; ++i)
            bytes[i / 8] |= static_cast<std::byte>((bits_[i] ? 0x80 : 0) >> (i % 8));
        return bytes;
    }

private:
    std::vector<bool> bits_;
};

struct FrameShape {
    unsigned version = 3; ///< as in the header: 3 is MPEG 1, 2 MPEG 2, 0 MPEG 2.5
    unsigned layer = 3;
    unsigned rateIndex = 0;
    unsigned bitRateIndex = 14;
    unsigned mode = 0; ///< as in the header
    unsigned modeExtension = 0;
    bool hasCrc = false;
    unsigned blockType = 0; ///< layer III
    bool isMixed = false;
};

class FrameMaker {
public:
    explicit FrameMaker(unsigned seed) : random_(seed) {}

    std::vector<std::byte> Make(const FrameShape& shape)
    {
        BitString bits;
        bits.Put(0x7FF, 11);
        bits.Put(shape.version, 2);
        bits.Put(4 - shape.layer, 2);
        bits.Put(shape.hasCrc ? 0 : 1, 1);
        bits.Put(shape.bitRateIndex, 4);
        bits.Put(shape.rateIndex, 2);
        bits.Put(0, 2); // no padding
        bits.Put(shape.mode, 2);
        bits.Put(shape.modeExtension, 2);
        bits.Put(0, 4);
        const bool isRight = ParseMpegHeader(bits.Bytes(4), header_);
        if (!isRight)
            return {};
        if (shape.hasCrc)
            bits.Put(0, 16);
        if (shape.layer == 3)
            AddLayer3(shape, bits);
        else
            AddLayer12(bits);
        return bits.Bytes(header_.FrameBytes());
    }

private:
    struct Granule {
        BitString side;
        BitString data;
    };

    unsigned Any(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }

    void AddLayer12(BitString& bits)
    {
        const unsigned channels = header_.Channels();
        // Few bits of allocation, so that all fits: what is random behind it needs no more thought.
        const bool isFirst = header_.layer == 1;
        const unsigned bound = header_.mode == MpegMode::Joint ? 4 * (header_.modeExtension + 1u) : 32;
        if (isFirst) {
            std::vector<bool> coded;
            for (unsigned sb = 0; sb < 32; ++sb) {
                for (unsigned channel = 0; channel < (sb < bound ? channels : 1); ++channel) {
                    const unsigned allocation = sb < 12 ? Any(6) : 0;
                    bits.Put(allocation, 4);
                    coded.push_back(allocation != 0);
                    if (sb >= bound && channels == 2)
                        coded.push_back(allocation != 0);
                }
            }
            for (const bool is : coded)
                if (is)
                    bits.Put(12 + Any(40), 6);
        }
        while (bits.Size() < 8 * header_.FrameBytes())
            bits.Put(Any(2), 1);
    }

    void AddLayer3(const FrameShape& shape, BitString& bits)
    {
        const unsigned channels = header_.Channels();
        const bool isLow = header_.IsLow();
        BitString data;
        bits.Put(0, isLow ? 8 : 9); // no bits of earlier frames
        bits.Put(0, isLow ? channels : channels == 1 ? 5 : 3);
        shares_ = {};
        if (!isLow)
            for (unsigned channel = 0; channel < channels; ++channel)
                for (unsigned i = 0; i < 4; ++i) {
                    shares_[channel][i] = shape.blockType != 2 && Any(3) == 0;
                    bits.Put(shares_[channel][i] ? 1 : 0, 1);
                }
        for (unsigned granule = 0; granule < (isLow ? 1 : 2); ++granule)
            for (unsigned channel = 0; channel < channels; ++channel) {
                Granule made = MakeGranule(shape, granule, channel);
                bits.Append(made.side);
                data.Append(made.data);
            }
        bits.Append(data);
    }

    /// Sizes and values of the scale factors. @return scalefac_compress
    unsigned AddScaleFactors(const FrameShape& shape, unsigned granule, unsigned channel, BitString& data)
    {
        const unsigned kind = shape.blockType != 2 ? 0 : shape.isMixed ? 2 : 1;
        const bool isIntensity = channel == 1 && shape.mode == 1 && (shape.modeExtension & 1) != 0;
        if (!header_.IsLow()) {
            const unsigned choice = Any(16);
            const auto [low, high] = mpeg::kScaleFactorBits[choice];
            const std::vector<unsigned> counts = kind == 0   ? std::vector<unsigned>{6, 5, 5, 5}
                                                 : kind == 1 ? std::vector<unsigned>{9, 9, 9, 9}
                                                             : std::vector<unsigned>{9, 8, 9, 9};
            for (unsigned part = 0; part < 4; ++part)
                for (unsigned i = 0; i < counts[part]; ++i)
                    if (granule == 0 || !shares_[channel][part])
                        PutFactor(data, part < 2 ? low : high, false);
            return choice;
        }
        // 13818-3, 2.4.3.2: the first row, and the third of intensity
        const std::vector<unsigned> bits = isIntensity
                                               ? std::vector<unsigned>{Any(5), Any(6), Any(6), 0}
                                               : std::vector<unsigned>{Any(4), Any(4), Any(4), Any(4)};
        const mpeg::PartSizes& sizes = mpeg::kScaleFactorParts[isIntensity ? 3 : 0][kind];
        for (unsigned part = 0; part < 4; ++part)
            for (unsigned i = 0; i < sizes[part]; ++i)
                PutFactor(data, std::min(bits[part], 3u), isIntensity, bits[part]);
        return isIntensity ? (bits[0] * 36 + bits[1] * 6 + bits[2]) * 2 + Any(2)
                           : ((bits[0] * 5 + bits[1]) << 4 | bits[2] << 2 | bits[3]);
    }

    /// Positions of intensity stereo stay below the one that says that there is none: decoders disagree on
    /// it.
    void PutFactor(BitString& data, unsigned valueBits, bool isPosition, unsigned width = ~0u)
    {
        const unsigned count = 1u << valueBits;
        data.Put(Any(isPosition && count > 1 ? count - 1 : count), width == ~0u ? valueBits : width);
    }

    static std::vector<std::vector<std::string>> Codes(std::span<const std::string_view> rows)
    {
        std::vector<std::vector<std::string>> codes;
        for (const std::string_view row : rows) {
            std::istringstream in{std::string(row)};
            codes.emplace_back(std::istream_iterator<std::string>(in), std::istream_iterator<std::string>());
        }
        return codes;
    }

    void PutPairs(BitString& data, unsigned table, unsigned pairs)
    {
        using namespace mpeg;
        static const std::vector<std::span<const std::string_view>> kTables = {
            {},       kCodes1,  kCodes2,  kCodes3,  {},       kCodes5,  kCodes6,  kCodes7,
            kCodes8,  kCodes9,  kCodes10, kCodes11, kCodes12, kCodes13, {},       kCodes15,
            kCodes16, kCodes16, kCodes16, kCodes16, kCodes16, kCodes16, kCodes16, kCodes16,
            kCodes24, kCodes24, kCodes24, kCodes24, kCodes24, kCodes24, kCodes24, kCodes24};
        constexpr unsigned kLinbits[] = {1, 2, 3, 4, 6, 8, 10, 13, 4, 5, 6, 7, 8, 9, 11, 13};
        const auto codes = Codes(kTables[table]);
        for (unsigned i = 0; i < pairs && !codes.empty(); ++i) {
            const auto limit = static_cast<unsigned>(codes.size());
            const unsigned x = Any(limit), y = Any(limit);
            data.PutCode(codes[x][y]);
            for (const unsigned value : {x, y}) {
                if (table >= 16 && value == 15)
                    data.Put(Any(8) & ((1u << kLinbits[table - 16]) - 1), kLinbits[table - 16]);
                if (value != 0)
                    data.Put(Any(2), 1);
            }
        }
    }

    Granule MakeGranule(const FrameShape& shape, unsigned granule, unsigned channel)
    {
        Granule made;
        BitString data;
        const unsigned choice = AddScaleFactors(shape, granule, channel, data);
        const bool isQuiet = channel == 1 && (shape.modeExtension & 1) != 0;
        const unsigned pairs = isQuiet ? 9 : 20 + Any(16);
        BitString& side = made.side;
        const auto& edges = mpeg::kBandEdges[3 * static_cast<unsigned>(header_.version) + header_.rateIndex];
        unsigned ends[3] = {};
        unsigned tables[3];
        for (unsigned& table : tables)
            do
                table = Any(32);
            while (table == 4 || table == 14);
        BitString regions;
        if (shape.blockType != 0) {
            regions.Put(shape.blockType, 2);
            regions.Put(shape.isMixed ? 1 : 0, 1);
            regions.Put(tables[0], 5);
            regions.Put(tables[1], 5);
            for (unsigned i = 0; i < 3; ++i)
                regions.Put(Any(3), 3);
            const bool isLowest = header_.version == MpegVersion::Mpeg25 && header_.rateIndex == 2;
            ends[0] = shape.blockType != 2 ? edges.longs[8] : isLowest ? 72 : 36;
            ends[1] = 576;
        } else {
            for (const unsigned table : tables)
                regions.Put(table, 5);
            const unsigned first = Any(4), second = Any(3);
            regions.Put(first, 4);
            regions.Put(second, 3);
            ends[0] = edges.longs[first + 1];
            ends[1] = edges.longs[first + second + 2];
        }
        ends[2] = 576;
        unsigned line = 0;
        for (unsigned region = 0; region < 3; ++region) {
            const unsigned end = std::max(line, std::min(ends[region], 2 * pairs));
            PutPairs(data, tables[region], (end - line) / 2);
            line = end;
        }
        const unsigned quadTable = Any(2);
        const auto quads = Codes(quadTable == 0 ? std::span(mpeg::kCodesA) : std::span(mpeg::kCodesB));
        for (unsigned i = 0; i < (isQuiet ? 0 : 6); ++i) {
            const unsigned values = Any(16);
            data.PutCode(quads[0][values]);
            for (unsigned value = 8; value != 0; value /= 2)
                if ((values & value) != 0)
                    data.Put(Any(2), 1);
        }
        side.Put(static_cast<std::uint32_t>(data.Size()), 12);
        side.Put(pairs, 9);
        side.Put(150 + Any(12), 8);
        side.Put(choice, header_.IsLow() ? 9 : 4);
        side.Put(shape.blockType != 0 ? 1 : 0, 1);
        side.Append(regions);
        if (!header_.IsLow())
            side.Put(shape.blockType != 2 ? Any(2) : 0, 1);
        side.Put(Any(2), 1);
        side.Put(quadTable, 1);
        made.data = std::move(data);
        return made;
    }

    std::mt19937 random_;
    MpegHeader header_;
    std::array<std::array<bool, 4>, 2> shares_{};
};

} // namespace vimbo::testing
