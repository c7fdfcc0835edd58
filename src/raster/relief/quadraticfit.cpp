// With weights w(x) w(y) that are the same on both sides, the functions 1, x, y, xy, x² - m2 and y² - m2 are
// orthogonal, where m2 is the mean of x² by these weights, and m4 that of the fourth power. So each
// coefficient is the sum of the heights times its function, divided by the norm of the function: <x z> / m2,
// <(x² - m2) z> / (m4 - m2²), <x y z> / m2². All are products of a sum along the columns and one along the
// row.

#include <zmt/raster/relief/quadraticfit.h>

#include <algorithm>
#include <limits>

#include <nbx/object/errorhandler.h>

namespace ZMT::RASTER {

namespace {

constexpr double s_undefinedTerm = std::numeric_limits<double>::quiet_NaN();

unsigned usableSize(unsigned size) {
    NBX_CHECK(size >= 3 && size <= QuadraticFit::s_largestWindow && size % 2 == 1,
              L"no window to fit a surface in: " << size);
    return std::clamp(size, 3U, QuadraticFit::s_largestWindow) | 1;
}

/// Their sum is 1.
std::vector<double> binomialWeights(unsigned size) {
    std::vector<double> weights(size, 0.0);
    weights[0] = 1.0;
    for (unsigned round = 1; round < size; ++round)
        for (unsigned i = round + 1; i-- > 0;)
            weights[i] = 0.5 * (weights[i] + (i ? weights[i - 1] : 0.0));
    return weights;
}

/// Of the columns of a row of cells, each summed up by the three kernels.
struct ColumnSums {
    std::vector<double> mean, slope, bend;
};

/// For the cell in the middle of the window that begins at `values`.
double sum(const std::vector<double> & kernel, const double * values) {
    double result = 0.0;
    for (std::size_t i = 0; i < kernel.size(); ++i)
        result += kernel[i] * values[i];
    return result;
}

void addColumns(const std::vector<double> & kernel, const float * const * rows, std::vector<double> & sums) {
    for (std::size_t j = 0; j < kernel.size(); ++j)
        for (std::size_t i = 0; i < sums.size(); ++i)
            sums[i] += kernel[j] * static_cast<double>(rows[j][i]);
}

} // namespace

QuadraticFit::QuadraticFit(unsigned windowSize) : mean_(binomialWeights(usableSize(windowSize))) {
    const std::size_t size = mean_.size();
    const std::size_t reach = size / 2;
    const auto middle = static_cast<double>(reach);
    double m2 = 0.0, m4 = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        const double x = double(i) - middle;
        m2 += mean_[i] * x * x;
        m4 += mean_[i] * x * x * x * x;
    }
    slope_.reserve(size);
    bend_.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        const double x = double(i) - middle;
        slope_.push_back(mean_[i] * x / m2);
        bend_.push_back(mean_[i] * (x * x - m2) / (m4 - m2 * m2));
    }
}

void QuadraticFit::fitRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                          QuadraticSurface * surfaces) const {
    constexpr QuadraticSurface undefined{s_undefinedTerm, s_undefinedTerm, s_undefinedTerm, s_undefinedTerm,
                                         s_undefinedTerm};
    std::fill(surfaces, surfaces + width, undefined);
    if (width < windowSize()) return;
    std::vector<double> zeros(width, 0.0);
    ColumnSums sums{zeros, zeros, std::move(zeros)};
    addColumns(mean_, rows, sums.mean);
    addColumns(slope_, rows, sums.slope);
    addColumns(bend_, rows, sums.bend);
    for (std::size_t i = 0; i + windowSize() <= width; ++i) {
        QuadraticSurface & surface = surfaces[i + reach()];
        surface.x = sum(slope_, &sums.mean[i]) / cellSizeX;
        surface.y = sum(mean_, &sums.slope[i]) / cellSizeY;
        surface.xx = sum(bend_, &sums.mean[i]) / (cellSizeX * cellSizeX);
        surface.yy = sum(mean_, &sums.bend[i]) / (cellSizeY * cellSizeY);
        surface.xy = sum(slope_, &sums.slope[i]) / (cellSizeX * cellSizeY);
    }
}

} // namespace ZMT::RASTER
