// What a DLS bank says of its regions, and where they go in an instrument.
#pragma once

#include "formats/dls/dls_pool.h"
#include "formats/dls/dls_records.h"
#include "model/instrument.h"
#include "model/key_velocity_grid.h"

#include <optional>
#include <vector>

namespace vimbo::dls {

bool IsList(ChunkCursor& chunk, FourCc& type) noexcept;
/// True of the types of lists that ReadConnections takes.
bool IsArticulation(FourCc type) noexcept;
/// Appends the blocks of `art1` and `art2`.
void ReadConnections(ChunkCursor list, std::vector<Connection>& out);

/// A region as the file has it.
struct RegionParts {
    RegionHeader header{};
    unsigned layer = 0;
    WaveLink link{};
    bool hasLink = false;
    bool isConditional = false; ///< it is to be read by some devices only
    std::optional<SampleRecord> sample;
    std::vector<Connection> connections;
};
/// @param list  behind the type of a `rgn ` or `rgn2` list
RegionParts ReadRegion(ChunkCursor list);
/// Edges in any order, of 0 to 127.
MidiRange RangeOf(U16le low, U16le high) noexcept;

/// The layers of an instrument: those that the file numbers, and further ones for what overlaps.
class LayerStack {
public:
    explicit LayerStack(Instrument& instrument) noexcept : instrument_(instrument) {}

    /// Null if too many regions lie on top of each other.
    Layer* LayerFor(unsigned number, const Zone& zone);

private:
    struct Place {
        unsigned number;
        Layer* layer;
        KeyVelocityGrid grid;
    };
    Instrument& instrument_;
    std::vector<Place> layers_;
};

/// Regions of a phase group, from which pairs are to be found.
struct PhaseLink {
    Region* region;
    unsigned group;
    std::uint32_t channel;
    bool isMaster;
    bool saysPan;
};
/// A pair has one region at each side, of the same ranges; the left one leads. Its halves go to the sides,
/// unless they say where they stand. All others keep their group.
void SettlePhaseGroups(std::vector<PhaseLink>& links);

} // namespace vimbo::dls
