// An insertion changes the faces around the new corner and no others, since flips of Delaunay triangulations
// only make edges that end there. So these are scanned again, and their entries in the heap of errors
// replaced.

#include <zmt/util/mesh/rasterrefinement.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <stdexcept>

#include "facescan.h"

#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/tin/tin.h>

namespace ZMT::UTIL {

namespace {

using Worst = FaceScan::Worst;

/// Plan positions are whole numbers, so that what is on one line in the raster, is on one line here.
struct LatticePoints {
    NBX::Vector3Base<double> point(unsigned cell) const {
        const unsigned column = cell % columns, row = cell / columns;
        return {double(column) * stepX, double(row) * stepY, double(heights[cell])};
    }

    const float * heights;
    unsigned columns;
    double stepX, stepY;
};

LatticePoints latticeOf(const float * heights, unsigned columns, double ratio) {
    constexpr double s_steps = 1024.0; // to a cell, whose ratio they approximate
    if (ratio == 1.0) return {heights, columns, 1.0, 1.0};
    const double x = ratio < 1.0 ? s_steps : std::max(1.0, std::round(s_steps / ratio));
    const double y = ratio < 1.0 ? std::max(1.0, std::round(s_steps * ratio)) : s_steps;
    return {heights, columns, x, y};
}

/// The heights with NaN for those that are not defined; where they are that already, there is no copy.
class DefinedHeights {
public:
    explicit DefinedHeights(const RasterRefinement::Heights & raster)
        : count_(std::size_t(raster.cellsX()) * raster.cellsY()), cells_(raster.cells()) {
        if (raster.cellsX() < 2 || raster.cellsY() < 2 || count_ > 0xFFFFFFFFu)
            throw std::length_error("vertices of a refinement");
        const auto isVoid = [&](float height) {
            return !std::isfinite(height) || raster.isUndefValue(double(height));
        };
        bool isPlain = true;
        for (std::size_t i = 0; i < count_; ++i) {
            if (isVoid(cells_[i])) {
                hasVoids_ = true;
                isPlain = isPlain && std::isnan(cells_[i]);
            } else {
                largest_ = std::max(largest_, std::fabs(double(cells_[i])));
            }
        }
        if (isPlain) return;
        own_.assign(cells_, cells_ + count_);
        for (float & height : own_)
            if (isVoid(height)) height = std::numeric_limits<float>::quiet_NaN();
        cells_ = own_.data();
    }

    const float * cells() const { return cells_; }
    bool hasVoids() const { return hasVoids_; }
    double largest() const { return largest_; }

private:
    std::size_t count_;
    const float * cells_;
    std::vector<float> own_;
    bool hasVoids_ = false;
    double largest_ = 0.0;
};

/// Faces by error, the largest first. Errors of a band are not sorted before all larger ones are gone, since
/// most faces change before it is their turn: what they had then stays where it is, and is passed over.
class ErrorQueue {
public:
    struct Entry {
        double error;
        std::uint32_t cell, face;

        bool operator<(const Entry & e) const {
            if (error != e.error) return error < e.error;
            return cell != e.cell ? cell > e.cell : face > e.face;
        }
    };
    static_assert(sizeof(Entry) == 16);

    /// What the faces have now, borrowed; no error there is above 0 and below `least`.
    ErrorQueue(const std::vector<Worst> & current, double least)
        : current_(current), lowest_(keyOf(least)), bands_(keyOf(least * s_mostSpread) - lowest_ + 2),
          active_(bands_.size() - 1) {}

    void push(std::uint32_t face, const Worst & worst) {
        const std::size_t band = bandOf(worst.error);
        if (band < active_) {
            std::vector<Entry> & entries = bands_[band];
            if (entries.size() == entries.capacity()) dropPassed(entries);
            entries.push_back({worst.error, worst.cell, face});
        } else {
            bands_[active_].push_back({worst.error, worst.cell, face});
            std::push_heap(bands_[active_].begin(), bands_[active_].end());
        }
    }

    /// The face with the largest error; null where there is none.
    const Entry * top() {
        for (;;) {
            std::vector<Entry> & sorted = bands_[active_];
            while (!sorted.empty() && isPassed(sorted.front())) {
                std::pop_heap(sorted.begin(), sorted.end());
                sorted.pop_back();
            }
            if (!sorted.empty()) return &sorted.front();
            if (active_ == 0) return nullptr;
            sorted = {};
            std::vector<Entry> & next = bands_[--active_];
            std::erase_if(next, [&](const Entry & entry) { return isPassed(entry); });
            std::make_heap(next.begin(), next.end());
        }
    }

private:
    static constexpr double s_mostSpread = 0x1p44;

    /// So many bands for each power of two that one of them stays in the processor's cache.
    static std::size_t keyOf(double error) {
        return static_cast<std::size_t>(std::bit_cast<std::uint64_t>(error) >> (52 - 5));
    }
    std::size_t bandOf(double error) const {
        const std::size_t key = keyOf(error);
        return key < lowest_ ? 0 : std::min(key - lowest_, bands_.size() - 1);
    }
    bool isPassed(const Entry & entry) const {
        const Worst & now = current_[entry.face];
        return now.error != entry.error || now.cell != entry.cell;
    }
    /// Makes room, at least half of it, so that looking through costs little.
    void dropPassed(std::vector<Entry> & entries) const {
        constexpr std::size_t s_least = 1024;
        if (entries.size() >= s_least)
            std::erase_if(entries, [&](const Entry & entry) { return isPassed(entry); });
        entries.reserve(std::max(s_least, entries.size() * 2));
    }

    const std::vector<Worst> & current_;
    std::size_t lowest_;
    std::vector<std::vector<Entry>> bands_; ///< the active one is a heap, which takes all that is above it
    std::size_t active_;
};

/// The mesh, whose faces know what is wrong with them.
class Refiner : public CORE::Tin<LatticePoints> {
    using Base = CORE::Tin<LatticePoints>;

public:
    Refiner(const DefinedHeights & heights, unsigned columns, unsigned rows, const LatticePoints & points)
        : Base(points), columns_(columns), rows_(rows), hasVoids_(heights.hasVoids()),
          scan_(heights.cells(), columns, heights.hasVoids(), heights.largest() * s_rounding),
          queue_(worst_, heights.largest() * s_rounding) {
        const unsigned last = columns * (rows - 1);
        init(0, columns - 1, last + columns - 1, last);
        for (unsigned n = 0; n < nodes(); ++n)
            corners_.push_back(cornerAt(number(node(n))));
        rateAll({0, 1});
    }

    /// The largest error that is left alone.
    void setThreshold(double threshold) {
        if (threshold >= threshold_) return;
        for (std::uint32_t f = 0; f < faces(); ++f)
            if (worst_[f].error > threshold && worst_[f].error <= threshold_) queue_.push(f, worst_[f]);
        threshold_ = threshold;
    }

    /// The largest error above the threshold; 0 without any.
    double worstError() {
        const ErrorQueue::Entry * top = queue_.top();
        return top ? top->error : 0.0;
    }
    void insertWorst() {
        if (const ErrorQueue::Entry * top = queue_.top()) insertAt(top->cell, CORE::TinFace(top->face));
    }

    /// Faces around the new corner are searched again; a corner that was one already changes nothing.
    void insertAt(std::uint32_t cell, CORE::TinFace hint) {
        const unsigned before = nodes();
        const CORE::TinNode added = Base::insert(CORE::TinPoint{accessor_.point(cell), cell}, hint);
        if (!added || nodes() == before) return;
        corners_.push_back(cornerAt(cell));
        star_.clear();
        const std::uint32_t own = edge(added).index();
        const std::uint32_t border = firstAround(own);
        const std::uint32_t first = border == none ? own : border;
        std::uint32_t e = first;
        do {
            star_.push_back(e >> 2);
            e = twinOf(previousOf(e));
        } while (e != noLink && e != first);
        if (hasVoids_) turnSquares();
        rateAll(star_);
        last_ = CORE::TinFace(own >> 2);
    }
    CORE::TinFace lastFace() const { return last_; }

    /// Makes the neighbours of corners that have a height and no surface around them corners as well, so that
    /// there is one where the raster has three heights side by side. Whether there were any such.
    bool freeLonelyCorners() {
        if (!hasVoids_) return false;
        const unsigned before = nodes();
        std::vector<bool> isCovered(before, false);
        for (std::uint32_t f = 0; f < faces(); ++f)
            for (unsigned k = 0; k < 3 && isSurface_[f]; ++k)
                isCovered[faces_[f].corner[k]] = true;
        for (unsigned n = 0; n < before; ++n)
            if (!isCovered[n] && hasHeight(n)) insertNeighbours(n);
        return nodes() > before;
    }

    double error() const {
        double error = 0.0;
        for (const Worst & worst : worst_)
            error = std::max(error, worst.error);
        return error;
    }
    std::uint64_t triangles() const { return triangles_; }
    RasterSurface surface() const;

private:
    static constexpr double s_rounding = 0x1p-42;

    FaceScan::Corner cornerAt(std::uint32_t cell) const {
        return {static_cast<std::int32_t>(cell % columns_), static_cast<std::int32_t>(cell / columns_),
                double(accessor_.heights[cell])};
    }
    FaceScan::Face scanned(std::uint32_t f) const {
        const auto & corner = faces_[f].corner;
        return {{corners_[corner[0]], corners_[corner[1]], corners_[corner[2]]}, {}};
    }
    bool hasHeight(std::uint32_t n) const { return !std::isnan(corners_[n].height); }

    void insertNeighbours(std::uint32_t n) {
        const FaceScan::Corner at = corners_[n];
        const auto rows = static_cast<std::int32_t>(rows_), columns = static_cast<std::int32_t>(columns_);
        for (std::int32_t row = std::max(at.row - 1, 0); row <= std::min(at.row + 1, rows - 1); ++row)
            for (std::int32_t column = std::max(at.column - 1, 0);
                 column <= std::min(at.column + 1, columns - 1); ++column) {
                const std::uint32_t cell = std::uint32_t(row) * columns_ + std::uint32_t(column);
                if (!std::isnan(accessor_.heights[cell]))
                    insertAt(cell, CORE::TinFace(edge(node(n)).index() >> 2));
            }
    }

    /// A cell of the raster with three heights is half a surface: its diagonal, which may be either one, is
    /// the one between heights. The faces of such cells become a part of the star.
    void turnSquares() {
        for (std::size_t i = 0; i < star_.size(); ++i)
            for (unsigned k = 0; k < 3; ++k)
                if (const std::uint32_t e = 4 * star_[i] + k; isWrongDiagonal(e)) {
                    const std::uint32_t beyond = twinOf(e) >> 2;
                    Base::flip(CORE::TinEdge(e));
                    if (std::find(star_.begin(), star_.end(), beyond) == star_.end()) star_.push_back(beyond);
                    break;
                }
    }
    bool isWrongDiagonal(std::uint32_t e) const {
        const std::uint32_t t = twinOf(e);
        if (t == noLink) return false;
        const std::uint32_t a = originOf(e), b = originOf(t), c = originOf(previousOf(e)),
                            d = originOf(previousOf(t));
        const auto isStep = [](std::int32_t from, std::int32_t to) {
            return from - to == 1 || to - from == 1;
        };
        const FaceScan::Corner &p = corners_[a], &q = corners_[b], &r = corners_[c], &s = corners_[d];
        const bool isSquare = isStep(p.column, q.column) && isStep(p.row, q.row) &&
                              p.column + q.column == r.column + s.column && p.row + q.row == r.row + s.row &&
                              isStep(r.column, s.column) && isStep(r.row, s.row);
        return isSquare && hasHeight(a) != hasHeight(b) && hasHeight(c) && hasHeight(d);
    }

    /// All that changed together: what they are to each other counts as well.
    void rateAll(const std::vector<std::uint32_t> & changed) {
        worst_.resize(faces());
        isSurface_.resize(faces(), 0);
        for (const std::uint32_t f : changed) {
            const bool isSurface = FaceScan::isSurface(scanned(f));
            triangles_ += std::uint64_t(isSurface) - std::uint64_t(isSurface_[f] != 0);
            isSurface_[f] = isSurface;
        }
        for (const std::uint32_t f : changed)
            rate(f);
    }
    void rate(std::uint32_t f) {
        FaceScan::Face face = scanned(f);
        if (!isSurface_[f])
            for (unsigned k = 0; k < 3; ++k) {
                const std::uint32_t beyond = twinOf(4 * f + k);
                face.goesOn[k] = beyond != noLink && isSurface_[beyond >> 2];
            }
        worst_[f] = scan_.worst(face);
        if (worst_[f].error > threshold_) queue_.push(f, worst_[f]);
    }

    unsigned columns_, rows_;
    bool hasVoids_;
    FaceScan scan_;
    std::vector<FaceScan::Corner> corners_; ///< of the nodes
    std::vector<Worst> worst_;              ///< of the faces
    std::vector<unsigned char> isSurface_;  ///< of the faces; others are holes
    std::uint64_t triangles_ = 0;
    ErrorQueue queue_;
    double threshold_ = std::numeric_limits<double>::infinity(); ///< above it faces are in the queue
    std::vector<std::uint32_t> star_;
    CORE::TinFace last_{0};
};

RasterSurface Refiner::surface() const {
    RasterSurface result;
    std::vector<std::uint32_t> vertexOf(nodes(), RasterSurface::s_none);
    std::vector<std::uint32_t> triangleOf(faces(), RasterSurface::s_none);
    result.triangles.reserve(triangles_);
    result.neighbours.reserve(triangles_);
    for (std::uint32_t f = 0; f < faces(); ++f) {
        if (!isSurface_[f]) continue;
        triangleOf[f] = static_cast<std::uint32_t>(result.triangles.size());
        std::array<std::uint32_t, 3> triangle{};
        for (unsigned k = 0; k < 3; ++k) {
            const std::uint32_t n = faces_[f].corner[k];
            if (vertexOf[n] == RasterSurface::s_none) {
                vertexOf[n] = static_cast<std::uint32_t>(result.vertices.size());
                result.vertices.push_back(
                    {std::uint32_t(corners_[n].column), std::uint32_t(corners_[n].row)});
            }
            triangle[k] = vertexOf[n];
        }
        result.triangles.push_back(triangle);
    }
    for (std::uint32_t f = 0; f < faces(); ++f) {
        if (!isSurface_[f]) continue;
        std::array<std::uint32_t, 3> neighbours{};
        for (unsigned k = 0; k < 3; ++k) {
            const std::uint32_t beyond = twinOf(4 * f + k);
            neighbours[k] = beyond == noLink ? RasterSurface::s_none : triangleOf[beyond >> 2];
        }
        result.neighbours.push_back(neighbours);
    }
    return result;
}

/// How far a refinement is, from the triangles that it has made for the error that it has come to: these grow
/// by a power of the one over the other, which is taken from what was seen so far.
class Pace {
public:
    Pace(const RasterRefinement::Goal & goal, Refiner & refiner)
        : goal_(goal), firstError_(refiner.worstError()), firstTriangles_(double(refiner.faces())) {}

    double share(Refiner & refiner) {
        const double triangles = double(refiner.faces()), error = refiner.worstError();
        double share = triangles / double(goal_.triangles);
        if (goal_.error > 0.0 && std::isfinite(firstError_) && error < firstError_) {
            const double power = std::log(triangles / firstTriangles_) / std::log(firstError_ / error);
            share = std::max(share, std::pow(goal_.error / error, power));
        }
        share_ = std::clamp(share, share_, 1.0);
        return share_;
    }

private:
    RasterRefinement::Goal goal_;
    double firstError_, firstTriangles_;
    double share_ = 0.0;
};

} // namespace

struct RasterRefinement::Impl {
    Impl(const Heights & raster, double cellRatio)
        : heights(raster), columns(raster.cellsX()),
          refiner(heights, raster.cellsX(), raster.cellsY(),
                  latticeOf(heights.cells(), raster.cellsX(), cellRatio)) {}

    DefinedHeights heights;
    unsigned columns;
    Refiner refiner;
};

RasterRefinement::RasterRefinement(const Heights & heights, double cellRatio)
    : impl_(std::make_unique<Impl>(heights, cellRatio)) {}

RasterRefinement::~RasterRefinement() = default;

void RasterRefinement::insert(unsigned column, unsigned row) {
    impl_->refiner.insertAt(row * impl_->columns + column, impl_->refiner.lastFace());
}

bool RasterRefinement::refine(const Goal & goal, NBX::Progress * progress, double progressEnd) {
    constexpr unsigned s_stride = 4096; // insertions between looks at the clock
    Refiner & refiner = impl_->refiner;
    refiner.setThreshold(goal.error);
    Pace pace(goal, refiner);
    const double start = progress ? progress->currentValue() : 0.0;
    unsigned steps = 0;
    do {
        for (; refiner.worstError() > 0.0 && refiner.triangles() < goal.triangles; ++steps) {
            refiner.insertWorst();
            if (progress && steps % s_stride == 0 &&
                !progress->update(start + (progressEnd - start) * pace.share(refiner)))
                return false;
        }
    } while (refiner.triangles() < goal.triangles && refiner.freeLonelyCorners());
    return true;
}

double RasterRefinement::error() const {
    return impl_->refiner.error();
}

std::uint64_t RasterRefinement::triangles() const {
    return impl_->refiner.triangles();
}

RasterSurface RasterRefinement::surface() const {
    return impl_->refiner.surface();
}

} // namespace ZMT::UTIL
