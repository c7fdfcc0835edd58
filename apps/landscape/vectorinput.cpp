#include "vectorinput.h"

#include "errors.h"
#include "program/stage.h"
#include "step.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/hybrid/breaklines.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/core/terrain/geometry/view/areadraping.h>
#include <zmt/raster/gdal/geofile.h>

namespace {

using Point = NBX::Vector3Base<double>;
using ZMT::CORE::AreaDraping;
using ZMT::CORE::PolygonTriangulation;
using ZMT::RASTER::GeoExtent;

DataError noAreas(const std::string & path) {
    return DataError(path + ": has no area on the terrain; choose one that covers it");
}

/// Of the vertices, in map coordinates.
GeoExtent extentOf(const ZMT::CORE::GridData & grid) {
    const NBX::Bounds geoBox = ZMT::CORE::LocalFrame(grid.origin()).toGeo(grid.boundingBox());
    const Point low = geoBox.getLLF(), high = geoBox.getURB();
    return {low.x, low.z, high.x, high.z};
}

/// Where heights are asked for after some rounding: the outermost edges do not belong to a grid.
GeoExtent groundOf(const ZMT::CORE::GridData & grid) {
    constexpr double margin = 1e-6; // of a cell
    const auto [cellX, cellY] = grid.getCellSize();
    const GeoExtent extent = extentOf(grid);
    return {extent.minX + cellX * margin, extent.minY + cellY * margin, extent.maxX - cellX * margin,
            extent.maxY - cellY * margin};
}

/// The largest distance of draped points.
double spacingOn(const std::pair<double, double> & cell) {
    return std::max(cell.first, cell.second);
}

void checkPoints(const std::vector<PolygonTriangulation::Ring> & areas, double spacing,
                 const std::string & path) {
    const double points = PolygonTriangulation::pointsFor(areas, spacing);
    if (points > PolygonTriangulation::maxPoints)
        throw DataError(path + ": draping its areas takes " + std::to_string(std::llround(points)) +
                        " points, at most " + std::to_string(PolygonTriangulation::maxPoints) +
                        " can be; choose fewer areas, or a terrain with larger cells");
}

} // namespace

NBX::SO<ZMT::CORE::GridData> stampLines(const NBX::SO<ZMT::CORE::GridData> & grid, const std::string & path,
                                        const ZMT::RASTER::GeoReference & reference) {
    const Stage stage(L"build");
    Step step("stamping " + path);
    const auto lines = ZMT::RASTER::GeoFile::openVectors(path)->read(reference.wkt, extentOf(*grid));
    step.goOn(0.3);
    const auto features = ZMT::CORE::BreakLines::toFeatures(*grid, lines);
    if (features.empty()) throw DataError(path + ": has no line on the terrain; choose one that covers it");
    step.goOn(0.5);
    NBX::SO<ZMT::CORE::GridData> stamped = ZMT::CORE::CreateHybridData::create(grid, features);
    step.finish();
    return stamped;
}

bool hasAreas(const ZMT::CORE::GridData & grid, const std::string & path,
              const ZMT::RASTER::GeoReference & reference) {
    const auto file = ZMT::RASTER::GeoFile::openVectors(path);
    const GeoExtent extent = groundOf(grid);
    const double margin = 0.01 * spacingOn(grid.getCellSize()); // cuts are rounded
    const auto isInside = [&](const Point & p) {
        return p.x > extent.minX + margin && p.x < extent.maxX - margin && p.z > extent.minY + margin &&
               p.z < extent.maxY - margin;
    };
    // What is cut at the border ends there. An outline that is cut has its first point as two ends as well.
    std::map<std::pair<double, double>, unsigned> ends;
    for (const auto & line : file->read(reference.wkt, extent))
        for (const Point & end : {line.points.front(), line.points.back()})
            if (!line.isClosed && isInside(end)) ++ends[{end.x, end.z}];
    if (std::any_of(ends.begin(), ends.end(), [](const auto & end) { return end.second == 1; })) return false;
    return !file->readAreas(reference.wkt, extent).outlines.empty();
}

std::vector<PolygonTriangulation::Ring> readAreas(const ZMT::CORE::GridData & grid, const std::string & path,
                                                  const ZMT::RASTER::GeoReference & reference) {
    const Stage stage(L"read");
    Step step("reading " + path);
    const auto areas = ZMT::RASTER::GeoFile::openVectors(path)->readAreas(reference.wkt, groundOf(grid));
    if (areas.outlines.empty()) throw noAreas(path);
    std::vector<PolygonTriangulation::Ring> rings;
    for (const auto & outline : areas.outlines)
        rings.push_back(outline.points);
    checkPoints(rings, spacingOn(grid.getCellSize()), path);
    step.finish();
    if (areas.outside > 0)
        writeError(path + ": " + std::to_string(areas.outside) + " of " +
                   std::to_string(areas.inside + areas.outside) +
                   " areas lie beyond the terrain and are left out");
    return rings;
}

NBX::SO<ZMT::CORE::TerrainTexturedGeometry> drapeAreas(const NBX::SO<ZMT::CORE::Terrain> & terrain,
                                                       const std::vector<PolygonTriangulation::Ring> & areas,
                                                       double lift, const std::string & path) {
    const Stage stage(L"build");
    Step step("draping " + path);
    const auto triangles = AreaDraping::drape(*terrain, areas, spacingOn(terrain->getCellSize()), lift);
    if (!triangles) throw noAreas(path);
    step.goOn(0.8);
    auto draped = terrain->createTerrainTexturedTriangles(triangles);
    step.finish();
    return draped;
}
