// Float samples in memory, shared between waveforms, the engine and the algorithms.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

class SampleBlockRef;

/// Interleaved float frames, 16-byte aligned, with one zeroed guard frame before the first and three behind
/// the last, so that interpolating readers need no bounds tests. Made by SampleBlockRef::Allocate; the last
/// reference frees it.
class SampleBlock {
public:
    std::uint32_t Frames() const noexcept { return frames_; }
    unsigned Channels() const noexcept { return channels_; }
    float RateHz() const noexcept { return rateHz_; }
    void SetRateHz(float rate) noexcept { rateHz_ = rate; }

    /// frames * channels samples, guards not included.
    std::span<float> Samples() noexcept { return {data_, SampleCount()}; }
    std::span<const float> Samples() const noexcept { return {data_, SampleCount()}; }

private:
    friend class SampleBlockRef;
    SampleBlock() = default;
    std::size_t SampleCount() const noexcept { return std::size_t{frames_} * channels_; }

    std::atomic<std::uint32_t> refCount_ = 1;
    float* data_ = nullptr; ///< frame 0, inside the block's one allocation
    std::uint32_t frames_ = 0;
    std::uint8_t channels_ = 1;
    float rateHz_ = 0;
};

/// Counted reference to a SampleBlock; empty by default.
class SampleBlockRef {
public:
    SampleBlockRef() noexcept = default;
    SampleBlockRef(const SampleBlockRef& other) noexcept;
    SampleBlockRef(SampleBlockRef&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
    SampleBlockRef& operator=(SampleBlockRef other) noexcept;
    ~SampleBlockRef();

    /// A block with undefined samples and zeroed guards; empty if memory runs out or channels is not 1 to 4.
    static SampleBlockRef Allocate(std::uint32_t frames, unsigned channels, float rateHz) noexcept;

    SampleBlock* Get() const noexcept { return block_; }
    SampleBlock* operator->() const noexcept { return block_; }
    SampleBlock& operator*() const noexcept { return *block_; }
    explicit operator bool() const noexcept { return block_ != nullptr; }

private:
    SampleBlock* block_ = nullptr;
};

} // namespace vimbo
