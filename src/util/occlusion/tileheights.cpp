// Windows of the raster become meshes: the one at full detail for the tile and its halo, and one of every
// eighth cell for what lies beyond. Both begin and end at every eighth cell, so that neighbouring tiles see
// the same far heights, and near ones leave none of them below themselves. Where the raster ends in between,
// its border goes on level.

#include "tileheights.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::UTIL {

namespace {

constexpr int s_step = static_cast<int>(TileHeights::s_farStep);

int roundedDown(int value) {
    return value / s_step * s_step;
}

int roundedUp(int value) {
    return roundedDown(value + s_step - 1);
}

/// Adds the two triangles of a cell, seen from above; those with a corner below 0 are left out.
void appendCell(int southWest, int southEast, int northWest, int northEast, std::vector<unsigned> & corners) {
    const auto append = [&](int a, int b, int c) {
        if (a >= 0 && b >= 0 && c >= 0)
            corners.insert(corners.end(), {unsigned(a), unsigned(b), unsigned(c)});
    };
    append(southWest, southEast, northWest);
    append(southEast, northEast, northWest);
}

} // namespace

TileHeights::TileHeights(const RASTER::RasterBand & band, const NBX::Area & tile,
                         std::pair<double, double> cellSize, unsigned halo, unsigned farHalo)
    : tile_(tile), cellSize_(cellSize), reach_(static_cast<int>(std::max(farHalo, halo))) {
    near_ = read(band, (halo + s_farStep - 1) / s_farStep * s_farStep, 1);
    far_ = read(band, static_cast<unsigned>(reach_), s_farStep);
    float lowest = std::numeric_limits<float>::infinity();
    for (const float height : near_.heights)
        lowest = std::min(std::isnan(height) ? lowest : height, lowest);
    base_ = std::isfinite(lowest) ? lowest : 0.0F;
    for (unsigned row = 0; row < tile.getHeight(); ++row)
        for (unsigned column = 0; column < tile.getWidth(); ++column)
            hasHeights_ = hasHeights_ || isDefined(column, row);
}

TileHeights::Window TileHeights::read(const RASTER::RasterBand & band, unsigned around, unsigned step) const {
    const int margin = static_cast<int>(around), cellsX = static_cast<int>(band.cellsX()),
              cellsY = static_cast<int>(band.cellsY()), s = static_cast<int>(step);
    Window window;
    window.step = step;
    window.x = roundedDown(std::max(tile_.getX() - margin, 0));
    window.y = roundedDown(std::max(tile_.getY() - margin, 0));
    const int endX =
        roundedUp(std::min(tile_.getX() + static_cast<int>(tile_.getWidth()) + margin, cellsX - 1));
    const int endY =
        roundedUp(std::min(tile_.getY() + static_cast<int>(tile_.getHeight()) + margin, cellsY - 1));
    window.width = static_cast<unsigned>((endX - window.x) / s + 1);
    window.height = static_cast<unsigned>((endY - window.y) / s + 1);
    window.heights.resize(std::size_t(window.width) * window.height);
    const auto lastX = static_cast<unsigned>(std::min(endX, cellsX - 1) - window.x);
    std::vector<float> row(std::size_t(lastX) + 1);
    for (unsigned i = 0; i < window.height; ++i) {
        const auto y = static_cast<unsigned>(std::min(window.y + static_cast<int>(i) * s, cellsY - 1));
        band.read(static_cast<unsigned>(window.x), y, lastX + 1, 1, row.data());
        for (unsigned k = 0; k < window.width; ++k)
            window.heights[std::size_t(i) * window.width + k] = row[std::min(k * step, lastX)];
    }
    return window;
}

float TileHeights::Window::clamped(int cellX, int cellY) const {
    return at(static_cast<unsigned>(std::clamp(cellX - x, 0, static_cast<int>(width) - 1)),
              static_cast<unsigned>(std::clamp(cellY - y, 0, static_cast<int>(height) - 1)));
}

bool TileHeights::isDefined(unsigned column, unsigned row) const {
    return !std::isnan(
        near_.clamped(tile_.getX() + static_cast<int>(column), tile_.getY() + static_cast<int>(row)));
}

TileHeights::Vector TileHeights::middle() const {
    return {tile_.getX() + tile_.getWidth() / 2.0, double(base_), tile_.getY() + tile_.getHeight() / 2.0};
}

TileHeights::Vector TileHeights::place(double cellX, double cellY, double height) const {
    const Vector from = middle();
    return {(cellX - from.x) * cellSize_.first, height - from.y, (cellY - from.z) * cellSize_.second};
}

/// The height, or where there is none the mean of those around it; NaN without any.
float TileHeights::filled(int cellX, int cellY) const {
    const float own = near_.clamped(cellX, cellY);
    if (!std::isnan(own)) return own;
    float sum = 0.0F;
    int count = 0;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const float height = near_.clamped(cellX + dx, cellY + dy);
            if (std::isnan(height)) continue;
            sum += height;
            ++count;
        }
    return count ? sum / static_cast<float>(count) : own;
}

NBX::SO<NBX::PolygonSet> TileHeights::newReceiver(unsigned size) const {
    // One vertex beyond each side, so that the outermost texels lie between vertices.
    const int width = static_cast<int>(tile_.getWidth()) + 2,
              height = static_cast<int>(tile_.getHeight()) + 2;
    std::vector<Vector> vertices, normals, places;
    std::vector<int> numbers(std::size_t(width) * std::size_t(height), -1);
    std::vector<unsigned> corners;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            const int x = tile_.getX() + column - 1, y = tile_.getY() + row - 1;
            const float own = filled(x, y);
            if (std::isnan(own)) continue;
            numbers[std::size_t(row) * std::size_t(width) + std::size_t(column)] =
                static_cast<int>(vertices.size());
            vertices.push_back(place(x, y, double(own)));
            places.emplace_back((column - 0.5) / size, (row - 0.5) / size, 0.0);
            const auto slope = [&](int dx, int dy, double step) {
                const float before = filled(x - dx, y - dy), behind = filled(x + dx, y + dy);
                const bool hasBefore = !std::isnan(before), hasBehind = !std::isnan(behind);
                const double rise = double(hasBehind ? behind : own) - double(hasBefore ? before : own);
                return rise / (step * std::max(int(hasBefore) + int(hasBehind), 1));
            };
            normals.push_back(
                Vector(-slope(1, 0, cellSize_.first), 1.0, -slope(0, 1, cellSize_.second)).normalized());
        }
    for (int row = 0; row + 1 < height; ++row)
        for (int column = 0; column + 1 < width; ++column) {
            const int * cell = &numbers[std::size_t(row) * std::size_t(width) + std::size_t(column)];
            appendCell(cell[0], cell[1], cell[width], cell[width + 1], corners);
        }
    NBX::SO<NBX::PolygonSet> set(new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles,
                                                     new NBX::Array<Vector>(std::move(vertices)),
                                                     new NBX::Array<unsigned>(std::move(corners))));
    set->setNormalIterator(new NBX::Array<Vector>(std::move(normals)));
    set->setTextureIterator(new NBX::Array<Vector>(std::move(places)));
    return set;
}

void TileHeights::appendTriangles(const Window & window, const Window * leftOut,
                                  std::vector<Vector> & vertices, std::vector<unsigned> & corners) const {
    const int step = static_cast<int>(window.step);
    std::vector<int> numbers(window.heights.size(), -1);
    for (unsigned row = 0; row < window.height; ++row)
        for (unsigned column = 0; column < window.width; ++column) {
            if (std::isnan(window.at(column, row))) continue;
            numbers[std::size_t(row) * window.width + column] = static_cast<int>(vertices.size());
            vertices.push_back(place(window.x + static_cast<int>(column) * step,
                                     window.y + static_cast<int>(row) * step,
                                     double(window.at(column, row))));
        }
    for (unsigned row = 0; row + 1 < window.height; ++row)
        for (unsigned column = 0; column + 1 < window.width; ++column) {
            const int x = window.x + static_cast<int>(column) * step,
                      y = window.y + static_cast<int>(row) * step;
            const bool isInside = leftOut && x >= leftOut->x && x + step <= leftOut->endX() &&
                                  y >= leftOut->y && y + step <= leftOut->endY();
            const int * cell = &numbers[std::size_t(row) * window.width + column];
            if (!isInside) appendCell(cell[0], cell[1], cell[window.width], cell[window.width + 1], corners);
        }
}

void TileHeights::appendBodies(const NBX::PolygonSet & bodies, std::vector<Vector> & vertices,
                               std::vector<unsigned> & corners) const {
    const auto & places = *bodies.newVertexIterator();
    const double west = tile_.getX() - reach_, east = tile_.getX() + double(tile_.getWidth()) + reach_,
                 south = tile_.getY() - reach_, north = tile_.getY() + double(tile_.getHeight()) + reach_;
    std::array<unsigned, 3> triangle{};
    for (unsigned i = 0; i < bodies.triangles(); ++i) {
        if (!bodies.triangle(i, triangle)) continue;
        const Vector a = places.get(triangle[0]), b = places.get(triangle[1]), c = places.get(triangle[2]);
        if (std::max({a.x, b.x, c.x}) < west || std::min({a.x, b.x, c.x}) > east) continue;
        if (std::max({a.z, b.z, c.z}) < south || std::min({a.z, b.z, c.z}) > north) continue;
        for (const Vector & p : {a, b, c}) {
            corners.push_back(static_cast<unsigned>(vertices.size()));
            vertices.push_back(place(p.x, p.z, p.y));
        }
    }
}

NBX::SO<NBX::PolygonSet> TileHeights::newCasters(const NBX::PolygonSet * bodies) const {
    std::vector<Vector> vertices;
    std::vector<unsigned> corners;
    appendTriangles(near_, nullptr, vertices, corners);
    appendTriangles(far_, &near_, vertices, corners);
    if (bodies && bodies->newVertexIterator()) appendBodies(*bodies, vertices, corners);
    return new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<Vector>(std::move(vertices)),
                               new NBX::Array<unsigned>(std::move(corners)));
}

} // namespace ZMT::UTIL
