#include <zmt/util/hachures/hachuredefaults.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include <zmt/raster/rasterdata.h>

namespace ZMT::UTIL {

namespace {

/// Pixels along the longer side, unless there are more cells.
constexpr unsigned s_side = 1600;
/// Pixels from cell to cell, at most: strokes begin at cells, which are not to be seen as a pattern.
constexpr unsigned s_finest = 4;
/// Pixels from contour to contour where the ground is as steep as usual.
constexpr double s_rowPixels = 30.0;
/// The share of the usual slope up to which ground stays white.
constexpr double s_levelShare = 0.4;
/// Cells that are looked at, at least, where there are so many.
constexpr double s_samples = 500'000.0;

/// The slope that half of the cells are steeper than, as a tangent; 0 where there are none. Of large rasters
/// some rows are taken for all.
double medianSlope(const RASTER::RasterData & raster) {
    const unsigned width = raster.cellsX(), height = raster.cellsY();
    const auto step = static_cast<unsigned>(std::max(1.0, double(width) * height / s_samples));
    std::vector<double> row(width), north(width), slopes;
    for (unsigned y = 0; y + 1 < height; y += step) {
        raster.valueRow(y, row.data());
        raster.valueRow(y + 1, north.data());
        for (unsigned x = 0; x + 1 < width; ++x) {
            if (raster.isUndefValue(row[x]) || raster.isUndefValue(row[x + 1]) ||
                raster.isUndefValue(north[x]))
                continue;
            slopes.push_back(std::hypot((row[x + 1] - row[x]) / raster.cellSizeX(),
                                        (north[x] - row[x]) / raster.cellSizeY()));
        }
    }
    if (slopes.empty()) return 0.0;
    const auto middle = slopes.begin() + std::ptrdiff_t(slopes.size() / 2);
    std::nth_element(slopes.begin(), middle, slopes.end());
    return *middle;
}

} // namespace

double HachureDefaults::rounded(double number) {
    const double power = std::pow(10.0, std::floor(std::log10(number)));
    double best = power;
    for (const double digits : {2.0, 5.0, 10.0})
        if (std::abs(digits * power - number) < std::abs(best - number)) best = digits * power;
    return best;
}

HachureDefaults HachureDefaults::of(const RASTER::RasterData & raster) {
    HachureDefaults result;
    const unsigned longer = std::max({raster.cellsX(), raster.cellsY(), 2U}) - 1;
    const unsigned finer = std::clamp((s_side + longer / 2) / longer, 1U, s_finest);
    result.width = std::max(2U, (raster.cellsX() - 1) * finer + 1);
    result.height = std::max(2U, (raster.cellsY() - 1) * finer + 1);
    result.settings.fullLength = true;
    result.settings.windowSize = 5;
    const double slope = medianSlope(raster);
    if (!(slope > 0.0)) return result;
    const double pixel = (raster.maxX() - raster.minX()) / (result.width - 1.0);
    result.settings.heightInterval = rounded(s_rowPixels * pixel * slope);
    result.usualSlope = std::atan(slope) * (180.0 / M_PI);
    result.settings.minSlope = s_levelShare * result.usualSlope;
    return result;
}

} // namespace ZMT::UTIL
