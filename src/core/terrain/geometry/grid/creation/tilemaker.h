#pragma once

#include <cstdint>
#include <vector>

#include "heightlevels.h"
#include "oldterrainheights.h"
#include "tilerows.h"
#include "tilesamples.h"
#include "tilesink.h"
#include "tilethreads.h"

namespace NBX {
class Progress;
}

namespace ZMT::CORE::GRID {

/// Makes the tiles of a terrain, row by row.
class TileMaker {
public:
    struct Heights {
        const HeightSource & source;
        HeightLevels & levels;
        const OldTerrainHeights * old; ///< may be null
        HeightScale scale;
        /// The finest depth at which the source has heights of its own: below, they only lie between these.
        std::uint32_t sourceDepth;
    };

    /// All is borrowed.
    TileMaker(const Heights & heights, const TileRows & rows, TileThreads & threads);
    ~TileMaker();

    /// Makes `count` rows of the finest tiles from `firstRow` on, and the inner tiles that follow them. False
    /// when the user cancelled. Throws what source, levels and `sink` throw.
    bool make(std::uint32_t firstRow, std::uint32_t count, TileSink & sink, NBX::Progress & progress);

private:
    /// What lies at one depth.
    struct Depth {
        /// The samples of the row of tiles above those that are being made.
        std::vector<TileSamples> samples;
        std::uint32_t samplesRow = 0;
        bool hasSamples = false;
    };
    /// A stretch of the finest row of tiles.
    struct Piece {
        std::uint32_t row = 0, firstColumn = 0;
        std::uint32_t columns = 0;
        LatticeRows rows;
        std::vector<float> heights;
        std::vector<OldTile> old;
    };

    LatticeArea rowArea(std::uint32_t depth, std::uint32_t row) const;
    bool nextPiece(Piece & piece, std::uint32_t endRow) const;
    void read(Piece & piece) const;
    void makePiece(const Piece & piece, Piece & next, bool hasNext, TileSink & sink);
    MadeTile finestTile(const Piece & piece, std::size_t i) const;
    void ensureSamples(std::uint32_t depth, std::uint32_t row);
    std::vector<bool> definedPlaces(std::uint32_t depth, const LatticeArea & rows) const;
    void completeSamples(TileSamples & tile, const OldTile * old, const std::vector<bool> * isOwn) const;
    const TileSamples * ancestor(const TileSamples & tile, std::uint32_t k) const;
    void addBorders(TileSamples & tile) const;
    void makeInner(std::uint32_t depth, std::uint32_t row, TileSink & sink);

    const Heights from_;
    const TileRows & rows_;
    TileThreads & threads_;
    std::vector<Depth> depths_;
};

} // namespace ZMT::CORE::GRID
