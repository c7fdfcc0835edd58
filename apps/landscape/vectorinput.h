#pragma once

#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/georeference.h>

/// A copy of `grid`, whose coordinates `reference` explains, in which the lines and outlines of a vector file
/// are edges. Throws `DataError` where none lies on the grid, and what the raster layer throws.
NBX::SO<ZMT::CORE::GridData> stampLines(const NBX::SO<ZMT::CORE::GridData> & grid, const std::string & path,
                                        const ZMT::RASTER::GeoReference & reference);

/// Whether the file has areas, or closed lines, on `grid`, and no line that ends there. Throws what the
/// raster layer throws.
bool hasAreas(const ZMT::CORE::GridData & grid, const std::string & path,
              const ZMT::RASTER::GeoReference & reference);

/// The outlines of the areas of a vector file, cut at the edge of `grid`. How many lie beyond it is told on
/// the standard error stream. Throws as above, and `DataError` where they are too large to be draped.
std::vector<ZMT::CORE::PolygonTriangulation::Ring> readAreas(const ZMT::CORE::GridData & grid,
                                                             const std::string & path,
                                                             const ZMT::RASTER::GeoReference & reference);

/// Areas as triangles `lift` above the ground. Throws `DataError` where none lies on defined ground; the
/// areas come from the file `path`.
NBX::SO<ZMT::CORE::TerrainTexturedGeometry>
drapeAreas(const NBX::SO<ZMT::CORE::Terrain> & terrain,
           const std::vector<ZMT::CORE::PolygonTriangulation::Ring> & areas, double lift,
           const std::string & path);
