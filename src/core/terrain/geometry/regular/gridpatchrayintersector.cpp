// T. L. Kay, J. T. Kajiya, Ray Tracing Complex Scenes, 1986: the slabs that bound a part of the ray. Blocks
// of the grid, with their height ranges, are searched from the largest to the smallest, the nearest child
// first; in a block of the last level, rows, cells and their two triangles follow. The search ends behind the
// nearest hit. Hits are reported in the order of a division into quarters, and not in that of the search.

#include <zmt/core/terrain/geometry/regular/gridpatchrayintersector.h>

#include "griddomain.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "gridheightbounds.h"
#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/math/isfinite.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

namespace ZMT::CORE {

namespace {

using NBX::RayTracingTechnique;
using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

constexpr double s_unlimited = std::numeric_limits<double>::infinity();

/// Where the rounding of a triangle's test may see a hit beside the triangle, relative to the coordinates.
constexpr double s_relativeMargin = 1e-11;

/// Cells from (x, y) up to, and without, (endX, endY).
struct Cells {
    unsigned x, y, endX, endY;

    bool isEmpty() const { return x >= endX || y >= endY; }
};

Cells cellsOf(const NBX::Area & domain) {
    const auto x = unsigned(domain.getX()), y = unsigned(domain.getY());
    return {x, y, x + domain.getWidth(), y + domain.getHeight()};
}

NBX::Bounds column(const GridData & grid, const Cells & cells, double minY, double maxY) {
    const Point low = grid.vertex(cells.x, cells.y), high = grid.vertex(cells.endX, cells.endY);
    return NBX::Bounds(Point(low.x, minY, low.z), Point(high.x, maxY, high.z));
}

/// A triangle that is hit, or the shape of a cell that may be.
struct Candidate {
    static constexpr unsigned shape = 2;

    unsigned x, y;     ///< of its cell
    unsigned triangle; ///< 0, 1, or `shape`
    double t;          ///< of the hit, along the ray; 0 for a shape
};

/// Whether `a` comes before `b` where cells are divided again and again into quarters.
bool comesBefore(Cells cells, const Candidate & a, const Candidate & b) {
    if (a.x == b.x && a.y == b.y) return a.triangle < b.triangle;
    for (;;) {
        const unsigned middleX = cells.x + (cells.endX - cells.x) / 2;
        const unsigned middleY = cells.y + (cells.endY - cells.y) / 2;
        const bool oneColumn = middleX == cells.x, oneRow = middleY == cells.y;
        const bool highX = !oneColumn && a.x >= middleX, highY = !oneRow && a.y >= middleY;
        if (const bool other = !oneColumn && b.x >= middleX; highX != other) return other;
        if (const bool other = !oneRow && b.y >= middleY; highY != other) return other;
        if (!oneColumn) (highX ? cells.x : cells.endX) = middleX;
        if (!oneRow) (highY ? cells.y : cells.endY) = middleY;
    }
}

double largest(const Point & p) {
    return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)});
}

double parameterOf(const NBX::Ray & ray, const Point & p) {
    return (p - ray.getOrigin()).dot(ray.getDirection()) / ray.getDirection().length2();
}

/// The corners (x, y), (x, y + 1), (x + 1, y), (x + 1, y + 1) of a cell.
using Corners = std::array<Point, 4>;

Corners cornersOf(const GridData & grid, unsigned x, unsigned y) {
    return {grid.vertex(x, y), grid.vertex(x, y + 1), grid.vertex(x + 1, y), grid.vertex(x + 1, y + 1)};
}

std::array<Point, 3> triangleOf(const Corners & corners, unsigned i) {
    const auto corner = [&](unsigned k) {
        return corners[cellTriangles[i][k].x * 2 + cellTriangles[i][k].y];
    };
    return {corner(0), corner(1), corner(2)};
}

void reportHit(NBX::Engine * engine, const GridData & grid, const NBX::Ray & ray, const Candidate & hit,
               const NBX::Shape * shape, RayTracingTechnique * technique) {
    const auto [a, b, c] = triangleOf(cornersOf(grid, hit.x, hit.y), hit.triangle);
    const Point normal = (b - a).cross(c - a);
    const bool looksAway = normal.dot(ray.getDirection()) > 0.0;
    technique->report(engine, ray.point(hit.t), looksAway ? -normal : normal, shape);
}

/// Part of a ray, by its parameter.
struct Span {
    double enter, leave;

    bool isEmpty() const { return enter > leave; }
};

/// Whole numbers from `low` to `high`; not-a-number widens the range.
unsigned clampedFirst(double value, unsigned low, unsigned high) {
    if (!(value > low)) return low;
    return value < high ? static_cast<unsigned>(value) : high;
}

unsigned clampedLast(double value, unsigned low, unsigned high) {
    if (!(value < high)) return high;
    return value > low ? static_cast<unsigned>(value) : low;
}

} // namespace

/// Finds what a ray hits, from its origin on, and stops behind the nearest hit.
class GridPatchRayIntersector::Search {
public:
    Search(const GridData & grid, const NBX::Ray & ray, const Cells & domain, double minY, double maxY)
        : grid_(grid), hasShapes_(grid.hasCellShapes()), ray_(ray), domain_(domain), minY_(minY), maxY_(maxY),
          cell_(grid.vertex(1, 1)) {
        const Point & d = ray.getDirection();
        const Point end = grid.vertex(domain.endX, domain.endY);
        margin_ = s_relativeMargin * (largest(ray.getOrigin()) +
                                      largest({end.x, std::max(std::abs(minY), std::abs(maxY)), end.z}));
        beyond_ = (std::abs(cell_.x) + std::abs(cell_.z)) / d.length();
        for (unsigned axis = 0; axis < 3; ++axis)
            inverse_[axis] = 1.0 / (std::abs(d[axis]) < s_smallest ? s_smallest : d[axis]);
    }

    /// Whether a ray can be searched at all.
    static bool canSearch(const NBX::Ray & ray) {
        return isFinite(ray.getOrigin()) && std::isnormal(ray.getDirection().length2());
    }

    /// Nothing farther counts than a hit at the parameter `t`.
    void limit(double t) {
        const double behind = t + beyond_ + 1e-9 * std::abs(t);
        if (behind < limit_) limit_ = behind;
    }

    /// In the order of division.
    std::vector<Candidate> run() {
        constexpr unsigned block = GridHeightBounds::blockCells;
        if (domain_.endX - domain_.x <= block && domain_.endY - domain_.y <= block) {
            scan(domain_, planSpan(domain_));
        } else {
            bounds_ = &GridHeightBounds::of(grid_);
            const unsigned top = bounds_->levels() - 1;
            visit(top, 0, 0, columns(top, 0), rows(top, 0));
        }
        std::erase_if(candidates_, [this](const Candidate & candidate) { return candidate.t > limit_; });
        if (candidates_.size() > 1)
            std::sort(
                candidates_.begin(), candidates_.end(),
                [this](const Candidate & a, const Candidate & b) { return comesBefore(domain_, a, b); });
        return std::move(candidates_);
    }

private:
    void clip(Span & span, unsigned axis, double low, double high) const {
        const double a = (low - margin_ - ray_.getOrigin()[axis]) * inverse_[axis];
        const double b = (high + margin_ - ray_.getOrigin()[axis]) * inverse_[axis];
        span.enter = std::max(span.enter, std::min(a, b));
        span.leave = std::min(span.leave, std::max(a, b));
    }

    Span planSpan(const Cells & cells) const {
        Span span{0.0, limit_};
        clip(span, 0, cell_.x * cells.x, cell_.x * cells.endX);
        clip(span, 2, cell_.z * cells.y, cell_.z * cells.endY);
        return span;
    }

    /// Cells of a block along one axis, and the part of the ray over them.
    struct Strip {
        unsigned first, end;
        Span span;
    };

    Strip columns(unsigned level, unsigned block) const {
        return strip(0, cell_.x, level, block, domain_.x, domain_.endX);
    }
    Strip rows(unsigned level, unsigned block) const {
        return strip(2, cell_.z, level, block, domain_.y, domain_.endY);
    }

    Strip strip(unsigned axis, double cellSize, unsigned level, unsigned block, unsigned low,
                unsigned high) const {
        const unsigned size = GridHeightBounds::blockCells << level;
        Strip result{std::max(block * size, low), std::min((block + 1) * size, high), {0.0, s_unlimited}};
        if (result.first < result.end)
            clip(result.span, axis, cellSize * result.first, cellSize * result.end);
        else
            result.span = {s_unlimited, 0.0};
        return result;
    }

    /// Searches the block `x`, `y` of a level.
    void visit(unsigned level, unsigned x, unsigned y, const Strip & columns, const Strip & rows) {
        Span span{std::max(columns.span.enter, rows.span.enter),
                  std::min({columns.span.leave, rows.span.leave, limit_})};
        if (span.isEmpty()) return;
        const GridHeightBounds::Range & heights = bounds_->range(level, x, y);
        clip(span, 1, heights.low, heights.high);
        if (span.isEmpty()) return;
        if (level == 0)
            scan({columns.first, rows.first, columns.end, rows.end}, span);
        else
            visitChildren(level - 1, x * 2, y * 2);
    }

    /// The nearest first.
    void visitChildren(unsigned level, unsigned x, unsigned y) {
        const unsigned nearX = ray_.getDirection().x < 0.0 ? 1 : 0,
                       nearY = ray_.getDirection().z < 0.0 ? 1 : 0;
        const unsigned xs[] = {x + nearX, x + 1 - nearX}, ys[] = {y + nearY, y + 1 - nearY};
        const Strip strips[] = {columns(level, xs[0]), columns(level, xs[1])};
        for (const unsigned childY : ys) {
            const Strip row = rows(level, childY);
            for (unsigned i = 0; i < 2; ++i)
                visit(level, xs[i], childY, strips[i], row);
        }
    }

    /// Tests those of `cells` that lie below the part `span` of the ray.
    void scan(const Cells & cells, const Span & span) {
        if (span.isEmpty()) return;
        const auto [firstY, lastY] = range(2, span, cell_.z, cells.y, cells.endY - 1);
        for (unsigned y = firstY; y <= lastY; ++y) {
            Span inRow = span;
            clip(inRow, 2, cell_.z * y, cell_.z * (y + 1));
            if (inRow.isEmpty()) continue;
            const auto [firstX, lastX] = range(0, inRow, cell_.x, cells.x, cells.endX - 1);
            for (unsigned x = firstX; x <= lastX; ++x) {
                Span inCell = inRow;
                clip(inCell, 0, cell_.x * x, cell_.x * (x + 1));
                if (!inCell.isEmpty()) testCell(x, y, inCell);
            }
        }
    }

    /// The cells from `low` to `high` that the part `span` of the ray touches along an axis.
    std::pair<unsigned, unsigned> range(unsigned axis, const Span & span, double cellSize, unsigned low,
                                        unsigned high) const {
        const double a = coordinate(axis, span.enter), b = coordinate(axis, span.leave);
        return {clampedFirst((std::min(a, b) - margin_) / cellSize, low, high),
                clampedLast((std::max(a, b) + margin_) / cellSize, low, high)};
    }

    double coordinate(unsigned axis, double t) const {
        return ray_.getOrigin()[axis] + t * ray_.getDirection()[axis];
    }

    void testCell(unsigned x, unsigned y, const Span & span) {
        if (hasShapes_ && grid_.cellShape(x, y)) {
            if (meetsColumn(x, y)) candidates_.push_back({x, y, Candidate::shape, 0.0});
            return;
        }
        if (passesAboveOrBelow(x, y, span)) return;
        const Corners corners = cornersOf(grid_, x, y);
        for (unsigned i = 0; i < 2; ++i) {
            const auto [a, b, c] = triangleOf(corners, i);
            double t = 0.0;
            if (!intersectTriangle(ray_.getOrigin(), ray_.getDirection(), a, b, c, t) || !meetsColumn(x, y))
                continue;
            candidates_.push_back({x, y, i, t});
            limit(t);
        }
    }

    bool passesAboveOrBelow(unsigned x, unsigned y, const Span & span) const {
        const auto [low, high] = std::minmax({grid_.vertex(x, y).y, grid_.vertex(x, y + 1).y,
                                              grid_.vertex(x + 1, y).y, grid_.vertex(x + 1, y + 1).y});
        const double enter = coordinate(1, span.enter), leave = coordinate(1, span.leave);
        return std::min(enter, leave) > high + margin_ || std::max(enter, leave) < low - margin_;
    }

    bool meetsColumn(unsigned x, unsigned y) const {
        return RayTracingTechnique::checkBounds(ray_, column(grid_, {x, y, x + 1, y + 1}, minY_, maxY_));
    }

    /// Components of a direction that are smaller count as this one, so that there is a reciprocal.
    static constexpr double s_smallest = 1e-300;

    const GridData & grid_;
    bool hasShapes_;
    const NBX::Ray & ray_;
    Cells domain_;
    double minY_, maxY_;
    Point cell_;                 ///< its x and z are the size of a cell
    double margin_;              ///< in coordinates; how far beside a triangle its test may see a hit
    double beyond_;              ///< how far the search goes behind the nearest hit, as a parameter
    Point inverse_;              ///< of the components of the direction
    double limit_ = s_unlimited; ///< what lies behind it does not count
    const GridHeightBounds * bounds_ = nullptr;
    std::vector<Candidate> candidates_;
};

NBX_CLASS_IMPL(GridPatchRayIntersector, NBX::RayIntersector)

NBX::ID GridPatchRayIntersector::target() const {
    return GridPatch::ClassNameNBX();
}

bool GridPatchRayIntersector::intersect(NBX::Engine * engine, const Matrix &, const Matrix & inverse,
                                        const NBX::Shape * shape, const NBX::Ray & ray,
                                        RayTracingTechnique * technique) {
    const auto * patch = dynamic_cast<const GridPatch *>(shape);
    if (!patch) return false;
    const NBX::Bounds box = patch->boundingBox();
    checkGrid(engine, ray, patch->grid().get(), patch->domain(), box.getLLF().y, box.getURB().y, inverse,
              shape, technique);
    return true;
}

void GridPatchRayIntersector::checkGrid(NBX::Engine * engine, const NBX::Ray & ray, const GridData * grid,
                                        const NBX::Area & domain, double minY, double maxY,
                                        const Matrix & inverse, const NBX::Shape * shape,
                                        RayTracingTechnique * technique) {
    NBX_CHECK(engine, L"no engine");
    NBX_CHECK(grid, L"no grid");
    if (grid) checkDomain(grid, domain);
    NBX_CHECK(minY <= maxY, L"internal error");
    if (!engine || !grid || !(minY <= maxY) || !isDomainOf(*grid, domain)) return;
    const Cells cells = cellsOf(domain);
    if (!RayTracingTechnique::checkBounds(ray, column(*grid, cells, minY, maxY)) || !Search::canSearch(ray))
        return;

    Search search(*grid, ray, cells, minY, maxY);
    if (technique->hasHit()) search.limit(parameterOf(ray, inverse * technique->nearestHit().point));
    for (const Candidate & candidate : search.run()) {
        if (candidate.triangle == Candidate::shape)
            engine->paint(grid->cellShape(candidate.x, candidate.y).get());
        else
            reportHit(engine, *grid, ray, candidate, shape, technique);
    }
}

NBX_REGISTER_HANDLER(GridPatchRayIntersector)

} // namespace ZMT::CORE
