#pragma once

#include <memory>

#include <nbx/object/exception.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/raster/rasterband.h>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "heightpyramid.h"
#include "oldterrainheights.h"

namespace ZMT::CORE::GRID {

/// Why no terrain can be written; the message is for who looks closer.
class TerrainFailure : public NBX::Exception {
public:
    TerrainFailure(const std::wstring & shown, const std::wstring & reason)
        : NBX::Exception(reason), shown_(shown) {}

    static TerrainFailure tooLarge();
    /// There are no heights.
    static TerrainFailure empty();

    /// What the user of a graphical application is shown.
    const std::wstring & shown() const { return shown_; }

private:
    std::wstring shown_;
};

/// The user cancelled.
struct CreationCancelled {};

/// How the tree of a terrain lies on a raster, before any of its heights are read.
struct TerrainLayout {
    /// `level` is what is wanted, `old` may be null. Throws `TerrainFailure`, and `NBX::IOError` where the
    /// old terrain cannot be read.
    TerrainLayout(const NBX::SO<RASTER::RasterBand> & band, unsigned level,
                  const NBX::SO<GridTerrain> & oldTerrain);

    /// Where heights may be.
    LatticeArea area() const;
    /// Of all heights there are. Throws `TerrainFailure` where there are none.
    HeightScale scale(const HeightPyramid & pyramid) const;

    /// Without the heights, the size and the root.
    TerrainFileFormat::FileHeader header = TerrainFileFormat::FileHeader::blank();
    /// The finest depth at which the raster has heights of its own.
    std::uint32_t sourceDepth = 0;
    std::unique_ptr<HeightSource> source;
    std::unique_ptr<OldTerrainHeights> old; ///< null without an old terrain

private:
    void lieOnBand(const NBX::SO<RASTER::RasterBand> & band, unsigned level);
    void lieOn(const NBX::SO<GridTerrain> & oldTerrain, const NBX::SO<RASTER::RasterBand> & band);
};

} // namespace ZMT::CORE::GRID
