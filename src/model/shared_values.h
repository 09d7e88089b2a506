// The values of articulation blocks: copies share them until one is changed, as most regions of a layer, and
// most layers of a bank, hold the same.
#pragma once

#include "model/param_ids.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <utility>

namespace vimbo {

/// Copying copies a pointer. Copies may be used on different threads, one of them not.
class SharedValues {
public:
    using Array = std::array<float, kArticulationParams>;

    /// The defaults of the parameter table, which need no memory.
    SharedValues() noexcept : held_(&defaults_) {}
    SharedValues(const SharedValues& other) noexcept : held_(other.held_) { Retain(); }
    SharedValues(SharedValues&& other) noexcept : held_(std::exchange(other.held_, &defaults_)) {}
    SharedValues& operator=(const SharedValues& other) noexcept
    {
        if (held_ != other.held_)
            *this = SharedValues(other);
        return *this;
    }
    SharedValues& operator=(SharedValues&& other) noexcept
    {
        std::swap(held_, other.held_);
        return *this;
    }
    ~SharedValues() { Release(); }

    const Array& Get() const noexcept { return held_->values; }
    /// To be changed: values that others share are copied first.
    Array& Own()
    {
        if (held_ == &defaults_ || held_->owners.load(std::memory_order_acquire) != 1)
            *this = SharedValues(new Held(held_->values));
        return held_->values;
    }
    /// True if both are the same copy; values may be equal without it.
    bool IsSharedWith(const SharedValues& other) const noexcept { return held_ == other.held_; }

private:
    struct Held {
        constexpr explicit Held(const Array& from) noexcept : values(from) {}
        Array values;
        std::atomic<std::uint32_t> owners{1};
    };

    explicit SharedValues(Held* held) noexcept : held_(held) {}
    void Retain() const noexcept
    {
        if (held_ != &defaults_)
            held_->owners.fetch_add(1, std::memory_order_relaxed);
    }
    void Release() const noexcept
    {
        if (held_ != &defaults_ && held_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete held_;
    }

    static Held defaults_; ///< never changed, not counted
    Held* held_;
};

} // namespace vimbo
