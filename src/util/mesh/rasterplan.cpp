#include "rasterplan.h"

#include <algorithm>
#include <cmath>

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/planprojection.h>
#include <zmt/raster/gdal/rasterwarp.h>

namespace ZMT::UTIL {

namespace {

using Place = RasterPlan::Place;

/// The places of the vertices at some columns and rows.
std::vector<Place> project(const RASTER::PlanProjection & projection, const RASTER::RasterGrid & grid,
                           const std::vector<double> & columns, const std::vector<double> & rows) {
    std::vector<double> x(columns.size()), y(columns.size());
    std::vector<Place> places;
    places.reserve(columns.size() * rows.size());
    for (const double row : rows) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            x[i] = grid.minX + columns[i] * grid.cellSizeX;
            y[i] = grid.minY + row * grid.cellSizeY;
        }
        if (!projection.project(columns.size(), x.data(), y.data()))
            throw NBX::InputException(L"has places that the map in metres has none for; cut out a part");
        for (std::size_t i = 0; i < columns.size(); ++i)
            places.push_back({x[i], y[i]});
    }
    return places;
}

/// Every so many columns or rows, and what is needed to reach beyond the last.
std::vector<double> stepsOf(unsigned count, unsigned step) {
    std::vector<double> steps;
    for (std::uint64_t i = 0;; i += step) {
        steps.push_back(double(i));
        if (i >= count - 1) return steps;
    }
}

/// `steps` kept within the raster, in which alone there are surely places.
std::vector<double> within(std::vector<double> steps, unsigned count) {
    for (double & step : steps)
        step = std::min(step, double(count) - 1.0);
    return steps;
}

double distance(const Place & a, const Place & b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

Place between(const Place & a, const Place & b, double share) {
    return {a.x + share * (b.x - a.x), a.y + share * (b.y - a.y)};
}

/// How far the middles of the squares between projected places, and those of their edges, are from where
/// interpolation has them, in cells.
double interpolationError(const RASTER::PlanProjection & projection, const RASTER::RasterGrid & grid,
                          unsigned step) {
    const std::vector<double> columns = within(stepsOf(grid.cellsX, step), grid.cellsX);
    const std::vector<double> rows = within(stepsOf(grid.cellsY, step), grid.cellsY);
    const auto middles = [](const std::vector<double> & steps) {
        std::vector<double> result;
        for (std::size_t i = 0; i + 1 < steps.size(); ++i)
            result.push_back(0.5 * (steps[i] + steps[i + 1]));
        return result;
    };
    const std::vector<Place> nodes = project(projection, grid, columns, rows);
    const std::vector<Place> across = project(projection, grid, middles(columns), rows);
    const std::vector<Place> along = project(projection, grid, columns, middles(rows));
    const std::size_t width = columns.size();
    double error = 0.0;
    const auto judge = [&](const Place & a, const Place & b, const Place & middle, double cells) {
        const double length = distance(a, b);
        if (length > 0.0) error = std::max(error, distance(between(a, b, 0.5), middle) * cells / length);
    };
    for (std::size_t y = 0; y < rows.size(); ++y)
        for (std::size_t x = 0; x + 1 < width; ++x)
            judge(nodes[y * width + x], nodes[y * width + x + 1], across[y * (width - 1) + x],
                  columns[x + 1] - columns[x]);
    for (std::size_t y = 0; y + 1 < rows.size(); ++y)
        for (std::size_t x = 0; x < width; ++x)
            judge(nodes[y * width + x], nodes[(y + 1) * width + x], along[y * width + x],
                  rows[y + 1] - rows[y]);
    return error;
}

} // namespace

RasterPlan::RasterPlan(const RASTER::GeoRaster & raster)
    : grid_(raster.raster->grid()), reference_(raster.reference) {
    if (!reference_.isGeographic || !RASTER::RasterWarp::isNeeded(reference_)) return;
    constexpr double s_straight = 0.5, s_exact = 1e-3; // in cells
    const RASTER::PlanProjection projection(raster);
    reference_ = projection.reference();
    const auto refined = [&](unsigned step, double most) {
        while (step > 1 && interpolationError(projection, grid_, step) > most)
            step /= 2;
        return step;
    };
    unsigned whole = 1;
    while (whole < std::max(grid_.cellsX, grid_.cellsY))
        whole *= 2;
    straightSteps_ = refined(whole, s_straight);
    step_ = refined(straightSteps_, s_exact);
    const std::vector<double> columns = within(stepsOf(grid_.cellsX, step_), grid_.cellsX);
    const std::vector<double> rows = within(stepsOf(grid_.cellsY, step_), grid_.cellsY);
    nodesX_ = columns.size();
    nodes_ = project(projection, grid_, columns, rows);
}

RasterPlan::Place RasterPlan::place(unsigned column, unsigned row) const {
    if (step_ == 0) return {grid_.minX + column * grid_.cellSizeX, grid_.minY + row * grid_.cellSizeY};
    // The last square may be smaller than the others.
    const auto locate = [this](unsigned at, unsigned count, std::size_t & index) {
        index = at / step_;
        if (at == count - 1 && index > 0 && at % step_ == 0) --index;
        const unsigned low = unsigned(index) * step_;
        const unsigned size = std::min(step_, count - 1 - low);
        return double(at - low) / double(size);
    };
    std::size_t x, y;
    const double shareX = locate(column, grid_.cellsX, x), shareY = locate(row, grid_.cellsY, y);
    const Place * nodes = nodes_.data() + y * nodesX_ + x;
    return between(between(nodes[0], nodes[1], shareX), between(nodes[nodesX_], nodes[nodesX_ + 1], shareX),
                   shareY);
}

double RasterPlan::cellRatio() const {
    const unsigned column = (grid_.cellsX - 1) / 2, row = (grid_.cellsY - 1) / 2;
    const Place at = place(column, row);
    const double width = distance(at, place(column + 1, row)), height = distance(at, place(column, row + 1));
    const double ratio = height / width;
    // What is nearly square is taken as such, so that positions are small numbers.
    if (std::abs(ratio - 1.0) < 1e-3 || !std::isfinite(ratio)) return 1.0;
    return std::clamp(ratio, 1e-3, 1e3);
}

} // namespace ZMT::UTIL
