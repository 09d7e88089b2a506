// The blocks of several lanes turned so that a vector holds one frame of each, for recursions that cannot be
// vectorised along time. Internal to this folder.
#pragma once

#include "dsp/kernels/lane_vectors.h"

#include <array>

namespace vimbo {

inline constexpr std::size_t kTileFrames = 64;

/// `Groups` vectors of lanes; two of them in one loop hide each other's latency.
template <class V, std::size_t Groups>
struct LaneTile {
    static constexpr std::size_t kLanes = Groups * kWidth<V>;
    std::array<std::array<V, Groups>, kTileFrames> frames;

    /// lanes: kLanes pointers to kTileFrames samples.
    VIMBO_INLINE void Read(float* const* lanes) noexcept
    {
        for (std::size_t g = 0; g < Groups; ++g) {
            for (std::size_t f = 0; f < kTileFrames; f += 4) {
                V rows[4];
                for (std::size_t i = 0; i < 4; ++i) {
                    float* const* const lane = lanes + g * kWidth<V> + i;
                    LoadQuads(rows[i], lane[0] + f, lane[kWidth<V> - 4] + f);
                }
                Transpose(rows[0], rows[1], rows[2], rows[3]);
                for (std::size_t i = 0; i < 4; ++i)
                    frames[f + i][g] = rows[i];
            }
        }
    }

    VIMBO_INLINE void Write(float* const* lanes) noexcept
    {
        for (std::size_t g = 0; g < Groups; ++g) {
            for (std::size_t f = 0; f < kTileFrames; f += 4) {
                V rows[4];
                for (std::size_t i = 0; i < 4; ++i)
                    rows[i] = frames[f + i][g];
                Transpose(rows[0], rows[1], rows[2], rows[3]);
                for (std::size_t i = 0; i < 4; ++i) {
                    float* const* const lane = lanes + g * kWidth<V> + i;
                    StoreQuads(lane[0] + f, lane[kWidth<V> - 4] + f, rows[i]);
                }
            }
        }
    }
};

/// v[i] = field(i)
template <class V, class Field>
VIMBO_INLINE void GatherField(V& v, const Field& field) noexcept
{
    alignas(V) std::array<float, kWidth<V>> values;
    for (std::size_t i = 0; i < kWidth<V>; ++i)
        values[i] = field(i);
    Load(v, values.data());
}

/// field(i) = v[i]
template <class V, class Field>
VIMBO_INLINE void ScatterField(const V& v, const Field& field) noexcept
{
    alignas(V) std::array<float, kWidth<V>> values;
    Store(values.data(), v);
    for (std::size_t i = 0; i < kWidth<V>; ++i)
        field(i) = values[i];
}

/// Runs Chain<V> over the blocks of Groups * kWidth<V> lanes. A chain has Load(lanes), Step(V& sample) and
/// Save(lanes), each for kWidth<V> lanes; a lane has `samples`.
template <template <class> class Chain, class V, std::size_t Groups, class Lane>
VIMBO_INLINE void RunTile(const Lane* lanes) noexcept
{
    std::array<float*, Groups * kWidth<V>> samples;
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = lanes[i].samples;
    LaneTile<V, Groups> tile;
    tile.Read(samples.data());
    Chain<V> chain;
    chain.Load(lanes);
    if constexpr (Groups == 2) {
        Chain<V> second;
        second.Load(lanes + kWidth<V>);
        for (auto& frame : tile.frames) {
            chain.Step(frame[0]);
            second.Step(frame[1]);
        }
        second.Save(lanes + kWidth<V>);
    } else {
        for (auto& frame : tile.frames)
            chain.Step(frame[0]);
    }
    chain.Save(lanes);
    tile.Write(samples.data());
}

/// The same for any number of lanes, side by side as far as registers go. Places that are left over take the
/// lane `idle`, which must stay silent.
template <template <class> class Chain, Isa Version, class Lane>
VIMBO_INLINE void RunLanes(const Lane* lanes, std::size_t count, const Lane& idle) noexcept
{
    using V = Floats<Version>;
    constexpr std::size_t kLanes = 2 * kWidth<V>;
    for (std::size_t done = 0; done < count; done += kLanes) {
        std::array<Lane, kLanes> now;
        for (std::size_t i = 0; i < kLanes; ++i)
            now[i] = done + i < count ? lanes[done + i] : idle;
        if (count - done > kWidth<V>)
            RunTile<Chain, V, 2>(now.data());
        else
            RunTile<Chain, V, 1>(now.data());
    }
}

/// One lane after the other.
template <template <class> class Chain, class Lane>
void RunLanesPlain(const Lane* lanes, std::size_t count) noexcept
{
    for (std::size_t i = 0; i < count; ++i) {
        Chain<float> chain;
        chain.Load(lanes + i);
        for (std::size_t f = 0; f < kTileFrames; ++f)
            chain.Step(lanes[i].samples[f]);
        chain.Save(lanes + i);
    }
}

} // namespace vimbo
