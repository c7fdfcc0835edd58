#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/data/file.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/tileref.h>

#include "heightpyramid.h"
#include "oldterrainheights.h"
#include "tilesamples.h"
#include "tilethreads.h"

namespace NBX {
class Progress;
}

namespace ZMT::CORE::GRID {

/// What all tiles of a terrain that is written have in common.
struct GridTerrainPlan {
    std::uint32_t tileLevel = 0, treeDepth = 0;
    HeightScale scale{};
    /// The finest depth at which the source has heights of its own: below, they only lie between these.
    std::uint32_t sourceDepth = 0;
};

/// Writes the blocks of the tiles. They are made row by row: as soon as two rows of tiles are written, the
/// row of their parents follows, so that little is kept and children stand in front of their parents.
class GridTerrainWriter {
public:
    /// Blocks go to the position of `file`. `old` may be null. All is borrowed.
    GridTerrainWriter(const GridTerrainPlan & plan, const HeightSource & source, HeightPyramid & pyramid,
                      const OldTerrainHeights * old, TileThreads & threads, NBX::File & file);
    ~GridTerrainWriter();

    /// False when the user cancelled. Throws what source and file throw.
    bool write(NBX::Progress & progress);

    /// No block when nothing is defined.
    const TileRef & root() const { return root_; }
    const TerrainFileFormat::GridBox & rootBox() const { return rootBox_; }

private:
    /// At most so many tiles side by side are under way.
    static constexpr std::uint32_t s_tilesAtOnce = 256;

    /// A tile as its parent knows it.
    struct Written {
        TileRef ref;
        TerrainFileFormat::GridBox box{};
    };
    /// A tile on its way to the file.
    struct Finished {
        TileSamples tile;
        NBX::SO<NBX::DataResource> deflated; ///< null where the block is stored plain
        TileRef ref;                         ///< without a place
    };
    /// What lies at one depth.
    struct Depth {
        std::uint32_t firstColumn = 0, lastColumn = 0, firstRow = 0, lastRow = 0; ///< of tiles
        /// The samples of the row of tiles above those that are being written.
        std::vector<TileSamples> samples;
        std::uint32_t samplesRow = 0;
        bool hasSamples = false;
        /// The two rows of tiles whose parents are not written yet, even and odd.
        std::array<std::vector<Written>, 2> written;

        std::size_t columns() const { return std::size_t(lastColumn - firstColumn) + 1; }
    };
    /// A stretch of the finest row of tiles.
    struct Piece {
        std::uint32_t row = 0, firstColumn = 0;
        std::size_t columns = 0;
        LatticeRows rows;
        std::vector<float> heights;
        std::vector<OldTile> old;
    };

    TerrainFileFormat::TilePlace place(std::uint32_t depth, std::uint32_t column, std::uint32_t row) const;
    LatticeArea rowArea(std::uint32_t depth, std::uint32_t row) const;
    bool nextPiece(Piece & piece) const;
    void read(Piece & piece) const;
    void writePiece(const Piece & piece, Piece & next, bool hasNext);
    Finished finestTile(const Piece & piece, std::size_t i) const;
    void ensureSamples(std::uint32_t depth, std::uint32_t row);
    std::vector<bool> definedPlaces(std::uint32_t depth, const LatticeArea & rows) const;
    void completeSamples(TileSamples & tile, const OldTile * old, const std::vector<bool> * isOwn) const;
    const TileSamples * ancestor(const TileSamples & tile, std::uint32_t k) const;
    void addParents(std::uint32_t depth, std::uint32_t row);
    Finished innerTile(std::uint32_t depth, std::size_t i);
    bool addChildren(TileSamples & tile, std::array<TileRef, 4> & children) const;
    Finished finished(TileSamples && tile, const std::array<TileRef, 4> & children) const;
    Written put(const Finished & finished);

    const GridTerrainPlan plan_;
    const HeightSource & source_;
    HeightPyramid & pyramid_;
    const OldTerrainHeights * old_;
    TileThreads & threads_;
    NBX::File & file_;
    std::vector<Depth> depths_;
    std::uint64_t position_;
    std::vector<char> waiting_; ///< for the file
    TileRef root_;
    TerrainFileFormat::GridBox rootBox_{};
};

} // namespace ZMT::CORE::GRID
