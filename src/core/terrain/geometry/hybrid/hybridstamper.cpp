// Features are put on a lattice of 2^30 steps a cell and cut at the grid lines into pieces of single cells.
// When the grid is built, each cell gets the crossings of its pieces, then the nodes on its sides that its
// neighbours have, then a constrained Delaunay triangulation of its own.
//
// On whole numbers both cells beside a grid line see the same nodes, so that no crack opens between them.

#include "hybridstamper.h"

#include <algorithm>
#include <cmath>

#include "cellarrangement.h"
#include "core/terrain/geometry/regular/griddomain.h"

#include "microindextable.h"
#include <zmt/core/terrain/geometry/hybrid/createhybridimpl.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tin/predicates.h>
#include <zmt/core/terrain/geometry/tin/tin.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::CORE {

namespace {

using Point = HybridStamper::Point;
using CellTin = Tin<HybridCellAccessor>;

constexpr std::int64_t s_cell = LatticeNode::s_cell;
constexpr unsigned s_cellBits = LatticeNode::s_cellBits;

/// x and z in the plane.
Point inPlane(const Point & p) {
    return {p.x, p.z, p.y};
}

bool isLeftTurn(const Point & a, const Point & b, const Point & c) {
    return orient2d(inPlane(a), inPlane(b), inPlane(c)) > 0.0;
}

/// Height of the plane through `p` at `at`, which is inside; within the heights of the corners.
double heightInTriangle(const std::array<Point, 3> & p, const Point & at) {
    double weights[3], sum = 0.0, height = 0.0;
    for (unsigned k = 0; k < 3; ++k) {
        weights[k] = std::max(0.0, orient2d(inPlane(p[(k + 1) % 3]), inPlane(p[(k + 2) % 3]), at));
        sum += weights[k];
        height += weights[k] * p[k].y;
    }
    return sum > 0.0 ? height / sum : p[0].y;
}

NBX::SO<RASTER::SimpleRasterData<float>> copyOf(const RASTER::RasterData & raster) {
    NBX::SO<RASTER::SimpleRasterData<float>> copy(new RASTER::SimpleRasterData<float>(
        raster.cellsX(), raster.cellsY(), raster.minX(), raster.minY(), raster.cellSizeX(),
        raster.cellSizeY(), raster.hasUndefValue(), static_cast<float>(raster.undefValue())));
    copy->setUseLinearInterpolation(raster.useLinearInterpolation());
    std::vector<double> row(raster.cellsX());
    for (unsigned y = 0; y < raster.cellsY(); ++y) {
        raster.valueRow(y, row.data());
        std::transform(row.begin(), row.end(), copy->cells() + std::size_t(y) * raster.cellsX(),
                       [](double height) { return static_cast<float>(height); });
    }
    return copy;
}

} // namespace

/// What was stamped, cell by cell. A cell has the number of its lowest vertex.
struct HybridStamper::Cells {
    struct Entry {
        unsigned cell;
        LatticePiece piece;
    };
    struct Cell {
        unsigned number;
        std::vector<LatticePiece> pieces;
        std::vector<LatticeNode> nodes;
    };

    std::vector<Entry> entries;
    std::vector<Cell> cells; ///< in the order of their numbers
};

HybridStamper::HybridStamper(const GridData & grid)
    : origin_(grid.origin()), scale_(grid.scale()), sizeX_(grid.sizeX()), sizeY_(grid.sizeY()),
      bbox_(placeOf(grid)), raster_(copyOf(*grid.rasterData())), cells_(new Cells) {}

HybridStamper::~HybridStamper() = default;

bool HybridStamper::isInside(const Point & p) const {
    NBX_CHECK_RANGE(bbox_.getLLF()[0], p[0], bbox_.getURB()[0]);
    NBX_CHECK_RANGE(bbox_.getLLF()[2], p[2], bbox_.getURB()[2]);
    NBX_CHECK(std::isfinite(p[1]), L"height is not finite");
    return bbox_.getLLF()[0] <= p[0] && p[0] < bbox_.getURB()[0] && bbox_.getLLF()[2] <= p[2] &&
           p[2] < bbox_.getURB()[2] && std::isfinite(p[1]);
}

void HybridStamper::stamp(const std::vector<Point> & points) {
    NBX_CHECK_RANGE(1, points.size(), 4);
    bool areInside = true;
    for (const Point & p : points)
        areInside = isInside(p) && areInside;
    if (!areInside) return;
    ++features_;
    if (points.size() == 1) stampPoint(points[0]);
    if (points.size() == 2) stampSegment(points[0], points[1]);
    if (points.size() == 3) stampTriangle(points[0], points[1], points[2]);
}

LatticeNode HybridStamper::node(const Point & p) const {
    const auto onLattice = [](double distance, double cellSize) {
        return static_cast<std::int64_t>(std::llround(distance / cellSize * double(s_cell)));
    };
    return {onLattice(p.x - origin_.x, scale_.x), onLattice(p.z - origin_.z, scale_.z), features_, p};
}

Point HybridStamper::positionAt(double u, double v, double height) const {
    constexpr double step = 1.0 / double(s_cell);
    return {origin_.x + scale_.x * (u * step), height, origin_.z + scale_.z * (v * step)};
}

LatticeNode HybridStamper::between(const LatticeNode & a, const LatticeNode & b, std::int64_t u,
                                   std::int64_t v) const {
    return {u, v, a.feature, positionAt(double(u), double(v), heightBetween(a, b, u, v))};
}

LatticeNode HybridStamper::gridVertex(std::int64_t x, std::int64_t y) const {
    const double height = raster_->value(static_cast<unsigned>(x), static_cast<unsigned>(y));
    return {x * s_cell, y * s_cell, 0, positionAt(double(x * s_cell), double(y * s_cell), height)};
}

bool HybridStamper::isCell(std::int64_t x, std::int64_t y) const {
    return x >= 0 && y >= 0 && x + 1 < sizeX_ && y + 1 < sizeY_;
}

void HybridStamper::setHeight(const LatticeNode & vertex) {
    raster_->setValue(static_cast<unsigned>(vertex.u >> s_cellBits),
                      static_cast<unsigned>(vertex.v >> s_cellBits), static_cast<float>(vertex.position.y));
}

void HybridStamper::stampPoint(const Point & p) {
    const LatticeNode n = node(p);
    addPiece(n, n);
}

// Cut at the columns of the grid in the order of x, then between two columns at the rows.
void HybridStamper::stampSegment(const Point & from, const Point & to) {
    LatticeNode a = node(from), b = node(to);
    if (a.u > b.u) std::swap(a, b);
    LatticeNode last = a;
    for (std::int64_t u = ((a.u >> s_cellBits) + 1) << s_cellBits; u < b.u; u += s_cell) {
        __extension__ const auto rise = static_cast<__int128>(b.v - a.v) * (u - a.u);
        const LatticeNode next = between(a, b, u, a.v + roundedQuotient(rise, b.u - a.u));
        stampColumn(last, next);
        last = next;
    }
    stampColumn(last, b);
}

void HybridStamper::stampColumn(LatticeNode a, LatticeNode b) {
    if (a.v > b.v) std::swap(a, b);
    LatticeNode last = a;
    for (std::int64_t v = ((a.v >> s_cellBits) + 1) << s_cellBits; v < b.v; v += s_cell) {
        __extension__ const auto run = static_cast<__int128>(b.u - a.u) * (v - a.v);
        const LatticeNode next = between(a, b, a.u + roundedQuotient(run, b.v - a.v), v);
        addPiece(last, next);
        last = next;
    }
    addPiece(last, b);
}

// A piece on a grid line belongs to the cells on both sides.
void HybridStamper::addPiece(const LatticeNode & a, const LatticeNode & b) {
    const std::int64_t x = std::min(a.u, b.u) >> s_cellBits, y = std::min(a.v, b.v) >> s_cellBits;
    NBX_CHECK_RANGE(0, x, sizeX_);
    NBX_CHECK_RANGE(0, y, sizeY_);
    for (const LatticeNode * end : {&a, &b})
        if (end->isGridVertex()) setHeight(*end);
    if (a.isAt(b) && a.isGridVertex()) return;

    const bool isOnColumn = a.u == b.u && a.isOnColumn(), isOnRow = a.v == b.v && a.isOnRow();
    for (std::int64_t cellY = y - (isOnRow ? 1 : 0); cellY <= y; ++cellY)
        for (std::int64_t cellX = x - (isOnColumn ? 1 : 0); cellX <= x; ++cellX)
            if (isCell(cellX, cellY))
                cells_->entries.push_back({static_cast<unsigned>(cellX + cellY * sizeX_), {a, b}});
}

void HybridStamper::stampTriangle(const Point & a, const Point & b, const Point & c) {
    std::array<Point, 3> p{a, b, c};
    if (!isLeftTurn(p[0], p[1], p[2])) std::swap(p[1], p[2]);
    NBX_CHECK(isLeftTurn(p[0], p[1], p[2]), L"degenerated triangle");
    if (!isLeftTurn(p[0], p[1], p[2])) return;
    flatten(p);
    for (unsigned k = 0; k < 3; ++k)
        stampSegment(p[k], p[(k + 1) % 3]);
}

void HybridStamper::flatten(const std::array<Point, 3> & p) {
    NBX::Bounds box;
    for (const Point & corner : p)
        box += corner - origin_;
    const auto x0 = static_cast<unsigned>(box.getLLF().x / scale_.x);
    const auto y0 = static_cast<unsigned>(box.getLLF().z / scale_.z);
    const unsigned x1 = std::min(static_cast<unsigned>(box.getURB().x / scale_.x) + 1, sizeX_ - 1);
    const unsigned y1 = std::min(static_cast<unsigned>(box.getURB().z / scale_.z) + 1, sizeY_ - 1);
    for (unsigned y = y0; y <= y1; ++y) {
        for (unsigned x = x0; x <= x1; ++x) {
            const Point at(origin_.x + scale_.x * x, origin_.z + scale_.z * y, 0.0);
            bool isInside = true;
            for (unsigned k = 0; k < 3 && isInside; ++k)
                isInside = orient2d(inPlane(p[k]), inPlane(p[(k + 1) % 3]), at) >= 0.0;
            if (isInside) raster_->setValue(x, y, static_cast<float>(heightInTriangle(p, at)));
        }
    }
}

NBX::SO<HybridData> HybridStamper::build() {
    findNodes();
    shareNodes();
    std::vector<Point> vertices;
    std::vector<unsigned> cells, ends, indices;
    for (std::size_t i = 0; i < cells_->cells.size(); ++i) {
        triangulate(i, vertices, indices);
        cells.push_back(cells_->cells[i].number);
        ends.push_back(static_cast<unsigned>(indices.size()));
        if (std::uint64_t(sizeX_) * sizeY_ + vertices.size() > UINT32_MAX || indices.size() > UINT32_MAX)
            throw NBX::IOError(L"hybrid grid has too many vertices",
                               L"Stamp less, or cut the grid into parts.");
    }
    cells_->cells.clear();
    NBX::SO<MicroIndexTable> table(
        new MicroIndexTable(sizeX_, sizeY_, std::move(cells), std::move(ends), std::move(indices)));
    return new HybridData(raster_.get(), vertices, table.get());
}

/// Gathers the pieces of each cell, and the ends and crossings in it.
void HybridStamper::findNodes() {
    std::stable_sort(cells_->entries.begin(), cells_->entries.end(),
                     [](const Cells::Entry & a, const Cells::Entry & b) { return a.cell < b.cell; });
    std::vector<Cells::Cell> & cells = cells_->cells;
    for (const Cells::Entry & entry : cells_->entries) {
        if (cells.empty() || cells.back().number != entry.cell) cells.push_back({entry.cell, {}, {}});
        cells.back().pieces.push_back(entry.piece);
    }
    cells_->entries = {};
    for (Cells::Cell & cell : cells) {
        cell.nodes = CellArrangement::crossings(cell.pieces);
        for (LatticeNode & crossing : cell.nodes) {
            crossing.position = positionAt(double(crossing.u), double(crossing.v), crossing.position.y);
            if (crossing.isGridVertex()) setHeight(crossing);
        }
        for (const LatticePiece & piece : cell.pieces) {
            cell.nodes.push_back(piece.a);
            cell.nodes.push_back(piece.b);
        }
        CellArrangement::removeDuplicates(cell.nodes);
    }
}

/// A node on a grid line is one of both cells beside it; otherwise there would be a hole.
void HybridStamper::shareNodes() {
    std::vector<std::pair<unsigned, LatticeNode>> shared;
    for (const Cells::Cell & cell : cells_->cells) {
        const std::int64_t x = cell.number % sizeX_, y = cell.number / sizeX_;
        for (const LatticeNode & n : cell.nodes) {
            if (n.isOnColumn() == n.isOnRow()) continue;
            const bool isLow = n.u == x * s_cell || n.v == y * s_cell;
            const std::int64_t besideX = n.isOnColumn() ? x + (isLow ? -1 : 1) : x;
            const std::int64_t besideY = n.isOnRow() ? y + (isLow ? -1 : 1) : y;
            if (isCell(besideX, besideY))
                shared.emplace_back(static_cast<unsigned>(besideX + besideY * sizeX_), n);
        }
    }
    std::stable_sort(shared.begin(), shared.end(),
                     [](const auto & a, const auto & b) { return a.first < b.first; });

    std::vector<Cells::Cell> all;
    auto cell = cells_->cells.begin();
    const auto takeCells = [&](std::uint64_t end) {
        for (; cell != cells_->cells.end() && cell->number < end; ++cell)
            all.push_back(std::move(*cell));
    };
    for (const auto & [number, n] : shared) {
        takeCells(std::uint64_t(number) + 1);
        if (all.empty() || all.back().number != number) all.push_back({number, {}, {}});
        all.back().nodes.push_back(n);
    }
    takeCells(UINT64_MAX);
    cells_->cells.swap(all);
}

/// Appends the triangles of a cell, and its nodes that are not on the grid.
void HybridStamper::triangulate(std::size_t i, std::vector<Point> & vertices,
                                std::vector<unsigned> & indices) const {
    const Cells::Cell & cell = cells_->cells[i];
    const unsigned x = cell.number % sizeX_, y = cell.number / sizeX_;
    const std::array<unsigned, 4> corners{cell.number, cell.number + 1, cell.number + 1 + sizeX_,
                                          cell.number + sizeX_};
    std::vector<LatticeNode> nodes = cell.nodes;
    for (const unsigned c : corners)
        nodes.push_back(gridVertex(c % sizeX_, c / sizeX_));
    CellArrangement::removeDuplicates(nodes);

    const auto onPlane = [&](const LatticeNode & n) {
        return Point(double(n.u - x * s_cell), double(n.v - y * s_cell), n.position.y);
    };
    HybridCellAccessor accessor;
    for (unsigned k = 0; k < 4; ++k)
        accessor.corners[k] = onPlane(gridVertex(corners[k] % sizeX_, corners[k] / sizeX_));
    CellTin tin(accessor);
    tin.init(0, 1, 2, 3);
    std::vector<TinNode> tinNodes;
    TinFace hint;
    for (unsigned n = 0; n < nodes.size(); ++n) {
        tinNodes.push_back(tin.insert(TinPoint{onPlane(nodes[n]), n + 1}, hint));
        hint = tin.face(tin.edge(tinNodes.back()));
    }
    for (const auto & [a, b] : CellArrangement::edges(cell.pieces, nodes))
        tin.constrain(tinNodes[a], tinNodes[b]);

    std::vector<unsigned> numbers(corners.begin(), corners.end());
    for (unsigned n = 4; n < tin.nodes(); ++n) {
        const unsigned number = tin.number(tin.node(n));
        const Point & p = tin.position(tin.node(n));
        numbers.push_back(sizeX_ * sizeY_ + static_cast<unsigned>(vertices.size()));
        vertices.push_back(number > 0 ? nodes[number - 1].position
                                      : positionAt(p.x + double(x * s_cell), p.y + double(y * s_cell), p.z));
    }
    for (unsigned f = 0; f < tin.faces(); ++f)
        for (unsigned k = 0; k < 3; ++k)
            indices.push_back(numbers[tin.corner(tin.face(f), k).index()]);
}

} // namespace ZMT::CORE
