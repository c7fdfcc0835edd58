// Branch and bound: the errors are those of a whole branch of the hierarchy, so that most of them show at
// once that nothing below them is worse than what was found. Windows come in the order of their sizes, since
// the large ones are few and show the ratios that spare the work on the small ones. Of those that are too
// many, some are looked at, and their children alone.

#include "chunkedlodworsterror.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

#include "chunkedlodterrainimpl.h"
#include <zmt/core/terrain/geometry/chunked/chunkedlodwindow.h>

#include "core/terrain/geometry/regular/latticetriangle.h"

namespace ZMT::CORE {

namespace {

using Lattice = ChunkedLodTerrain::Impl;

struct LatticePlace {
    unsigned x, y;
};

LatticePlace middleOf(LatticePlace a, LatticePlace b) {
    return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

/// Of the work on the windows of one size: together a tenth of what the errors and heights of 4097 x 4097
/// vertices take.
constexpr std::size_t s_mostSteps = 80000;
/// Vertices of a row in the time of one vertex found by bisection.
constexpr std::size_t s_scannedAStep = 8;
/// What samples miss. They found 0.83 of the largest ratio in the worst case (docs/performance.md).
constexpr double s_marginOfSamples = 1.25;

/// A vertex of a drawn triangle, or one replaced by it.
struct Vertex {
    LatticePlace place;
    double drawn;    ///< height of the surface
    double distance; ///< above the height of the vertex
};

/// The distance from a triangle to the vertices inside that `levels` bisections give, in units of the largest
/// distance of one of them from the middle of its edge: the sum of what the edges above it hand on. Tight for
/// 1 and for 4 levels.
double worstDistance(unsigned levels) {
    return std::max(1.0, 0.4 * (levels + 1));
}

class Search {
public:
    explicit Search(const Lattice & lattice)
        : lattice_(lattice), lastX_(lattice.sizeX() - 1), lastY_(lattice.sizeY() - 1),
          rowShift_(lattice.level()) {
        for (unsigned levels = 0; levels < std::size(worstDistances_); ++levels)
            worstDistances_[levels] = worstDistance(levels);
    }

    double ratio() const { return ratio_; }
    /// A measure of the work so far.
    std::size_t steps() const { return steps_; }

    /// Whether an uncut mesh of so many levels of bisection, or of fewer, can be worse than what was found.
    bool canBeWorse(unsigned levels) const { return worstDistances_[levels] > ratio_; }

    void add(const ChunkedLodWindow & w, unsigned levels) {
        threshold_ = w.threshold;
        allowed_ = ratio_ * threshold_;
        const unsigned last = w.size - 1;
        const LatticePlace a{w.x, w.y}, b{w.x + last, w.y}, c{w.x + last, w.y + last}, d{w.x, w.y + last};
        const LatticePlace centre = middleOf(a, c);
        refine(levels, centre, a, b);
        refine(levels, centre, b, c);
        refine(levels, centre, c, d);
        refine(levels, centre, d, a);
    }

    bool isInside(const ChunkedLodWindow & w) const {
        return w.x + w.size - 1 <= lastX_ && w.y + w.size - 1 <= lastY_;
    }

private:
    /// Looks for the triangles of the mesh. That of the window has its right angle at `i`.
    void refine(unsigned levels, LatticePlace i, LatticePlace j, LatticePlace k) {
        if (levels == 0) return;
        ++steps_;
        const LatticePlace m = middleOf(j, k);
        if (errorAt(m) < threshold_) return addTriangle(levels, i, j, k);
        refine(levels - 1, m, j, i);
        refine(levels - 1, m, i, k);
    }

    void addTriangle(unsigned levels, LatticePlace i, LatticePlace j, LatticePlace k) {
        if (std::max({i.x, j.x, k.x}) <= lastX_ && std::max({i.y, j.y, k.y}) <= lastY_)
            return explore(levels, shown(i), shown(j), shown(k));
        // Beyond the border all columns, or all rows, fall into one.
        if (std::min({i.x, j.x, k.x}) < lastX_ && std::min({i.y, j.y, k.y}) < lastY_) scan(i, j, k);
    }

    /// The vertices below a drawn triangle inside the raster.
    void explore(unsigned levels, const Vertex & i, const Vertex & j, const Vertex & k) {
        ++steps_;
        constexpr double rounding = 0.5; // of the middle of an edge
        const LatticePlace place = middleOf(j.place, k.place);
        const double corners = std::max({std::abs(i.distance), std::abs(j.distance), std::abs(k.distance)});
        if (corners + worstDistances_[levels] * (errorAt(place) + rounding) <= allowed_) return;
        const double drawn = (j.drawn + k.drawn) / 2.0;
        const Vertex m{place, drawn, drawn - heightAt(place)};
        note(m.distance);
        if (levels == 1) return;
        explore(levels - 1, m, j, i);
        explore(levels - 1, m, i, k);
    }

    /// All vertices below a triangle that is cut off at the border.
    void scan(LatticePlace i, LatticePlace j, LatticePlace k) {
        const auto corner = [&](LatticePlace p) {
            return LatticeTriangle::Corner{std::min(p.x, lastX_), std::min(p.y, lastY_)};
        };
        const auto height = [&](const LatticeTriangle::Corner & c) {
            return double(heightAt({unsigned(c.column), unsigned(c.row)}));
        };
        const auto p = corner(i);
        auto q = corner(j), r = corner(k);
        auto area = double((q.column - p.column) * (r.row - p.row) - (r.column - p.column) * (q.row - p.row));
        if (area == 0.0) return;
        if (area < 0.0) {
            std::swap(q, r);
            area = -area;
        }
        const double base = height(p), riseQ = height(q) - base, riseR = height(r) - base;
        const double slopeX = (riseQ * double(r.row - p.row) - riseR * double(q.row - p.row)) / area;
        const double slopeY =
            (riseR * double(q.column - p.column) - riseQ * double(r.column - p.column)) / area;
        const LatticeTriangle triangle{{p, q, r}};
        triangle.forEachRow([&](std::int64_t row, std::int64_t first, std::int64_t last) {
            steps_ += first <= last ? std::size_t(last - first) / s_scannedAStep : 0;
            for (std::int64_t column = first; column <= last; ++column) {
                const double drawn = base + slopeX * double(column - p.column) + slopeY * double(row - p.row);
                note(drawn - heightAt({unsigned(column), unsigned(row)}));
            }
        });
    }

    void note(double distance) {
        if (std::abs(distance) <= allowed_) return;
        allowed_ = std::abs(distance);
        ratio_ = allowed_ / threshold_;
    }

    Vertex shown(LatticePlace p) const { return {p, double(heightAt(p)), 0.0}; }
    unsigned heightAt(LatticePlace p) const {
        return lattice_.heights()[p.x + std::size_t(p.y) * (lastX_ + 1)];
    }
    unsigned errorAt(LatticePlace p) const {
        return lattice_.errors()[p.x + p.y + (std::size_t(p.y) << rowShift_)];
    }

    const Lattice & lattice_;
    unsigned lastX_, lastY_, rowShift_;
    double worstDistances_[32];
    unsigned threshold_ = 0; ///< of the present window
    double allowed_ = 0.0;   ///< distance that is no news
    double ratio_ = 1.0;
    std::size_t steps_ = 0;
};

/// A number of elements between two that follow each other in an order that passes over all `count` of them,
/// and at any time lies evenly over them.
std::size_t evenStride(std::size_t count) {
    constexpr double goldenSection = 0.618;
    auto stride = static_cast<std::size_t>(goldenSection * static_cast<double>(count)) + 1;
    while (std::gcd(stride, count) != 1)
        ++stride;
    return stride;
}

} // namespace

double ChunkedLodWorstError::ratio(const Lattice & lattice, unsigned short rootThreshold) {
    Search search(lattice);
    bool isComplete = true;
    std::vector<ChunkedLodWindow> windows{
        ChunkedLodWindow::drawn(lattice, 0, 0, lattice.paddedSize(), rootThreshold)};
    for (unsigned depth = lattice.level(); !windows.empty(); --depth) {
        std::vector<ChunkedLodWindow> finer;
        const unsigned levels = 2 * depth - 1;
        const bool canBeWorse = search.canBeWorse(levels);
        const std::size_t stride = evenStride(windows.size()), firstStep = search.steps();
        for (std::size_t k = 0, at = 0; k < windows.size(); ++k, at = (at + stride) % windows.size()) {
            const ChunkedLodWindow & window = windows[at];
            if (window.threshold == 0 || (!canBeWorse && search.isInside(window))) continue;
            if (search.steps() - firstStep > s_mostSteps) {
                isComplete = false;
                break;
            }
            search.add(window, levels);
            for (unsigned i = 0; i < window.children(lattice); ++i)
                finer.push_back(window.child(lattice, i));
        }
        windows.swap(finer);
    }
    return isComplete ? search.ratio() : search.ratio() * s_marginOfSamples;
}

} // namespace ZMT::CORE
