// Layout and height range are read from the raster first; undefined heights are replaced, in a copy, by one a
// tenth of the range below the lowest. Then come look-ups by number and by position, then parts of the grid:
// lists of indices, and meshes that are cut at a box, with heights interpolated where its sides fall between
// grid lines.

#include <zmt/core/terrain/geometry/regular/griddata.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::CORE {

namespace {

using RASTER::RasterData;
using Point = GridData::Point;

/// One axis of the lattice that `extractMesh` cuts: the clip line at either end, where it falls between
/// two grid lines, and the grid lines between them.
class MeshAxis {
public:
    /// Clips to [`low`, `high`] a grid whose line `i` lies at `origin + i * cellSize`.
    MeshAxis(double low, double high, double origin, double cellSize)
        : low_(low), high_(high), origin_(origin), cellSize_(cellSize),
          first_(static_cast<unsigned>(std::ceil((low - origin) / cellSize))),
          last_(static_cast<unsigned>(std::floor((high - origin) / cellSize))) {}

    /// Grid lines in range, and one extra line at each side.
    unsigned lines() const { return last_ + 3 - first_; }
    bool isGridLine(unsigned line) const { return line > 0 && line + 1 < lines(); }
    unsigned gridLine(unsigned line) const { return first_ + line - 1; }
    bool exists(unsigned line) const {
        if (line == 0) return low_ < position(first_);
        return isGridLine(line) || position(last_) < high_;
    }
    double coordinate(unsigned line) const {
        if (line == 0) return low_;
        return isGridLine(line) ? position(gridLine(line)) : high_;
    }

private:
    double position(unsigned gridLine) const { return origin_ + gridLine * cellSize_; }

    double low_, high_, origin_, cellSize_;
    unsigned first_, last_;
};

double latticeHeight(const RasterData & raster, const MeshAxis & columns, unsigned c, const MeshAxis & rows,
                     unsigned r) {
    if (columns.isGridLine(c) && rows.isGridLine(r))
        return raster.value(columns.gridLine(c), rows.gridLine(r));
    return raster.value(columns.coordinate(c), rows.coordinate(r));
}

/// Appends the defined lattice points to `vertices`. The result has, row by row, the point's number counted
/// from 1, or 0 for none.
std::vector<unsigned> collectLattice(const RasterData & raster, const MeshAxis & columns,
                                     const MeshAxis & rows, NBX::Array<Point> & vertices) {
    std::vector<unsigned> numbers(std::size_t(columns.lines()) * rows.lines(), 0);
    for (unsigned r = 0; r < rows.lines(); ++r) {
        if (!rows.exists(r)) continue;
        for (unsigned c = 0; c < columns.lines(); ++c) {
            if (!columns.exists(c)) continue;
            const double height = latticeHeight(raster, columns, c, rows, r);
            if (raster.isUndefValue(height)) continue;
            vertices.append({columns.coordinate(c), height, rows.coordinate(r)});
            numbers[c + std::size_t(r) * columns.lines()] = vertices.size();
        }
    }
    return numbers;
}

/// Two triangles a lattice cell, as far as their corners exist.
void collectTriangles(const std::vector<unsigned> & numbers, unsigned columns,
                      NBX::Array<unsigned> & indices) {
    const auto triangle = [&indices](unsigned p, unsigned q, unsigned r) {
        for (const unsigned number : {p, q, r})
            indices.append(number - 1);
    };
    for (std::size_t low = 0; low + columns < numbers.size(); ++low) {
        if ((low + 1) % columns == 0) continue;
        const unsigned a = numbers[low], b = numbers[low + 1];
        const unsigned c = numbers[low + columns], d = numbers[low + columns + 1];
        if (!b || !c) continue;
        if (a) triangle(a, b, c);
        if (d) triangle(c, b, d);
    }
}

} // namespace

GridData::GridData() = default;

GridData::GridData(const RasterData * raster) : raster_(raster) {
    NBX_CHECK(raster, L"no raster");
    readLayout();
    scanHeights();
}

GridData::~GridData() = default;

void GridData::readLayout() {
    if (!raster_) return;
    sizeX_ = raster_->cellsX();
    sizeY_ = raster_->cellsY();
    scale_ = Point(raster_->cellSizeX(), 1.0, raster_->cellSizeY());
    origin_ = Point(raster_->minX(), 0.0, raster_->minY());
    cells_ = raster_->floatCells();
}

void GridData::scanHeights() {
    if (!raster_) return;
    double minimum = std::numeric_limits<double>::infinity(), maximum = -minimum;
    bool hasUndefined = false;
    std::vector<double> row(sizeX_);
    for (unsigned y = 0; y < sizeY_; ++y) {
        raster_->valueRow(y, row.data());
        for (const double height : row) {
            if (raster_->isUndefValue(height)) {
                hasUndefined = true;
            } else {
                minimum = std::min(minimum, height);
                maximum = std::max(maximum, height);
            }
        }
    }
    if (hasUndefined) replaceUndefinedHeights(minimum, maximum);
    bbox_ = NBX::Bounds(Point(0.0, scale_.y * minimum, 0.0),
                        Point(scale_.x * (sizeX_ - 1.0), scale_.y * maximum, scale_.z * (sizeY_ - 1.0)));
}

void GridData::replaceUndefinedHeights(double minimum, double maximum) {
    const auto fill = static_cast<float>(minimum - (maximum - minimum) * 0.1);
    NBX::SO<RASTER::SimpleRasterData<float>> copy(
        new RASTER::SimpleRasterData<float>(sizeX_, sizeY_, raster_->minX(), raster_->minY(),
                                            raster_->cellSizeX(), raster_->cellSizeY(), true, fill));
    copy->setUseLinearInterpolation(raster_->useLinearInterpolation());
    std::vector<double> row(sizeX_);
    for (unsigned y = 0; y < sizeY_; ++y) {
        raster_->valueRow(y, row.data());
        float * target = copy->cells() + std::size_t(y) * sizeX_;
        for (unsigned x = 0; x < sizeX_; ++x)
            if (!raster_->isUndefValue(row[x])) target[x] = static_cast<float>(row[x]);
    }
    raster_ = copy;
    cells_ = raster_->floatCells();
}

double GridData::slowHeightAt(unsigned x, unsigned y) const {
    return raster_->value(x, y);
}

GridData::Point GridData::vertex(unsigned v) const {
    NBX_CHECK(v < vertices(), L"v out of range");
    return v < vertices() ? vertex(v % sizeX_, v / sizeX_) : Point();
}

GridData::Point GridData::normal(unsigned v) const {
    NBX_CHECK(v < vertices(), L"v out of range");
    return v < vertices() ? normal(v % sizeX_, v / sizeX_) : Point();
}

GridData::Point GridData::normal(unsigned x, unsigned y) const {
    NBX_CHECK(x < sizeX(), L"x out of range");
    NBX_CHECK(y < sizeY(), L"y out of range");
    if (x >= sizeX() || y >= sizeY()) return {};
    const unsigned xl = x > 0 ? x - 1 : 0, xr = std::min(x + 1, sizeX_ - 1);
    const unsigned yl = y > 0 ? y - 1 : 0, yr = std::min(y + 1, sizeY_ - 1);
    return {(heightAt(xr, y) - heightAt(xl, y)) * -2.0 * scale_.y * scale_.z, scale_.x * 4.0 * scale_.z,
            (heightAt(x, yr) - heightAt(x, yl)) * -2.0 * scale_.x * scale_.y};
}

unsigned GridData::index(unsigned x, unsigned y) const {
    NBX_CHECK(x < sizeX(), L"x out of range");
    NBX_CHECK(y < sizeY(), L"y out of range");
    return x + y * sizeX_;
}

double GridData::calculateHeight(const Point & p) const {
    return raster_->value(p.x, p.z);
}

bool GridData::hasUndefinedHeight(const Point & p) const {
    return raster_->isUndef(p.x, p.z);
}

bool GridData::isUndefinedHeightValue(double height) const {
    return raster_->isUndefValue(height);
}

std::pair<double, double> GridData::getCellSize() const {
    return {raster_->cellSizeX(), raster_->cellSizeY()};
}

bool GridData::resampleRasterData(RASTER::SimpleRasterData<float> * target) const {
    return raster_->resampleRasterData(target);
}

GridData::Indices * GridData::newIndexIterator(const NBX::Area & domain) const {
    if (!contains(domain)) return new NBX::Array<unsigned>;
    const auto x0 = static_cast<unsigned>(domain.getX()), y0 = static_cast<unsigned>(domain.getY());
    auto * indices = new NBX::Array<unsigned>((domain.getWidth() + 1) * (domain.getHeight() + 1));
    unsigned * number = indices->pointer();
    for (unsigned y = y0; y <= y0 + domain.getHeight(); ++y)
        for (unsigned x = x0; x <= x0 + domain.getWidth(); ++x)
            *number++ = x + y * sizeX_;
    return indices;
}

NBX::SO<NBX::Shape> GridData::cellShape(unsigned, unsigned) const {
    return nullptr;
}

std::vector<unsigned> GridData::cellCorners(unsigned, unsigned) const {
    return {};
}

GridData::Indices * GridData::newIndexIterator(const NBX::Bounds & bbox) const {
    NBX_CHECK(bbox.isDefined(), L"bounding-box not defined");
    auto * indices = new NBX::Array<unsigned>;
    if (!bbox.intersects(boundingBox())) return indices;

    const Point & llf = bbox.getLLF();
    const Point & urb = bbox.getURB();
    const auto first = [](double low, double cell) {
        return static_cast<unsigned>(std::max(std::floor(low / cell), 0.0));
    };
    const auto end = [](double high, double cell, unsigned size) {
        return static_cast<unsigned>(std::min(std::ceil(high / cell) + 1.0, static_cast<double>(size)));
    };
    const unsigned x0 = first(llf.x, scale_.x), x1 = end(urb.x, scale_.x, sizeX_);
    const unsigned y0 = first(llf.z, scale_.z), y1 = end(urb.z, scale_.z, sizeY_);
    for (unsigned y = y0; y < y1; ++y)
        for (unsigned x = x0; x < x1; ++x)
            if (bbox.containsPoint(vertex(x, y))) indices->append(index(x, y));
    return indices;
}

GridData::Points * GridData::newVertexIterator(const NBX::Area & domain) const {
    return newIndexToVertexIterator(newIndexIterator(domain));
}

GridData::Points * GridData::newNormalIterator(const NBX::Area & domain) const {
    return newIndexToNormalIterator(newIndexIterator(domain));
}

NBX::SO<NBX::PolygonSet> GridData::extractMesh(const NBX::Bounds & box, NBX::Progress *) const {
    const RasterData & raster = *raster_;
    const double xa = std::max(box.getLLF().x, raster.minX()), xb = std::min(box.getURB().x, raster.maxX());
    const double ya = std::max(box.getLLF().z, raster.minY()), yb = std::min(box.getURB().z, raster.maxY());
    if (!(xa < xb && ya < yb)) return nullptr;

    const MeshAxis columns(xa, xb, raster.minX(), raster.cellSizeX());
    const MeshAxis rows(ya, yb, raster.minY(), raster.cellSizeY());
    NBX::SO<NBX::Array<Point>> vertices(new NBX::Array<Point>);
    const std::vector<unsigned> numbers = collectLattice(raster, columns, rows, *vertices);
    if (vertices->isEmpty()) return nullptr;

    NBX::SO<NBX::Array<unsigned>> indices(new NBX::Array<unsigned>);
    collectTriangles(numbers, columns.lines(), *indices);
    return new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, vertices, indices);
}

void GridData::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<GeometryData>(m, this);
    m.attribute("raster", raster_);
    m.attribute("bbox", bbox_);
    if (!m.isReading()) return;
    if (!raster_) throw NBX::IOError(L"stored grid has no raster");
    readLayout();
}

NBX_STORED_CLASS_IMPL(GridData, GeometryData)

// The reports' texts are those of the comparisons, which mix signed positions with unsigned sizes on purpose:
// a negative position is out of range either way.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"

bool GridData::contains(const NBX::Area & domain) const {
    NBX_CHECK(domain.getX() < sizeX(), L"domain.getX() out of range");
    NBX_CHECK(domain.getY() < sizeY(), L"domain.getY() out of range");
    NBX_CHECK(domain.getWidth() < sizeX() - domain.getX(), L"domain.getWidth() out of range");
    NBX_CHECK(domain.getHeight() < sizeY() - domain.getY(), L"domain.getHeight() out of range");
    return domain.getX() < sizeX() && domain.getY() < sizeY() &&
           domain.getWidth() < sizeX() - domain.getX() && domain.getHeight() < sizeY() - domain.getY();
}

void checkDomain(const GridData * grid, const NBX::Area & domain) {
    NBX_CHECK_RANGE(0, domain.getX(), grid->sizeX() - 1);
    NBX_CHECK_RANGE(0, domain.getY(), grid->sizeY() - 1);
    NBX_CHECK_RANGE(1, domain.getWidth(), grid->sizeX() - domain.getX());
    NBX_CHECK_RANGE(1, domain.getHeight(), grid->sizeY() - domain.getY());
}

#pragma GCC diagnostic pop

} // namespace ZMT::CORE
