#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "core/terrain/geometry/chunked/chunkedlodpatchmesh.h"
#include "core/terrain/geometry/chunked/chunkedlodterrainpatch.h"
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/inspect/patchmesh.h>
#include <zmt/raster/rasterdata.h>

/// Measures how far a patch, as it is drawn, lies from the heights of its raster: triangle by triangle,
/// vertex by vertex. For patches of grids and of chunked terrains; those are drawn in scene coordinates, so
/// that the origin of the scene must not have changed since.
class PatchDeviation {
public:
    /// The largest vertical distance from a defined height in the area of `patch`. Infinite where no triangle
    /// covers one.
    static double of(const ZMT::CORE::GeometryPatch & patch) {
        PatchDeviation deviation(patch);
        return deviation.largest_;
    }

private:
    struct Corner {
        long column, row;
        double height;
    };

    explicit PatchDeviation(const ZMT::CORE::GeometryPatch & patch)
        : raster_(*static_cast<const ZMT::CORE::GridData &>(*patch.data()).rasterData()) {
        if (const auto * chunk = dynamic_cast<const ZMT::CORE::ChunkedLodTerrain::Patch *>(&patch))
            addChunk(*chunk);
        else
            addMesh(patch);
        // A patch of which one column or row lies in the raster has no area.
        const bool hasArea = width_ > 1 && long(isCovered_.size()) > width_;
        for (std::size_t i = 0; hasArea && i < isCovered_.size(); ++i)
            if (!isCovered_[i] && isDefined(x_ + long(i) % width_, y_ + long(i) / width_))
                largest_ = std::numeric_limits<double>::infinity();
    }

    void setArea(long x, long y, long cellsX, long cellsY) {
        x_ = x;
        y_ = y;
        width_ = std::min(cellsX, long(raster_.cellsX()) - 1 - x) + 1;
        const long height = std::min(cellsY, long(raster_.cellsY()) - 1 - y) + 1;
        isCovered_.resize(std::size_t(width_) * std::size_t(height));
    }

    void addChunk(const ZMT::CORE::ChunkedLodTerrain::Patch & patch) {
        const ZMT::CORE::ChunkedLodTerrain & terrain = *patch.terrain();
        setArea(patch.x(), patch.y(), patch.size() - 1, patch.size() - 1);
        const ZMT::CORE::ChunkedLodPatchMesh mesh(patch);
        const auto origin = terrain.sceneOrigin();
        const auto corner = [&](std::size_t i) {
            const auto & v = mesh.vertices[mesh.strips.indices[i]];
            return Corner{std::lround((v.x - origin.x) / terrain.cellSizeX()),
                          std::lround((v.z - origin.z) / terrain.cellSizeY()),
                          v.y - origin.y + terrain.minHeight()};
        };
        for (std::size_t i = 2; i < mesh.strips.ranges.at(0); ++i)
            addTriangle(corner(i - 2), corner(i - 1), corner(i));
    }

    void addMesh(const ZMT::CORE::GeometryPatch & patch) {
        const auto & grid = static_cast<const ZMT::CORE::GridData &>(*patch.data());
        const ZMT::CORE::PatchMesh mesh(patch);
        const NBX::Area domain = mesh.domain();
        setArea(domain.getX(), domain.getY(), long(domain.getWidth()), long(domain.getHeight()));
        const auto corner = [&](unsigned v) {
            const auto p = mesh.geoPosition(v) - grid.origin();
            return Corner{std::lround(p.x / grid.scale().x), std::lround(p.z / grid.scale().z),
                          p.y + grid.origin().y};
        };
        mesh.forEachTriangle(
            [&](unsigned a, unsigned b, unsigned c) { addTriangle(corner(a), corner(b), corner(c)); });
    }

    bool isDefined(long column, long row) const {
        return !raster_.isUndefValue(raster_.value(unsigned(column), unsigned(row)));
    }

    void addTriangle(const Corner & a, const Corner & b, const Corner & c) {
        const long area = (b.column - a.column) * (c.row - a.row) - (c.column - a.column) * (b.row - a.row);
        if (area == 0) return;
        const auto [low, high] = std::minmax({a.row, b.row, c.row});
        for (long row = low; row <= high; ++row) {
            double first = std::numeric_limits<double>::infinity(), last = -first;
            cross(a, b, row, first, last);
            cross(b, c, row, first, last);
            cross(c, a, row, first, last);
            constexpr double rounding = 1e-9;
            for (long column = long(std::ceil(first - rounding)); double(column) <= last + rounding;
                 ++column) {
                const long weightB =
                    (column - a.column) * (c.row - a.row) - (c.column - a.column) * (row - a.row);
                const long weightC =
                    (b.column - a.column) * (row - a.row) - (column - a.column) * (b.row - a.row);
                addVertex(column, row,
                          a.height + (double(weightB) * (b.height - a.height) +
                                      double(weightC) * (c.height - a.height)) /
                                         double(area));
            }
        }
    }

    /// Widens the range of columns of a row by where it crosses an edge.
    static void cross(const Corner & a, const Corner & b, long row, double & first, double & last) {
        if (row < std::min(a.row, b.row) || row > std::max(a.row, b.row)) return;
        const auto add = [&](double column) {
            first = std::min(first, column);
            last = std::max(last, column);
        };
        if (a.row != b.row)
            return add(double(a.column) +
                       double((row - a.row) * (b.column - a.column)) / double(b.row - a.row));
        add(double(a.column));
        add(double(b.column));
    }

    void addVertex(long column, long row, double drawn) {
        isCovered_[std::size_t(column - x_ + (row - y_) * width_)] = true;
        if (!isDefined(column, row)) return;
        largest_ = std::max(largest_, std::abs(drawn - raster_.value(unsigned(column), unsigned(row))));
    }

    const ZMT::RASTER::RasterData & raster_;
    long x_ = 0, y_ = 0, width_ = 0;
    std::vector<bool> isCovered_;
    double largest_ = 0.0;
};
