#include <zmt/raster/gdal/rasterfile.h>

#include <algorithm>
#include <limits>

#include "gdalrasterband.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

struct RasterFile::Impl {
    std::shared_ptr<const GdalSource> source;
    RasterGrid grid;

    GDALRasterBand & band(unsigned index) const {
        const auto bands = static_cast<unsigned>(source->dataset().GetRasterCount());
        if (index >= bands)
            throw NBX::InputException(L"has no band " + std::to_wstring(index + 1) + L", only " +
                                          std::to_wstring(bands),
                                      source->path());
        GDALRasterBand & result = *source->dataset().GetRasterBand(static_cast<int>(index) + 1);
        if (GDALDataTypeIsComplex(result.GetRasterDataType()))
            throw NBX::InputException(L"holds complex numbers, which are no heights", source->path());
        return result;
    }
};

RasterFile::RasterFile(const std::string & path) : impl_(std::make_unique<Impl>()) {
    impl_->source = std::make_shared<GdalSource>(path, GdalSource::Outside::NaN);
    impl_->grid = impl_->source->grid();
}

RasterFile::~RasterFile() = default;

std::vector<std::string> RasterFile::partsOf(const std::string & path) {
    GdalErrorTrap trap;
    std::vector<std::string> parts;
    try {
        const GdalDataset dataset = openDataset(path, GDAL_OF_RASTER, L"", trap);
        char ** files = dataset->GetFileList();
        for (char ** file = files; file && *file; ++file)
            parts.emplace_back(*file);
        CSLDestroy(files);
    } catch (const NBX::InputException &) {
        // Who reads it says why.
    }
    return parts;
}

void RasterFile::limitCache(std::uint64_t bytes) {
    const GdalErrorTrap registered;
    if (!CPLGetConfigOption("GDAL_CACHEMAX", nullptr)) GDALSetCacheMax64(static_cast<GIntBig>(bytes));
}

const std::string & RasterFile::path() const {
    return impl_->source->path();
}

std::string RasterFile::format() const {
    return impl_->source->format();
}

unsigned RasterFile::bands() const {
    return static_cast<unsigned>(impl_->source->dataset().GetRasterCount());
}

const RasterGrid & RasterFile::grid() const {
    return impl_->grid;
}

const GeoReference & RasterFile::reference() const {
    return impl_->source->reference();
}

std::string RasterFile::heightUnit(unsigned band) const {
    return impl_->band(band).GetUnitType();
}

RasterFile::BandDescription RasterFile::describe(unsigned index) const {
    GdalErrorTrap trap;
    const auto bands = static_cast<unsigned>(impl_->source->dataset().GetRasterCount());
    if (index >= bands) impl_->band(index);
    GDALRasterBand & band = *impl_->source->dataset().GetRasterBand(static_cast<int>(index) + 1);
    BandDescription result;
    result.type = GDALGetDataTypeName(band.GetRasterDataType());
    if (band.GetColorInterpretation() != GCI_Undefined)
        result.meaning = GDALGetColorInterpretationName(band.GetColorInterpretation());
    int hasNoData = FALSE;
    const double noData = band.GetNoDataValue(&hasNoData);
    if (hasNoData) result.noData = noData;
    result.unit = band.GetUnitType();
    return result;
}

NBX::SO<RasterBand> RasterFile::band(unsigned index) const {
    impl_->band(index);
    GdalErrorTrap trap;
    return NBX::SO<RasterBand>(new GdalRasterBand(impl_->source, index));
}

GeoRaster RasterFile::read(unsigned band, NBX::Progress * progress, std::uint64_t maxCells) const {
    const RasterGrid & grid = impl_->grid;
    const NBX::SO<RasterBand> source = this->band(band);
    if (grid.cellsY > maxCells / grid.cellsX)
        throw NBX::InputException(L"the raster is too large: " + std::to_wstring(grid.cellsX) + L" x " +
                                      std::to_wstring(grid.cellsY) + L" cells, of which at most " +
                                      std::to_wstring(maxCells) +
                                      L" fit; cut out a part or reduce it, for example with gdal_translate",
                                  path());
    GeoRaster result;
    result.reference = reference();
    NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                    grid.cellSizeY, true, std::numeric_limits<float>::quiet_NaN()));
    const unsigned step = GdalRasterBand::rowsAtOnce(grid.cellsX);
    for (unsigned row = 0; row < grid.cellsY; row += step) {
        if (progress && !progress->update(progress->totalValue() * row / grid.cellsY)) return result;
        const unsigned rows = std::min(step, grid.cellsY - row);
        source->read(0, row, grid.cellsX, rows,
                     raster->cells() + static_cast<std::size_t>(row) * grid.cellsX);
    }
    if (progress && !progress->update(progress->totalValue())) return result;
    result.raster = raster;
    return result;
}

} // namespace ZMT::RASTER
