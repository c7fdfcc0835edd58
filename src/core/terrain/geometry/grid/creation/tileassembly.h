#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <nbx/data/file.h>

#include "tilerows.h"
#include "tilesink.h"
#include "tilethreads.h"

namespace ZMT::CORE::GRID {

/// Writes the blocks of all tiles of a terrain, one behind the other: it tells the inner ones where their
/// children lie, and deflates them.
class TileAssembly : public TileSink {
public:
    /// Blocks go to the position of `file`. All is borrowed.
    TileAssembly(const TileRows & rows, TileThreads & threads, NBX::File & file);

    void add(std::uint32_t depth, std::uint32_t row, std::uint32_t firstColumn,
             std::vector<MadeTile> & tiles) override;

    /// Once all tiles are there. No block when nothing is defined.
    const TileRef & root() const { return root_.ref; }
    const TerrainFileFormat::GridBox & rootBox() const { return root_.box; }

private:
    /// A tile as its parent knows it.
    struct Written {
        TileRef ref;
        TerrainFileFormat::GridBox box{};
    };
    /// The two rows of tiles whose parents are not written yet, even and odd.
    using Depth = std::array<std::vector<Written>, 2>;

    void finish(MadeTile & made) const;
    bool addChildren(TileSamples & tile, std::array<TileRef, 4> & children) const;
    Written put(const MadeTile & made);

    const TileRows & rows_;
    TileThreads & threads_;
    NBX::File & file_;
    std::vector<Depth> depths_;
    std::uint64_t position_;
    std::vector<char> waiting_; ///< for the file
    Written root_;
};

/// Gives a tile with all its samples the block that will stand in the file.
void finishTile(MadeTile & made, const std::array<TileRef, 4> & children);

} // namespace ZMT::CORE::GRID
