// Timed MIDI events on their way to the thread that renders.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>

namespace vimbo::synth {

/// A MIDI message in one word: status, two data bytes, port; 0 is no event. Byte 0 is the lowest.
struct SynthEvent {
    std::uint32_t word = 0;

    static constexpr SynthEvent Make(unsigned status, unsigned data1, unsigned data2 = 0,
                                     unsigned port = 0) noexcept
    {
        return {(status & 0xFF) | (data1 & 0xFF) << 8 | (data2 & 0xFF) << 16 | (port & 0xFF) << 24};
    }
    constexpr unsigned Status() const noexcept { return word & 0xF0; }
    constexpr unsigned Data1() const noexcept { return word >> 8 & 0xFF; }
    constexpr unsigned Data2() const noexcept { return word >> 16 & 0xFF; }
    constexpr unsigned Channel() const noexcept { return (word >> 24) * 16 + (word & 0x0F); }
    friend constexpr bool operator==(SynthEvent, SynthEvent) noexcept = default;
};

/// 1024 slots, filled by any thread and read by one. Events come out in the order in which they were put in.
class EventRing {
public:
    static constexpr std::uint32_t kSlots = 1024;

    /// False if the ring is full; nothing is overwritten. Events of word 0 are ignored (true).
    bool Put(std::uint32_t block, SynthEvent event) noexcept
    {
        if (event.word == 0)
            return true;
        std::uint32_t place = write_.load(std::memory_order_relaxed);
        do {
            if (place - read_.load(std::memory_order_acquire) >= kSlots)
                return false;
        } while (!write_.compare_exchange_weak(place, place + 1, std::memory_order_acq_rel));
        // The event's word makes the slot full, so it shares one store with its block.
        slots_[place % kSlots].store(std::uint64_t{block} << 32 | event.word, std::memory_order_release);
        return true;
    }

    /// The next event if its block is not behind `block`.
    std::optional<SynthEvent> Take(std::uint32_t block) noexcept
    {
        const std::uint32_t place = read_.load(std::memory_order_relaxed);
        std::atomic<std::uint64_t>& slot = slots_[place % kSlots];
        const std::uint64_t value = slot.load(std::memory_order_acquire);
        if (value == 0 || value >> 32 > block)
            return std::nullopt;
        slot.store(0, std::memory_order_relaxed);
        read_.store(place + 1, std::memory_order_release);
        return SynthEvent{static_cast<std::uint32_t>(value)};
    }

    /// Drops what is in the ring; for the thread that takes.
    void Clear() noexcept
    {
        while (Take(std::numeric_limits<std::uint32_t>::max())) {
        }
    }

private:
    std::array<std::atomic<std::uint64_t>, kSlots> slots_{};
    alignas(64) std::atomic<std::uint32_t> write_{0};
    alignas(64) std::atomic<std::uint32_t> read_{0};
};

} // namespace vimbo::synth
