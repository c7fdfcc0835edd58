// The files, then the grid that all of them are laid on, in the system of the first file; then, where that is
// not in metres, the grid and the system that are. Each file becomes a layer: its band as it is, where the
// cells agree, or a resampled one.

#include <zmt/raster/gdal/heightsource.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/rasterwarp.h>
#include <zmt/raster/heightunit.h>

#include "metricgrid.h"
#include "pooledrasterbands.h"
#include "warpedrasterband.h"

namespace ZMT::RASTER {

namespace {

/// Cells lie on a grid when they are off by less than this share of one.
constexpr double tolerance = 1e-3;

struct Source {
    HeightSource::File file;
    NBX::SO<RasterBand> band;
    GeoReference reference;
};

/// A band, and the cells of the whole where it lies.
struct Layer {
    NBX::SO<RasterBand> band;
    unsigned col, row;
};

/// Bands on one grid; those behind lie above, as far as they are defined.
class LayeredBand : public RasterBand {
    NBX_TEMPLATE_CLASS(LayeredBand, RasterBand)
public:
    LayeredBand(const RasterGrid & grid, std::vector<Layer> layers)
        : RasterBand(grid), layers_(std::move(layers)) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        std::fill_n(cells, std::size_t(width) * height, std::numeric_limits<float>::quiet_NaN());
        std::vector<float> part;
        for (const Layer & layer : layers_) {
            const unsigned x0 = std::max(col, layer.col), y0 = std::max(row, layer.row);
            const unsigned x1 = std::min(col + width, layer.col + layer.band->cellsX());
            const unsigned y1 = std::min(row + height, layer.row + layer.band->cellsY());
            if (x0 >= x1 || y0 >= y1) continue;
            part.resize(std::size_t(x1 - x0) * (y1 - y0));
            layer.band->read(x0 - layer.col, y0 - layer.row, x1 - x0, y1 - y0, part.data());
            const float * from = part.data();
            for (unsigned y = y0; y < y1; ++y) {
                float * to = cells + std::size_t(y - row) * width + (x0 - col);
                for (unsigned x = x0; x < x1; ++x, ++from, ++to)
                    if (!isUndefValue(*from)) *to = *from;
            }
        }
    }

private:
    std::vector<Layer> layers_;
};

/// The same band at other coordinates.
class MovedBand : public RasterBand {
    NBX_TEMPLATE_CLASS(MovedBand, RasterBand)
public:
    MovedBand(const NBX::SO<RasterBand> & band, const RasterGrid & grid) : RasterBand(grid), band_(band) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        band_->read(col, row, width, height, cells);
    }

private:
    NBX::SO<RasterBand> band_;
};

/// A band whose numbers are so many metres each.
class ScaledBand : public RasterBand {
    NBX_TEMPLATE_CLASS(ScaledBand, RasterBand)
public:
    ScaledBand(const NBX::SO<RasterBand> & band, double metres)
        : RasterBand(band->grid()), band_(band), metres_(metres) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        band_->read(col, row, width, height, cells);
        for (float * cell = cells; cell != cells + std::size_t(width) * height; ++cell)
            *cell = static_cast<float>(*cell * metres_);
    }

private:
    NBX::SO<RasterBand> band_;
    double metres_;
};

/// Heights in memory, of which those of undefined cells are NaN.
class MemoryBand : public RasterBand {
    NBX_TEMPLATE_CLASS(MemoryBand, RasterBand)
public:
    explicit MemoryBand(const NBX::SO<SimpleRasterData<float>> & heights)
        : RasterBand(heights->grid()), heights_(heights) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        for (unsigned y = row; y < row + height; ++y, cells += width) {
            const float * first = heights_->cells() + std::size_t(y) * cellsX() + col;
            std::transform(first, first + width, cells, [&](float value) {
                return heights_->isUndefValue(value) ? std::numeric_limits<float>::quiet_NaN() : value;
            });
        }
    }

private:
    NBX::SO<SimpleRasterData<float>> heights_;
};

/// What has no heights is told by what it is.
std::shared_ptr<const GdalSource> openFile(const std::string & path, const std::string & wanted) {
    try {
        return std::make_shared<const GdalSource>(path, GdalSource::Outside::NaN, wanted);
    } catch (const NBX::InputException &) {
        GeoFile::openHeights(path);
        throw;
    }
}

Source openSource(PooledRasterBands & pool, const std::string & path, const std::string & wanted) {
    const auto file = openFile(path, wanted);
    GDALRasterBand & first = *file->dataset().GetRasterBand(1);
    if (GDALDataTypeIsComplex(first.GetRasterDataType()))
        throw NBX::InputException(L"holds complex numbers, which are no heights", path);
    Source source{
        {path, file->bandsOfFile(), first.GetUnitType()}, pool.add(file, wanted), file->reference()};
    if (const double metres = HeightUnit::metres(source.file.heightUnit).value_or(1.0); metres != 1.0)
        source.band = new ScaledBand(source.band, metres);
    return source;
}

std::vector<Source> openSources(const std::vector<std::string> & paths, const std::string & wanted) {
    if (paths.empty()) throw NBX::InputException(L"no raster is named; name at least one");
    const auto pool = std::make_shared<PooledRasterBands>();
    std::vector<Source> sources;
    for (const std::string & path : paths) {
        const bool isFirst = sources.empty();
        sources.push_back(
            openSource(*pool, path, wanted.empty() && !isFirst ? sources.front().reference.wkt : wanted));
        if (sources.back().reference.wkt.empty() != sources.front().reference.wkt.empty())
            throw NBX::InputException(L"of several rasters, either all or none have a coordinate system; set "
                                      L"it with gdal_edit.py -a_srs",
                                      path);
    }
    return sources;
}

double end(double first, unsigned cells, double size) {
    return first + (cells - 1.0) * size;
}

/// The grid that holds all sources: with the finest cells, of which one lies on the first cell of the source
/// that has them.
RasterGrid commonGrid(const std::vector<Source> & sources) {
    RasterGrid finest = sources.front().band->grid();
    for (const Source & source : sources) {
        const RasterGrid & grid = source.band->grid();
        if (grid.cellSizeX * grid.cellSizeY < finest.cellSizeX * finest.cellSizeY) finest = grid;
    }
    const auto extend = [&](double RasterGrid::*first, unsigned RasterGrid::*cells,
                            double RasterGrid::*size) {
        double low = HUGE_VAL, high = -HUGE_VAL;
        for (const Source & source : sources) {
            const RasterGrid & grid = source.band->grid();
            low = std::min(low, grid.*first);
            high = std::max(high, end(grid.*first, grid.*cells, grid.*size));
        }
        const double before = std::ceil((finest.*first - low) / finest.*size - tolerance);
        const double behind = std::floor((high - finest.*first) / finest.*size + tolerance);
        if (!(before + behind < std::numeric_limits<int>::max()))
            throw NBX::InputException(L"lies too far from the other rasters; choose rasters of one area",
                                      sources.front().file.path);
        finest.*first -= before * finest.*size;
        finest.*cells = static_cast<unsigned>(before + behind) + 1;
    };
    extend(&RasterGrid::minX, &RasterGrid::cellsX, &RasterGrid::cellSizeX);
    extend(&RasterGrid::minY, &RasterGrid::cellsY, &RasterGrid::cellSizeY);
    return finest;
}

bool isWhole(double value) {
    return std::abs(value - std::round(value)) <= tolerance;
}

/// Whether the cells of `part` are cells of `whole`.
bool liesOn(const RasterGrid & part, const RasterGrid & whole) {
    const auto agree = [](double first, unsigned cells, double size, double wholeFirst, double wholeSize) {
        return std::abs(size / wholeSize - 1.0) * cells <= tolerance &&
               isWhole((first - wholeFirst) / wholeSize);
    };
    return agree(part.minX, part.cellsX, part.cellSizeX, whole.minX, whole.cellSizeX) &&
           agree(part.minY, part.cellsY, part.cellSizeY, whole.minY, whole.cellSizeY);
}

Layer layerOf(const Source & source, const RasterGrid & whole, const std::string & system) {
    const RasterGrid & grid = source.band->grid();
    const bool isSameSystem = system == source.reference.wkt;
    if (!isSameSystem || !liesOn(grid, whole))
        return {new WarpedRasterBand(source.band, source.reference.wkt, system, whole, source.file.path), 0,
                0};
    return {source.band, static_cast<unsigned>(std::lround((grid.minX - whole.minX) / whole.cellSizeX)),
            static_cast<unsigned>(std::lround((grid.minY - whole.minY) / whole.cellSizeY))};
}

NBX::SO<RasterBand> layered(const std::vector<Source> & sources, const RasterGrid & grid,
                            const std::string & system) {
    std::vector<Layer> layers;
    layers.reserve(sources.size());
    for (const Source & source : sources)
        layers.push_back(layerOf(source, grid, system));
    if (layers.size() == 1 && layers.front().band->cellsX() == grid.cellsX &&
        layers.front().band->cellsY() == grid.cellsY)
        return layers.front().band;
    return new LayeredBand(grid, std::move(layers));
}

RasterGrid scaled(RasterGrid grid, double factor) {
    for (double * number : {&grid.minX, &grid.minY, &grid.cellSizeX, &grid.cellSizeY})
        *number *= factor;
    return grid;
}

} // namespace

HeightSource::HeightSource(const std::vector<std::string> & paths, const std::string & wanted,
                           const std::string & target) {
    const std::vector<Source> sources = openSources(paths, wanted);
    reference_ = sources.front().reference;
    for (const Source & source : sources)
        files_.push_back(source.file);
    const RasterGrid grid = commonGrid(sources);
    const std::string & own = reference_.wkt;
    const auto onGlobe = [&] { return reference_.isGeographic ? gridOnGlobe(grid, reference_.unit) : grid; };
    if (!target.empty() && !own.empty() && !isSameSystem(spatialReference(own), spatialReference(target))) {
        band_ = layered(sources, gridIn(target, onGlobe(), own), target);
        reference_ = metricReference(target);
    } else if (!wanted.empty() || !RasterWarp::isNeeded(reference_)) {
        band_ = layered(sources, grid, own);
    } else if (reference_.isGeographic) {
        const auto [system, metric] = metricGridFor(onGlobe(), reference_);
        band_ = layered(sources, metric, system);
        reference_ = metricReference(system);
    } else {
        band_ = new MovedBand(layered(sources, grid, own), scaled(grid, reference_.unit));
        reference_ = metricReference(systemInMetres(own));
    }
    if (!target.empty() && reference_.wkt.empty() && reference_.isGeoreferenced)
        reference_ = metricReference(target);
}

HeightSource::HeightSource(const GeoRaster & heights)
    : band_(new MemoryBand(heights.raster)), reference_(heights.reference) {}

} // namespace ZMT::RASTER
