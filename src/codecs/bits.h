// Shared vocabulary of the sample codecs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

/// How codes that are no whole bytes lie in the bytes of a stream.
enum class BitPacking : std::uint8_t {
    BigEndian,   ///< each byte is filled from its top bit
    LittleEndian ///< each byte is filled from its lowest bit
};

/// Takes codes of 1 to 8 bits off a span of bytes. Past the end every code is 0 and Ended() is true.
class CodeReader {
public:
    CodeReader(std::span<const std::byte> bytes, BitPacking packing) noexcept
        : bytes_(bytes), packing_(packing)
    {
    }

    bool Ended() const noexcept { return ended_; }

    unsigned Take(unsigned bits) noexcept
    {
        while (held_ < bits) {
            const unsigned next = at_ < bytes_.size() ? std::to_integer<unsigned>(bytes_[at_]) : 0;
            ended_ = ended_ || at_ >= bytes_.size();
            ++at_;
            if (packing_ == BitPacking::BigEndian)
                store_ = (store_ << 8 | next) & 0xFFFF;
            else
                store_ |= next << held_;
            held_ += 8;
        }
        held_ -= bits;
        const unsigned mask = (1u << bits) - 1;
        if (packing_ == BitPacking::BigEndian)
            return store_ >> held_ & mask;
        const unsigned code = store_ & mask;
        store_ >>= bits;
        return code;
    }

private:
    std::span<const std::byte> bytes_;
    std::size_t at_ = 0;
    unsigned store_ = 0;
    unsigned held_ = 0;
    BitPacking packing_;
    bool ended_ = false;
};

/// Packs codes of 1 to 8 bits into a span of bytes. What does not fit is dropped.
class CodeWriter {
public:
    CodeWriter(std::span<std::byte> bytes, BitPacking packing) noexcept : bytes_(bytes), packing_(packing) {}

    void Put(unsigned code, unsigned bits) noexcept
    {
        const unsigned value = code & ((1u << bits) - 1);
        if (packing_ == BitPacking::BigEndian)
            store_ = store_ << bits | value;
        else
            store_ |= value << held_;
        held_ += bits;
        while (held_ >= 8) {
            held_ -= 8;
            if (packing_ == BitPacking::BigEndian) {
                Emit(store_ >> held_);
            } else {
                Emit(store_);
                store_ >>= 8;
            }
        }
        if (packing_ == BitPacking::BigEndian)
            store_ &= (1u << held_) - 1;
    }

    /// Writes the last, partly filled byte with zero bits behind; returns bytes written in all.
    std::size_t Finish() noexcept
    {
        if (held_ > 0)
            Emit(packing_ == BitPacking::BigEndian ? store_ << (8 - held_) : store_);
        held_ = 0;
        store_ = 0;
        return at_;
    }

private:
    void Emit(unsigned value) noexcept
    {
        if (at_ < bytes_.size())
            bytes_[at_++] = static_cast<std::byte>(value & 0xFF);
    }

    std::span<std::byte> bytes_;
    std::size_t at_ = 0;
    unsigned store_ = 0;
    unsigned held_ = 0;
    BitPacking packing_;
};

/// The eight codes of `Bits` bits each (1 to 8) that `Bits` bytes hold: the fast way through a long stream.
template <unsigned Bits, BitPacking Packing>
inline void SplitEight(std::span<const std::byte, Bits> bytes, std::span<std::uint8_t, 8> codes) noexcept
{
    std::uint64_t store = 0;
    for (unsigned i = 0; i < Bits; ++i) {
        const unsigned place = Packing == BitPacking::BigEndian ? Bits - 1 - i : i;
        store |= std::to_integer<std::uint64_t>(bytes[i]) << (8 * place);
    }
    for (unsigned i = 0; i < 8; ++i) {
        const unsigned place = Packing == BitPacking::BigEndian ? 7 - i : i;
        codes[i] = static_cast<std::uint8_t>(store >> (Bits * place) & ((1u << Bits) - 1));
    }
}

/// As many codes as `codes` has room for, from the start of `bytes`; 0 where these have ended.
template <unsigned Bits, BitPacking Packing>
void SplitCodes(std::span<const std::byte> bytes, std::span<std::uint8_t> codes) noexcept
{
    while (codes.size() >= 8 && bytes.size() >= Bits) {
        SplitEight<Bits, Packing>(bytes.template first<Bits>(), codes.template first<8>());
        bytes = bytes.subspan(Bits);
        codes = codes.subspan(8);
    }
    CodeReader rest(bytes, Packing);
    for (std::uint8_t& code : codes)
        code = static_cast<std::uint8_t>(rest.Take(Bits));
}

} // namespace vimbo
