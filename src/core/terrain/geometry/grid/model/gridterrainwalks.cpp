// A walk goes down to the tiles that are as fine as it needs and hands out their heights, each for the square
// of its tile. Where a tile cannot be read, what is above it and in memory is handed out for that square
// instead.

#include <zmt/core/terrain/geometry/grid/model/gridterrainwalks.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "gridposition.h"
#include "tilereader.h"
#include "tilesquare.h"
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::CORE::GRID {

namespace {

using Point = NBX::Vector3Base<double>;

class TileWalk {
public:
    virtual ~TileWalk() = default;

    /// False when it was cancelled.
    bool visit(GridTerrainTile & tile, const TileSquare & square) {
        if (!meets(square)) return true;
        NBX::SO<GridTerrainTileData> data;
        if (!reader_.learn(tile, data)) return !data || take(*data, square);
        if (!isFineEnough(tile) && tile.hasChildren(true)) return visitChildren(tile, square);
        data = reader_.heights(tile);
        return !data || take(*data, square);
    }
    bool isIncomplete() const { return reader_.isIncomplete(); }

protected:
    virtual bool meets(const TileSquare & square) const = 0;
    virtual bool isFineEnough(const GridTerrainTile & tile) const = 0;
    virtual bool take(const GridTerrainTileData & data, const TileSquare & square) = 0;

private:
    bool visitChildren(GridTerrainTile & tile, const TileSquare & square) {
        for (unsigned i = 0; i < 4; ++i) {
            const NBX::SO<GridTerrainTile> child = tile.child(i, false);
            if (child && !visit(*child, square.quarter(i))) return false;
        }
        return true;
    }

    TileReader reader_{false};
};

/// Whole numbers from `low` to `high`.
unsigned clamped(double value, unsigned low, unsigned high) {
    if (!(value > low)) return low;
    return value < high ? static_cast<unsigned>(value) : high;
}

/// Whether a stretch and a part of a box, which may be a point, share more than an end.
bool share(double begin, double end, double low, double high) {
    return low < end && (high > begin || (low == high && low >= begin));
}

class MeshWalk : public TileWalk {
public:
    explicit MeshWalk(ExtractMeshParam & param) : param_(param) {}

private:
    bool meets(const TileSquare & square) const override {
        const Point &low = param_.box.getLLF(), &high = param_.box.getURB();
        return param_.box.isDefined() && share(square.x, square.endX(), low.x, high.x) &&
               share(square.y, square.endY(), low.y, high.y);
    }

    bool isFineEnough(const GridTerrainTile & tile) const override { return tile.level() <= param_.level; }

    bool take(const GridTerrainTileData & data, const TileSquare & square) override {
        const Point &low = param_.box.getLLF(), &high = param_.box.getURB();
        const auto [firstX, endX] =
            cells(data.tileX(), data, std::max(low.x, square.x), std::min(high.x, square.endX()));
        const auto [firstY, endY] =
            cells(data.tileY(), data, std::max(low.y, square.y), std::min(high.y, square.endY()));
        append(data, firstX, endX, firstY, endY);
        return advance(square);
    }

    /// The cells from `low` to `high`, at least one.
    static std::pair<unsigned, unsigned> cells(unsigned tile, const GridTerrainTileData & data, double low,
                                               double high) {
        const double step = data.step();
        const unsigned last = data.cells() - 2;
        const unsigned first = clamped(std::floor(low / step - tile), 0, last);
        return {first, clamped(std::ceil(high / step - tile), first + 1, last + 1)};
    }

    void append(const GridTerrainTileData & data, unsigned firstX, unsigned endX, unsigned firstY,
                unsigned endY) {
        const unsigned columns = endX - firstX + 1;
        // Numbers of vertices by sample, counted from 1; 0 before the first triangle needs it.
        std::vector<unsigned> numbers(std::size_t(columns) * (endY - firstY + 1), 0);
        const auto add = [&](unsigned x, unsigned y) {
            unsigned & number = numbers[std::size_t(y - firstY) * columns + (x - firstX)];
            if (number == 0) {
                const double step = data.step();
                param_.vertices.push_back({(double(data.tileX()) + x) * step,
                                           (double(data.tileY()) + y) * step, double(data.value(x, y))});
                number = static_cast<unsigned>(param_.vertices.size());
            }
            param_.indices.push_back(number - 1);
        };
        for (unsigned y = firstY; y < endY; ++y)
            for (unsigned x = firstX; x < endX; ++x) {
                if (data.value(x + 1, y) == 0 || data.value(x, y + 1) == 0) continue;
                if (data.value(x, y) != 0) add(x, y), add(x + 1, y), add(x, y + 1);
                if (data.value(x + 1, y + 1) != 0) add(x, y + 1), add(x + 1, y), add(x + 1, y + 1);
            }
    }

    /// By the share of the box that is done.
    bool advance(const TileSquare & square) {
        done_ += area(square);
        if (!param_.progress) return true;
        if (total_ == 0.0) return true;
        param_.isCancelled = !param_.progress->update(param_.progress->totalValue() * done_ / total_);
        return !param_.isCancelled;
    }

public:
    /// What `advance` counts up to.
    void expect(const TileSquare & whole) { total_ = area(whole); }

private:
    double area(const TileSquare & square) const {
        const Point &low = param_.box.getLLF(), &high = param_.box.getURB();
        return (std::min(high.x, square.endX()) - std::max(low.x, square.x)) *
               (std::min(high.y, square.endY()) - std::max(low.y, square.y));
    }

    ExtractMeshParam & param_;
    double done_ = 0.0, total_ = 0.0;
};

/// Heights at the crossings of columns and rows, which ascend.
class LatticeWalk : public TileWalk {
public:
    using Set = std::function<void(std::size_t column, std::size_t row, double height)>;

    /// Tiles with samples at most `step` cells apart will do.
    LatticeWalk(std::vector<double> columns, std::vector<double> rows, double step, Set set)
        : columns_(std::move(columns)), rows_(std::move(rows)), step_(step), set_(std::move(set)) {}

    void run(GridTerrainTile & tile) {
        const TileSquare square = TileSquare::of(tile);
        endX_ = square.endX(), endY_ = square.endY();
        visit(tile, square);
    }

private:
    struct Range {
        std::size_t begin, end;
    };

    /// A position on the border of two tiles is the upper one's, but for the last of all.
    static Range range(const std::vector<double> & positions, double begin, double end, double last) {
        const auto first = std::lower_bound(positions.begin(), positions.end(), begin);
        const auto behind = end < last ? std::lower_bound(first, positions.end(), end)
                                       : std::upper_bound(first, positions.end(), end);
        return {std::size_t(first - positions.begin()), std::size_t(behind - positions.begin())};
    }
    Range columns(const TileSquare & square) const { return range(columns_, square.x, square.endX(), endX_); }
    Range rows(const TileSquare & square) const { return range(rows_, square.y, square.endY(), endY_); }

    bool meets(const TileSquare & square) const override {
        const Range x = columns(square), y = rows(square);
        return x.begin < x.end && y.begin < y.end;
    }

    bool isFineEnough(const GridTerrainTile & tile) const override {
        return std::ldexp(1.0, tile.level()) <= step_;
    }

    bool take(const GridTerrainTileData & data, const TileSquare & square) override {
        const Range x = columns(square), y = rows(square);
        for (std::size_t row = y.begin; row < y.end; ++row)
            for (std::size_t column = x.begin; column < x.end; ++column) {
                const double height = data.calculateVerticalRayIntersection(columns_[column], rows_[row]);
                if (std::isfinite(height)) set_(column, row, height);
            }
        return true;
    }

    std::vector<double> columns_, rows_;
    double step_;
    Set set_;
    double endX_ = 0.0, endY_ = 0.0;
};

std::vector<double> lattice(double first, double step, unsigned count) {
    std::vector<double> positions(count);
    for (unsigned i = 0; i < count; ++i)
        positions[i] = first + i * step;
    return positions;
}

} // namespace

void GridTerrainTile::extractMesh(ExtractMeshParam & param) {
    const TileSquare square = TileSquare::of(*this);
    MeshWalk walk(param);
    walk.expect(square);
    walk.visit(*this, square);
    param.isIncomplete = walk.isIncomplete();
}

void GridTerrainTile::getLightMapRaster(GetLightMapParam & param) {
    param.values.assign(std::size_t(param.width) * param.height, 0.0F);
    const bool isLattice = std::isfinite(param.minX) && std::isfinite(param.minY) &&
                           std::isfinite(param.step) && param.step > 0.0;
    NBX_CHECK(isLattice, L"no lattice");
    if (!isLattice) return;
    LatticeWalk walk(lattice(param.minX, param.step, param.width),
                     lattice(param.minY, param.step, param.height), param.step,
                     [&](std::size_t column, std::size_t row, double height) {
                         param.values[row * param.width + column] = static_cast<float>(height);
                     });
    walk.run(*this);
    param.isIncomplete = walk.isIncomplete();
}

void GridTerrainTile::resampleRasterData(ResamplingParam & param) {
    NBX_CHECK(param.target, L"no target");
    if (!param.target) return;
    RASTER::SimpleRasterData<float> & target = *param.target;
    const Matrix toGeo = grid2geoTf(), toGrid = geo2gridTf();
    std::vector<double> columns(target.cellsX()), rows(target.cellsY());
    for (unsigned i = 0; i < target.cellsX(); ++i)
        columns[i] = positionInGrid(toGeo, toGrid, {target.minX() + i * target.cellSizeX(), 0.0, 0.0}).x;
    for (unsigned i = 0; i < target.cellsY(); ++i)
        rows[i] = positionInGrid(toGeo, toGrid, {0.0, 0.0, target.minY() + i * target.cellSizeY()}).y;
    const double step = std::min(target.cellSizeX() / toGeo(0, 0), target.cellSizeY() / toGeo(2, 1));
    LatticeWalk walk(std::move(columns), std::move(rows), step,
                     [&](std::size_t column, std::size_t row, double height) {
                         const auto x = static_cast<unsigned>(column), y = static_cast<unsigned>(row);
                         if (target.isUndefValue(target.value(x, y)))
                             target.setValue(x, y, static_cast<float>((toGeo * Point(0.0, 0.0, height)).y));
                     });
    walk.run(*this);
    param.isIncomplete = walk.isIncomplete();
}

} // namespace ZMT::CORE::GRID
