// Chooses a system in metres: polar stereographic near a pole, UTM for what is small, else equidistant
// cylindrical. The first two bend the raster, so it gets a grid that GDAL suggests, less the wedges at the
// border; the last one keeps rows and columns.

#include "metricgrid.h"

#include <algorithm>
#include <cmath>

#include "gdalsupport.h"

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

/// Transverse Mercator is used below this width.
constexpr double maxUtmDegrees = 12.0;
constexpr double maxUtmLatitude = 84.0;
/// A raster whose every latitude is above this one, and that comes closer to the pole than UTM does, is
/// taken as polar.
constexpr double minPolarLatitude = 60.0;
/// The result may have this many times the cells of the source before its cells are made larger.
constexpr double maxGrowth = 4.0;

double lastX(const RasterGrid & grid) {
    return grid.minX + (grid.cellsX - 1.0) * grid.cellSizeX;
}
double lastY(const RasterGrid & grid) {
    return grid.minY + (grid.cellsY - 1.0) * grid.cellSizeY;
}

/// The cell positions of a raster in degrees.
struct DegreeBox {
    double west, south, east, north;
    double centreX() const { return 0.5 * (west + east); }
    double centreY() const { return 0.5 * (south + north); }
};

DegreeBox degreeBox(const RasterGrid & grid, double unit) {
    return {grid.minX * unit, grid.minY * unit, lastX(grid) * unit, lastY(grid) * unit};
}

NBX::InputException unusable(const GdalErrorTrap & trap) {
    return NBX::InputException(L"cannot be brought into a system in metres; check the coordinate system of "
                               L"the file",
                               "", 0, trap.text());
}

bool isPolar(const DegreeBox & box) {
    const double nearest = std::min(std::abs(box.south), std::abs(box.north));
    const double farthest = std::max(std::abs(box.south), std::abs(box.north));
    return box.south * box.north > 0.0 && nearest >= minPolarLatitude && farthest > maxUtmLatitude;
}

bool isSmall(const DegreeBox & box) {
    return box.east - box.west < maxUtmDegrees && std::abs(box.south) < maxUtmLatitude &&
           std::abs(box.north) < maxUtmLatitude;
}

std::string utmSystem(const DegreeBox & box) {
    const double longitude = box.centreX() - 360.0 * std::floor((box.centreX() + 180.0) / 360.0);
    const int zone = std::clamp(static_cast<int>((longitude + 180.0) / 6.0) + 1, 1, 60);
    return "EPSG:" + std::to_string((box.centreY() < 0.0 ? 32700 : 32600) + zone);
}

/// The middle of the cylindrical system, in whole degrees. A raster that fits between 180 degrees west and
/// east keeps Greenwich, and one of both hemispheres the equator.
std::string cylindricalSystem(const DegreeBox & box) {
    const bool isWorldWide = box.east - box.west > 180.0 && box.west >= -180.001 && box.east <= 180.001;
    const int longitude = isWorldWide ? 0 : static_cast<int>(std::lround(box.centreX()));
    const bool isWorldHigh = box.north - box.south > 90.0;
    const int latitude = isWorldHigh ? 0 : static_cast<int>(std::lround(box.centreY()));
    if (longitude == 0 && latitude == 0) return "EPSG:4087";
    return "+proj=eqc +lat_ts=" + std::to_string(latitude) + " +lon_0=" + std::to_string(longitude) +
           " +datum=WGS84 +units=m +no_defs +type=crs";
}

/// The grid that GDAL suggests, with square cells.
RasterGrid suggestedGrid(const RasterGrid & raster, const std::string & wkt, const std::string & system,
                         const GdalErrorTrap & trap) {
    const double place[6] = {raster.minX - 0.5 * raster.cellSizeX,
                             raster.cellSizeX,
                             0.0,
                             raster.minY - 0.5 * raster.cellSizeY,
                             0.0,
                             raster.cellSizeY};
    const GdalDataset source = newMemoryDataset(raster.cellsX, raster.cellsY, place, wkt);
    const GdalTransformer transformer = newTransformer(*source, nullptr, system);
    double transform[6], extent[4];
    int width = 0, height = 0;
    if (!transformer ||
        GDALSuggestedWarpOutput2(source.get(), GDALGenImgProjTransform, transformer.get(), transform, &width,
                                 &height, extent, 0) != CE_None ||
        !(transform[1] > 0.0))
        throw unusable(trap);
    const double sizeX = extent[2] - extent[0], sizeY = extent[3] - extent[1];
    const double sourceCells = static_cast<double>(raster.cellsX) * raster.cellsY;
    const double cellSize =
        std::max(transform[1], std::sqrt(sizeX * sizeY / (maxGrowth * sourceCells + 1024.0)));
    const auto cells = [&](double size) {
        return static_cast<unsigned>(std::clamp(std::round(size / cellSize), 1.0, 1e6));
    };
    return {cells(sizeX), cells(sizeY), extent[0] + 0.5 * cellSize, extent[1] + 0.5 * cellSize,
            cellSize,     cellSize};
}

/// The part of a grid that the source covers with all its width and height: the warped source is no
/// rectangle, and wedges without heights along the border would look like cliffs. The whole grid where
/// nothing sensible is left.
RasterGrid withoutWedges(const RasterGrid & grid, const RasterGrid & raster, const std::string & wkt,
                         const std::string & system) {
    const OGRSpatialReference from = spatialReference(wkt), to = spatialReference(system);
    const std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&from, &to));
    if (!transformation) return grid;
    constexpr int samples = 33;
    double west = -HUGE_VAL, south = -HUGE_VAL, east = HUGE_VAL, north = HUGE_VAL;
    for (int i = 0; i < samples; ++i) {
        const double t = i / (samples - 1.0);
        const double midX = raster.minX + t * (lastX(raster) - raster.minX);
        const double midY = raster.minY + t * (lastY(raster) - raster.minY);
        double x[4] = {raster.minX, lastX(raster), midX, midX};
        double y[4] = {midY, midY, raster.minY, lastY(raster)};
        if (!transformation->Transform(4, x, y)) return grid;
        west = std::max(west, x[0]);
        east = std::min(east, x[1]);
        south = std::max(south, y[2]);
        north = std::min(north, y[3]);
    }
    const auto first = [](double low, double origin, double cell) {
        return std::max(std::ceil((low - origin) / cell), 0.0);
    };
    const auto cells = [](double high, double origin, double cell, double first, unsigned all) {
        return std::min(std::floor((high - origin) / cell), all - 1.0) - first + 1.0;
    };
    const double x0 = first(west, grid.minX, grid.cellSizeX), y0 = first(south, grid.minY, grid.cellSizeY);
    const double width = cells(east, grid.minX, grid.cellSizeX, x0, grid.cellsX);
    const double height = cells(north, grid.minY, grid.cellSizeY, y0, grid.cellsY);
    if (!(width >= grid.cellsX * 0.5) || !(height >= grid.cellsY * 0.5)) return grid;
    return {static_cast<unsigned>(width),
            static_cast<unsigned>(height),
            grid.minX + x0 * grid.cellSizeX,
            grid.minY + y0 * grid.cellSizeY,
            grid.cellSizeX,
            grid.cellSizeY};
}

/// As many cells as the source has: the cylindrical system is linear in both degrees, so that each cell of
/// the result meets one of the source.
RasterGrid cylindricalGrid(const RasterGrid & raster, const DegreeBox & box, const std::string & system,
                           const GdalErrorTrap & trap) {
    const OGRSpatialReference target = spatialReference(system);
    OGRSpatialReference source;
    source.CopyGeogCSFrom(&target);
    source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    const std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&source, &target));
    const double middle = target.GetProjParm(SRS_PP_CENTRAL_MERIDIAN, 0.0);
    double x[3] = {middle, middle + 1.0, middle};
    double y[3] = {std::max(box.south, -90.0), 0.0, std::min(box.north, 90.0)};
    if (!transformation || !transformation->Transform(3, x, y)) throw unusable(trap);
    const double metresX = x[1] - x[0];
    const double cellSizeX = (box.east - box.west) / std::max(1u, raster.cellsX - 1) * metresX;
    const double cellSizeY = (y[2] - y[0]) / std::max(1u, raster.cellsY - 1);
    const double square = std::max(cellSizeX, cellSizeY);
    if (!(square > 0.0)) throw unusable(trap);
    return {raster.cellsX,
            raster.cellsY,
            x[0] + (box.west - middle) * metresX,
            y[0],
            cellSizeX > 0.0 ? cellSizeX : square,
            cellSizeY > 0.0 ? cellSizeY : square};
}

} // namespace

RasterGrid gridOnGlobe(const RasterGrid & grid, double unit) {
    const double tolerance = 1e-6 * grid.cellSizeY * unit;
    const auto isOnGlobe = [&](unsigned row) {
        return std::abs((grid.minY + row * grid.cellSizeY) * unit) <= 90.0 + tolerance;
    };
    unsigned first = 0, end = grid.cellsY;
    while (first < end && !isOnGlobe(first))
        ++first;
    while (end > first && !isOnGlobe(end - 1))
        --end;
    const DegreeBox box = degreeBox(grid, unit);
    if (first == end || grid.cellsX == 0 || std::abs(box.west) > 540.0 || std::abs(box.east) > 540.0)
        throw NBX::InputException(L"the coordinates are said to be degrees, but are none on the globe; "
                                  L"correct the coordinate system of the file");
    RasterGrid cut = grid;
    cut.minY += first * grid.cellSizeY;
    cut.cellsY = end - first;
    return cut;
}

MetricGrid metricGridFor(const RasterGrid & degrees, const GeoReference & reference) {
    const GdalErrorTrap trap;
    const DegreeBox box = degreeBox(degrees, reference.unit);
    if (!isPolar(box) && !isSmall(box)) {
        const std::string system = cylindricalSystem(box);
        return {system, cylindricalGrid(degrees, box, system, trap)};
    }
    const std::string system = isPolar(box) ? (box.north > 0.0 ? "EPSG:5041" : "EPSG:5042") : utmSystem(box);
    return {system, gridIn(system, degrees, reference.wkt)};
}

RasterGrid gridIn(const std::string & system, const RasterGrid & raster, const std::string & wkt) {
    const GdalErrorTrap trap;
    return withoutWedges(suggestedGrid(raster, wkt, system, trap), raster, wkt, system);
}

GeoReference metricReference(const std::string & system) {
    const OGRSpatialReference reference = spatialReference(system);
    GeoReference result = describe(&reference);
    result.isGeoreferenced = true;
    return result;
}

std::string systemInMetres(const std::string & wkt) {
    OGRSpatialReference system = spatialReference(wkt);
    system.SetLinearUnitsAndUpdateParameters(SRS_UL_METER, 1.0);
    char * text = nullptr;
    system.exportToWkt(&text);
    const std::string result = text ? text : "";
    CPLFree(text);
    return result;
}

} // namespace ZMT::RASTER
