#include "vectorinput.h"

#include "commands.h"
#include "step.h"

#include <algorithm>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/hybrid/breaklines.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/raster/gdal/vectorfile.h>

namespace {

using Point = NBX::Vector3Base<double>;
using ZMT::CORE::PolygonTriangulation;
using ZMT::RASTER::GeoExtent;

DataError noAreas(const std::string & path) {
    return DataError(path + ": has no area on the terrain; choose one that covers it");
}

/// In map coordinates, larger by the widths of `margin` boxes on each side.
GeoExtent extentOf(const NBX::Bounds & box, const Point & origin, double margin) {
    const Point wider = box.diagonal() * margin;
    const Point low = box.getLLF() + origin - wider, high = box.getURB() + origin + wider;
    return {low.x, low.z, high.x, high.z};
}

} // namespace

NBX::SO<ZMT::CORE::GridData> stampLines(const NBX::SO<ZMT::CORE::GridData> & grid, const std::string & path,
                                        const ZMT::RASTER::GeoReference & reference) {
    Step step("stamping " + path);
    const auto lines =
        ZMT::RASTER::VectorFile(path).read(reference.wkt, extentOf(grid->boundingBox(), grid->origin(), 0.0));
    step.goOn(0.3);
    const auto features = ZMT::CORE::BreakLines::toFeatures(*grid, lines);
    if (features.empty()) throw DataError(path + ": has no line on the terrain; choose one that covers it");
    step.goOn(0.5);
    NBX::SO<ZMT::CORE::GridData> stamped = ZMT::CORE::CreateHybridData::create(grid, features);
    step.finish();
    return stamped;
}

std::vector<PolygonTriangulation::Ring> readAreas(const ZMT::CORE::GridData & grid, const std::string & path,
                                                  const ZMT::RASTER::GeoReference & reference) {
    // Areas are not cut at the terrain's edge, where they would not be closed any more.
    constexpr double margin = 1.0;
    Step step("reading " + path);
    const auto lines = ZMT::RASTER::VectorFile(path).read(
        reference.wkt, extentOf(grid.boundingBox(), grid.origin(), margin));
    std::vector<PolygonTriangulation::Ring> rings;
    for (const auto & line : lines)
        if (line.isClosed) rings.push_back(line.points);
    if (rings.empty()) throw noAreas(path);
    step.finish();
    return rings;
}

NBX::SO<ZMT::CORE::TerrainTexturedGeometry> drapeAreas(const NBX::SO<ZMT::CORE::Terrain> & terrain,
                                                       const std::vector<PolygonTriangulation::Ring> & areas,
                                                       double lift, const std::string & path) {
    Step step("draping " + path);
    const auto cell = terrain->getCellSize();
    const auto triangles =
        PolygonTriangulation::drape(*terrain, areas, std::max(cell.first, cell.second), lift);
    if (!triangles) throw noAreas(path);
    step.goOn(0.8);
    auto draped = terrain->createTerrainTexturedTriangles(triangles);
    step.finish();
    return draped;
}
