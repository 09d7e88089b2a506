// What the files of the unit conversions share.
#pragma once

#include "formats/dls/dls.h"
#include "formats/dls/dls_units.h"
#include "model/envelope.h"

#include <algorithm>
#include <cmath>

namespace vimbo::dls {

/// The value as the block would store it.
float Stored(ParamId id, double value) noexcept;

/// Connections by their ends.
class ConnectionTable {
public:
    explicit ConnectionTable(std::span<const Connection> connections) noexcept : connections_(connections) {}

    /// The last one with these ends, or null.
    const Connection* Find(std::uint16_t source, std::uint16_t control,
                           std::uint16_t destination) const noexcept
    {
        for (std::size_t i = connections_.size(); i-- > 0;) {
            const Connection& at = connections_[i];
            if (at.source == source && at.control == control && at.destination == destination)
                return &at;
        }
        return nullptr;
    }
    const Connection* Find(std::uint16_t destination) const noexcept
    {
        return Find(kSrcNone, kSrcNone, destination);
    }

private:
    std::span<const Connection> connections_;
};

/// `otherwise` if there is no connection.
inline double LinearOf(const Connection* connection, double unit, double otherwise) noexcept
{
    if (connection == nullptr)
        return otherwise;
    return connection->scale == kScaleOfZero ? 0 : connection->scale / unit;
}
inline double TimeOf(const Connection* connection, double otherwise) noexcept
{
    return connection != nullptr ? SecondsOf(connection->scale) : otherwise;
}

// Envelopes and LFOs (dls_modulation.cpp).
void ReadLfos(const ConnectionTable& table, bool hasFilter, ArticulationBlock& out);
void ReadEnvelopes(const ConnectionTable& table, bool hasFilter, ArticulationBlock& out);
void WriteLfos(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out);
void WriteEnvelopes(const ArticulationBlock& block, std::uint32_t level, std::vector<Connection>& out);

} // namespace vimbo::dls
