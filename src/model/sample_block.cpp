#include "model/sample_block.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace vimbo {
namespace {

constexpr std::size_t kAlignment = 16;
constexpr std::size_t kGuardFramesAfter = 3;
/// The guard frame before frame 0 takes a whole unit of alignment, so that frame 0 is aligned too.
constexpr std::size_t kGuardSamplesBefore = kAlignment / sizeof(float);
constexpr std::size_t kMaxGuardedChannels = kGuardSamplesBefore;
constexpr std::size_t kHeadBytes = (sizeof(SampleBlock) + kAlignment - 1) / kAlignment * kAlignment;

} // namespace

SampleBlockRef SampleBlockRef::Allocate(std::uint32_t frames, unsigned channels, float rateHz) noexcept
{
    SampleBlockRef ref;
    if (channels == 0 || channels > kMaxGuardedChannels)
        return ref;
    const std::uint64_t samples = std::uint64_t{frames} * channels;
    const std::uint64_t after = std::uint64_t{kGuardFramesAfter} * channels;
    const std::uint64_t bytes = kHeadBytes + (kGuardSamplesBefore + samples + after) * sizeof(float);
    if (bytes > std::size_t(-1) / 2)
        return ref;
    void* const memory =
        ::operator new (static_cast<std::size_t>(bytes), std::align_val_t{kAlignment}, std::nothrow);
    if (memory == nullptr)
        return ref;

    auto* const block = new (memory) SampleBlock();
    auto* const guard = static_cast<float*>(static_cast<void*>(static_cast<std::byte*>(memory) + kHeadBytes));
    block->data_ = guard + kGuardSamplesBefore;
    block->frames_ = frames;
    block->channels_ = static_cast<std::uint8_t>(channels);
    block->rateHz_ = rateHz;
    std::memset(guard, 0, kGuardSamplesBefore * sizeof(float));
    std::memset(block->data_ + samples, 0, static_cast<std::size_t>(after) * sizeof(float));
    ref.block_ = block;
    return ref;
}

SampleBlockRef::SampleBlockRef(const SampleBlockRef& other) noexcept : block_(other.block_)
{
    if (block_ != nullptr)
        block_->refCount_.fetch_add(1, std::memory_order_relaxed);
}

SampleBlockRef& SampleBlockRef::operator=(SampleBlockRef other) noexcept
{
    std::swap(block_, other.block_);
    return *this;
}

SampleBlockRef::~SampleBlockRef()
{
    // Release: this thread's reads are over before another thread frees the memory; acquire: the other way
    // round.
    if (block_ == nullptr || block_->refCount_.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    block_->~SampleBlock();
    ::operator delete (block_, std::align_val_t{kAlignment});
}

} // namespace vimbo
