#include "base/range_copy.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

namespace vimbo {
namespace {

/// Larger steps gain nothing; with much smaller ones the system's own work for each is most of the time.
constexpr std::uint64_t kStepBytes = 0x100000;

std::uint64_t EndOf(const RangeCopy::Range& range) noexcept
{
    return range.to + range.bytes;
}

} // namespace

RangeCopy::RangeCopy(FileObject& out, std::vector<std::u16string> paths, std::vector<Range> ranges)
    : out_(out), paths_(std::move(paths)), ranges_(std::move(ranges)), left_(ranges_.size())
{
    for (std::size_t i = 0; i < ranges_.size(); ++i) {
        const Range& range = ranges_[i];
        assert(range.source < paths_.size() && range.held <= range.bytes);
        left_[i] = range.bytes;
        for (std::uint64_t begin = range.to; begin < EndOf(range);) {
            // Steps end at multiples of their size, so that they begin with whole pages.
            const std::uint64_t end = std::min(EndOf(range), (begin / kStepBytes + 1) * kStepBytes);
            const bool goesOn =
                !stretches_.empty() && stretches_.back().end == begin && begin % kStepBytes != 0;
            if (goesOn)
                stretches_.back().end = end;
            else
                stretches_.push_back({i, begin, end});
            begin = end;
        }
    }
}

bool RangeCopy::Write(const Stretch& stretch, std::span<const std::byte> bytes) noexcept
{
    const std::lock_guard lock(mutex_);
    if (out_.Seek(stretch.begin) && out_.WriteAll(bytes))
        return true;
    isWritten_ = false;
    isStopped_ = true;
    return false;
}

RangeCopy::Helper::Helper(RangeCopy& copy) : copy_(copy)
{
    std::uint64_t most = 0;
    for (const Stretch& stretch : copy.stretches_)
        most = std::max(most, stretch.end - stretch.begin);
    buffer_ = std::make_unique_for_overwrite<std::byte[]>(static_cast<std::size_t>(most));
}

bool RangeCopy::Helper::Step() noexcept
{
    const std::size_t number = copy_.isStopped_ ? copy_.stretches_.size() : copy_.next_++;
    if (number >= copy_.stretches_.size())
        return false;
    const Stretch& stretch = copy_.stretches_[number];
    copy_.at_ = stretch.range;
    const std::span bytes(buffer_.get(), static_cast<std::size_t>(stretch.end - stretch.begin));
    std::uint64_t place = stretch.begin;
    for (std::size_t i = stretch.range; place < stretch.end; ++i) {
        const Range& range = copy_.ranges_[i];
        const std::uint64_t end = std::min(stretch.end, EndOf(range));
        const auto part = bytes.subspan(static_cast<std::size_t>(place - stretch.begin),
                                        static_cast<std::size_t>(end - place));
        if (Fill(range, place - range.to, part))
            copy_.left_[i] -= part.size();
        place = end;
    }
    return copy_.Write(stretch, bytes);
}

/// Zeros if the bytes can't be read.
bool RangeCopy::Helper::Fill(const Range& range, std::uint64_t first, std::span<std::byte> out) noexcept
{
    const std::uint64_t held = range.held - std::min(range.held, first);
    auto bytes = static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), held));
    bool isRead = true;
    try {
        isRead = bytes == 0 || Read(range, first, out.first(bytes));
    } catch (const std::bad_alloc&) {
        isRead = false;
    }
    if (!isRead)
        bytes = 0;
    std::memset(out.data() + bytes, 0, out.size() - bytes);
    return isRead;
}

bool RangeCopy::Helper::Read(const Range& range, std::uint64_t first, std::span<std::byte> out)
{
    if (opened_ != range.source) {
        opened_.reset();
        if (!source_.Open(copy_.paths_[range.source], FileMode::Read))
            return false;
        opened_ = range.source;
    }
    return source_.Seek(range.from + first) && source_.ReadExact(out);
}

} // namespace vimbo
