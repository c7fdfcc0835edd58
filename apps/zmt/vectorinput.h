#pragma once

#include <string>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/griddata.h>
#include <zmt/core/terrain/geometry/terrain.h>
#include <zmt/core/terrain/geometry/terraintexturedgeometry.h>
#include <zmt/raster/georeference.h>

/// A copy of `grid`, whose coordinates `reference` explains, in which the lines and outlines of a vector file
/// are edges. Throws `DataError` where none lies on the grid, and what the raster layer throws.
NBX::SO<ZMT::CORE::GridData> stampLines(const NBX::SO<ZMT::CORE::GridData> & grid, const std::string & path,
                                        const ZMT::RASTER::GeoReference & reference);

/// The areas of a vector file as triangles `lift` above the ground. Throws as above.
NBX::SO<ZMT::CORE::TerrainTexturedGeometry> drapeAreas(const NBX::SO<ZMT::CORE::Terrain> & terrain,
                                                       const std::string & path,
                                                       const ZMT::RASTER::GeoReference & reference,
                                                       double lift);
