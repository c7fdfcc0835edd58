#include <zmt/raster/gdal/rastervoids.h>

#include <algorithm>
#include <cstddef>
#include <limits>

#include "gdalsupport.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

/// Against the streaks of the four directions.
constexpr int smoothings = 2;

std::size_t countVoids(const SimpleRasterData<float> & raster) {
    const float * first = raster.cells();
    const std::size_t cells = static_cast<std::size_t>(raster.cellsX()) * raster.cellsY();
    return static_cast<std::size_t>(
        std::count_if(first, first + cells, [&](float value) { return raster.isUndefValue(value); }));
}

bool fillBand(GDALRasterBand & band, NBX::Progress * progress) {
    char temporary[] = "TEMP_FILE_DRIVER=MEM";
    char * options[] = {temporary, nullptr};
    return band.SetNoDataValue(std::numeric_limits<double>::quiet_NaN()) == CE_None &&
           GDALFillNodata(&band, nullptr, RasterVoids::s_reach, 0, smoothings, options, showProgress,
                          progress) == CE_None;
}

} // namespace

NBX::SO<SimpleRasterData<float>> RasterVoids::fill(const NBX::SO<SimpleRasterData<float>> & raster,
                                                   NBX::Progress * progress) {
    const std::size_t voids = countVoids(*raster);
    if (voids == 0 || voids == static_cast<std::size_t>(raster->cellsX()) * raster->cellsY()) return raster;
    const NBX::SO<SimpleRasterData<float>> filled = copyWithNaN(*raster);
    GdalErrorTrap trap;
    const GdalDataset dataset = wrapRaster(*filled, "");
    const bool worked = fillBand(*dataset->GetRasterBand(1), progress);
    if (progress && progress->isCanceled()) return nullptr;
    if (!worked) throw NBX::InputException(L"cannot fill the voids", "", 0, trap.text());
    return filled;
}

} // namespace ZMT::RASTER
