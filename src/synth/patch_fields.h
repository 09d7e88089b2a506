// Fields of patch records, described once for both directions: FromRecord limits what it reads, ToRecord what
// it writes, so that reading gives back what was written.
#pragma once

#include "base/packed.h"
#include "synth/point_envelope.h"
#include "synth/synth_math.h"

namespace vimbo::synth {

struct LevelPointRecord {
    F32le level, seconds;
};

inline constexpr float kLongestPoint = 100; ///< seconds

/// The factor of times per octave: 0.25 to 4; what cannot be a factor, such as 0, counts as 1.
constexpr float LimitedTimeFactor(float value) noexcept
{
    return value > 0 ? Limited(value, 0.25f, 4.0f) : 1.0f;
}

struct FromRecord {
    template <class T>
    using From = const T;
    template <class T>
    using Of = T;

    void operator()(const F32le& field, float& value, float lowest, float highest) const noexcept
    {
        value = Limited(field.Get(), lowest, highest);
    }
    void Factor(const F32le& field, float& value) const noexcept { value = LimitedTimeFactor(field.Get()); }
    template <class Raw, class T>
    void Byte(Raw field, T& value, T highest, T lowest = T{}) const noexcept
    {
        const auto limit = static_cast<Raw>(highest), least = static_cast<Raw>(lowest);
        value = static_cast<T>(field > limit ? limit : field < least ? least : field);
    }
    void Bit(std::uint8_t field, std::uint8_t bit, bool& value) const noexcept { value = (field & bit) != 0; }
    template <class Field, class T>
    void Raw(const Field& field, T& value) const noexcept
    {
        value = field.Get();
    }
};

struct ToRecord {
    template <class T>
    using From = T;
    template <class T>
    using Of = const T;

    void operator()(F32le& field, float value, float lowest, float highest) const noexcept
    {
        field = Limited(value, lowest, highest);
    }
    void Factor(F32le& field, float value) const noexcept { field = LimitedTimeFactor(value); }
    template <class Raw, class T>
    void Byte(Raw& field, T value, T highest, T lowest = T{}) const noexcept
    {
        field = static_cast<Raw>(value > highest ? highest : value < lowest ? lowest : value);
    }
    void Bit(std::uint8_t& field, std::uint8_t bit, bool value) const noexcept
    {
        field = static_cast<std::uint8_t>(value ? field | bit : field & ~bit);
    }
    template <class Field, class T>
    void Raw(Field& field, T value) const noexcept
    {
        field = value;
    }
};

template <class Transfer>
void TransferPoint(Transfer t, typename Transfer::template From<LevelPointRecord>& record,
                   typename Transfer::template Of<LevelPoint>& point, float lowest) noexcept
{
    t(record.level, point.level, lowest, 1);
    t(record.seconds, point.seconds, 0, kLongestPoint);
}

} // namespace vimbo::synth
