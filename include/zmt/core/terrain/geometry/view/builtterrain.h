#pragma once

#include <cstdint>
#include <string>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/georeference.h>

namespace ZMT::CORE {

/// A terrain whose tree was built, as a file keeps it: with the system of its coordinates, and how the tree
/// came about. What was read has a grid, and a tree over it.
class BuiltTerrain : public NBX::SharedObj {
    NBX_STORED_CLASS(BuiltTerrain, NBX::SharedObj)
public:
    /// `terrain` is one of a `GridData` with a tree. `seed` is that of the random choices, `maxVertices` the
    /// budget of a node.
    BuiltTerrain(const NBX::SO<Terrain> & terrain, const RASTER::GeoReference & reference, unsigned seed,
                 unsigned maxVertices);
    ~BuiltTerrain() override;

    const NBX::SO<Terrain> & terrain() const { return terrain_; }
    NBX::SO<GridData> grid() const;
    /// Coordinates are not angles.
    const RASTER::GeoReference & reference() const { return reference_; }
    unsigned seed() const { return seed_; }
    unsigned maxVertices() const { return maxVertices_; }

    /// Whether a file is one of stored objects, as far as its first bytes tell; `RASTER::GeoFile` takes such
    /// a file for heights, under the name "a built terrain". What it holds is known when it is read.
    static bool isFile(const std::string & path);

    /// About the bytes of the file for a terrain of that many vertices on the grid, and beside it, where each
    /// node uses up its budget.
    static std::uint64_t expectedBytes(unsigned sizeX, unsigned sizeY, unsigned maxVertices,
                                       unsigned microVertices = 0);

    void serialize(NBX::SerializationManager & m) override;

protected:
    BuiltTerrain();

private:
    NBX::SO<Terrain> terrain_;
    RASTER::GeoReference reference_;
    unsigned seed_ = 0, maxVertices_ = 0;
};

} // namespace ZMT::CORE
