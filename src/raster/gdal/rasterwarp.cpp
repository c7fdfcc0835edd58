// Chooses a system in metres: polar stereographic near a pole, UTM for what is small, else equidistant
// cylindrical. The first two bend the raster, so it is resampled on a grid that GDAL suggests, less the
// wedges at the border; the last one keeps rows and columns. Lengths in other units are scaled.

#include <zmt/raster/gdal/rasterwarp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "gdalsupport.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

using Raster = SimpleRasterData<float>;

constexpr float undefined = std::numeric_limits<float>::quiet_NaN();
/// Transverse Mercator is used below this width.
constexpr double maxUtmDegrees = 12.0;
constexpr double maxUtmLatitude = 84.0;
/// A raster whose every latitude is above this one, and that comes closer to the pole than UTM does, is
/// taken as polar.
constexpr double minPolarLatitude = 60.0;
/// The result may have this many times the cells of the source before its cells are made larger.
constexpr double maxGrowth = 4.0;

/// The cell positions of a raster in degrees.
struct DegreeBox {
    double west, south, east, north;
    double centreX() const { return 0.5 * (west + east); }
    double centreY() const { return 0.5 * (south + north); }
};

DegreeBox degreeBox(const Raster & raster, double unit) {
    return {raster.minX() * unit, raster.minY() * unit, raster.maxX() * unit, raster.maxY() * unit};
}

/// Leaves out the rows behind the poles, of which bad registrations have some.
NBX::SO<Raster> withoutRowsBehindPoles(const NBX::SO<Raster> & raster, double unit) {
    const double tolerance = 1e-6 * raster->cellSizeY() * unit;
    const auto isOnGlobe = [&](unsigned row) {
        return std::abs((raster->minY() + row * raster->cellSizeY()) * unit) <= 90.0 + tolerance;
    };
    unsigned first = 0, end = raster->cellsY();
    while (first < end && !isOnGlobe(first))
        ++first;
    while (end > first && !isOnGlobe(end - 1))
        --end;
    const DegreeBox box = degreeBox(*raster, unit);
    if (first == end || raster->cellsX() == 0 || std::abs(box.west) > 540.0 || std::abs(box.east) > 540.0)
        throw NBX::InputException(L"the coordinates are said to be degrees, but are none on the globe; "
                                  L"correct the coordinate system of the file");
    if (first == 0 && end == raster->cellsY()) return raster;
    NBX::SO<Raster> cut(new Raster(raster->cellsX(), end - first, raster->minX(),
                                   raster->minY() + first * raster->cellSizeY(), raster->cellSizeX(),
                                   raster->cellSizeY(), true, undefined));
    const std::size_t width = raster->cellsX();
    std::copy(raster->cells() + first * width, raster->cells() + end * width, cut->cells());
    return cut;
}

/// The cells as the resampling wants them: NaN is the only undefined value.
NBX::SO<Raster> withNaN(const NBX::SO<Raster> & raster) {
    return !raster->hasUndefValue() || std::isnan(raster->undefValue()) ? raster : copyWithNaN(*raster);
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

NBX::InputException unusable(const GdalErrorTrap & trap) {
    return NBX::InputException(L"cannot be brought into a system in metres; check the coordinate system of "
                               L"the file",
                               "", 0, trap.text());
}

/// The grid that GDAL suggests, with square cells.
RasterGrid suggestedGrid(GDALDataset & source, const std::string & system, const GdalErrorTrap & trap) {
    const GdalTransformer transformer = newTransformer(source, nullptr, system);
    double transform[6], extent[4];
    int width = 0, height = 0;
    if (!transformer ||
        GDALSuggestedWarpOutput2(&source, GDALGenImgProjTransform, transformer.get(), transform, &width,
                                 &height, extent, 0) != CE_None ||
        !(transform[1] > 0.0))
        throw unusable(trap);
    const double sizeX = extent[2] - extent[0], sizeY = extent[3] - extent[1];
    const double sourceCells = static_cast<double>(source.GetRasterXSize()) * source.GetRasterYSize();
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
RasterGrid withoutWedges(const RasterGrid & grid, const Raster & raster, const std::string & wkt,
                         const std::string & system) {
    const OGRSpatialReference from = spatialReference(wkt), to = spatialReference(system);
    const std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&from, &to));
    if (!transformation) return grid;
    constexpr int samples = 33;
    double west = -HUGE_VAL, south = -HUGE_VAL, east = HUGE_VAL, north = HUGE_VAL;
    for (int i = 0; i < samples; ++i) {
        const double t = i / (samples - 1.0);
        const double midX = raster.minX() + t * (raster.maxX() - raster.minX());
        const double midY = raster.minY() + t * (raster.maxY() - raster.minY());
        double x[4] = {raster.minX(), raster.maxX(), midX, midX};
        double y[4] = {midY, midY, raster.minY(), raster.maxY()};
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
RasterGrid cylindricalGrid(const Raster & raster, const DegreeBox & box, const std::string & system,
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
    const double cellSizeX = (box.east - box.west) / std::max(1u, raster.cellsX() - 1) * metresX;
    const double cellSizeY = (y[2] - y[0]) / std::max(1u, raster.cellsY() - 1);
    const double square = std::max(cellSizeX, cellSizeY);
    if (!(square > 0.0)) throw unusable(trap);
    return {raster.cellsX(),
            raster.cellsY(),
            x[0] + (box.west - middle) * metresX,
            y[0],
            cellSizeX > 0.0 ? cellSizeX : square,
            cellSizeY > 0.0 ? cellSizeY : square};
}

GeoReference referenceOf(const std::string & system) {
    const OGRSpatialReference reference = spatialReference(system);
    GeoReference result = describe(&reference);
    result.isGeoreferenced = true;
    return result;
}

GeoRaster warpDegrees(const GeoRaster & source, NBX::Progress * progress) {
    GdalErrorTrap trap;
    const double unit = source.reference.unit;
    const NBX::SO<Raster> raster = withNaN(withoutRowsBehindPoles(source.raster, unit));
    const DegreeBox box = degreeBox(*raster, unit);
    const GdalDataset input = wrapRaster(*raster, source.reference.wkt);

    const bool isCylindrical = !isPolar(box) && !isSmall(box);
    const std::string system = isPolar(box)    ? (box.north > 0.0 ? "EPSG:5041" : "EPSG:5042")
                               : isCylindrical ? cylindricalSystem(box)
                                               : utmSystem(box);
    const RasterGrid grid = isCylindrical ? cylindricalGrid(*raster, box, system, trap)
                                          : withoutWedges(suggestedGrid(*input, system, trap), *raster,
                                                          source.reference.wkt, system);
    GeoRaster result;
    result.reference = referenceOf(system);
    NBX::SO<Raster> warped(new Raster(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                      grid.cellSizeY, true, undefined));
    const GdalDataset output = wrapRaster(*warped, result.reference.wkt);
    if (warpBilinear(*input, *output, false, "", progress)) result.raster = warped;
    return result;
}

/// The same projection in metres: the cells stay, their positions are scaled.
GeoRaster scaleLengths(const GeoRaster & source) {
    OGRSpatialReference system = spatialReference(source.reference.wkt);
    system.SetLinearUnitsAndUpdateParameters(SRS_UL_METER, 1.0);
    const Raster & raster = *source.raster;
    const double unit = source.reference.unit;
    NBX::SO<Raster> scaled(new Raster(raster.cellsX(), raster.cellsY(), raster.minX() * unit,
                                      raster.minY() * unit, raster.cellSizeX() * unit,
                                      raster.cellSizeY() * unit, raster.hasUndefValue(),
                                      static_cast<float>(raster.undefValue())));
    std::copy_n(raster.cells(), static_cast<std::size_t>(raster.cellsX()) * raster.cellsY(), scaled->cells());
    GeoRaster result{scaled, describe(&system)};
    result.reference.isGeoreferenced = true;
    return result;
}

} // namespace

bool RasterWarp::isNeeded(const GeoReference & reference) {
    return reference.isGeoreferenced && !reference.wkt.empty() &&
           (reference.isGeographic || std::abs(reference.unit - 1.0) > 1e-9);
}

GeoRaster RasterWarp::toMetric(const GeoRaster & source, NBX::Progress * progress) {
    if (!source.raster || !isNeeded(source.reference)) return source;
    if (source.reference.isGeographic) return warpDegrees(source, progress);
    GdalErrorTrap trap;
    return scaleLengths(source);
}

} // namespace ZMT::RASTER
