// Greedy refinement after M. Garland and P. Heckbert, Fast Polygonal Approximation of Terrains and Height
// Fields, 1995, applied level by level: a node refines over what its children kept, and its error is then
// measured against the full grid, so that errors do not add up.

#include <zmt/core/terrain/geometry/creategeometrytree.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <numeric>
#include <vector>

#include <nbx/container/array.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/gridpatch.h>
#include <zmt/core/terrain/geometry/hybriddata.h>
#include <zmt/core/terrain/geometry/microtrianglesdata.h>
#include <zmt/core/terrain/geometry/mytintotristrips.h>
#include <zmt/core/terrain/geometry/tinalgorithmpointstotin.h>
#include <zmt/core/terrain/geometry/tinpatch.h>
#include <zmt/raster/histogram.h>
#include <zmt/raster/rasterdata.h>

#include "latticetriangle.h"

namespace ZMT::CORE {

namespace {

using Accessor = MyTinPointAccessor;
using Children = NBX::Array<NBX::SO<GeometryPatch>>;

constexpr unsigned s_leastMaxVertices = 50;
constexpr double s_refinementThreshold = 1e-6;
constexpr double s_leastInnerError = 1e-6;
/// Above this level even a rectangle that fits is cut, so that the tree refines smoothly.
constexpr unsigned s_lastSplitLevel = 9;

/// The values of the one construction that may run.
NBX::Progress * s_progress = nullptr;
bool s_cancelled = false;

/// One part of a rectangle that was cut, with its share of the progress scale.
struct Part {
    NBX::Area domain;
    double progressOffset;
    double progressScale;
};

std::vector<Part> cut(const NBX::Area & domain, double progressOffset, double progressScale) {
    const int x = domain.getX(), y = domain.getY();
    const unsigned w = domain.getWidth(), h = domain.getHeight(), w2 = w / 2, h2 = h / 2;
    std::vector<NBX::Area> areas;
    if (w > h * 1.5)
        areas = {{x, y, w2, h}, {x + int(w2), y, w - w2, h}};
    else if (h > w * 1.5)
        areas = {{x, y, w, h2}, {x, y + int(h2), w, h - h2}};
    else
        areas = {{x, y, w2, h2},
                 {x, y + int(h2), w2, h - h2},
                 {x + int(w2), y + int(h2), w - w2, h - h2},
                 {x + int(w2), y, w - w2, h2}};

    std::vector<Part> parts;
    const auto n = static_cast<double>(areas.size());
    for (std::size_t k = 0; k < areas.size(); ++k)
        parts.push_back(
            {areas[k], progressOffset + progressScale * static_cast<double>(k) / n, progressScale / n});
    return parts;
}

/// The surface of a triangulation, whose nodes are vertices of a grid, at all vertices of the grid that it
/// covers. Each face is scanned row by row, with exact integer borders, so that no vertex needs to be
/// located.
class SurfaceScan {
public:
    explicit SurfaceScan(const GridData & grid) : grid_(grid), scale_(grid.scale()) {}

    void scan(const Tin<Accessor> & tin, const NBX::Area & domain) {
        domain_ = domain;
        tin_ = &tin;
        maximum_ = 0.0;
        heights_.resize((std::size_t(domain.getWidth()) + 1) * (std::size_t(domain.getHeight()) + 1));
        for (unsigned f = 0; f < tin.faces(); ++f)
            scanFace(tin.face(f));
    }

    /// The largest vertical distance of a vertex from the surface.
    double distance() const { return maximum_; }
    /// The height of the surface at vertex `number` of the grid.
    float height(unsigned number) const {
        return heights_[place(number % grid_.sizeX(), number / grid_.sizeX())];
    }

private:
    LatticeTriangle::Corner corner(TinFace f, unsigned k) const {
        const unsigned number = tin_->number(tin_->corner(f, k));
        return {number % grid_.sizeX(), number / grid_.sizeX()};
    }

    void scanFace(TinFace f) {
        LatticeTriangle{{corner(f, 0), corner(f, 1), corner(f, 2)}}.forEachRow(
            [&](std::int64_t row, std::int64_t first, std::int64_t last) {
                scanRow(f, static_cast<unsigned>(row), first, last);
            });
    }

    void scanRow(TinFace f, unsigned row, std::int64_t first, std::int64_t last) {
        const auto & p = tin_->position(tin_->corner(f, 0));
        const auto & q = tin_->position(tin_->corner(f, 1));
        const auto & r = tin_->position(tin_->corner(f, 2));
        const double area = (q.x - p.x) * (r.y - p.y) - (q.y - p.y) * (r.x - p.x);
        const double y = scale_.z * row - p.y;
        if (first > last) return;
        float * target = heights_.data() + place(static_cast<unsigned>(first), row);
        for (std::int64_t column = first; column <= last; ++column) {
            const auto vertex = grid_.vertex(static_cast<unsigned>(column), row);
            const double x = vertex.x - p.x;
            const double height = p.z + ((r.y - p.y) * x - (r.x - p.x) * y) / area * (q.z - p.z) +
                                  ((q.x - p.x) * y - (q.y - p.y) * x) / area * (r.z - p.z);
            maximum_ = std::max(maximum_, std::abs(height - vertex.y));
            *target++ = static_cast<float>(height);
        }
    }

    std::size_t place(unsigned column, unsigned row) const {
        return std::size_t(row - unsigned(domain_.getY())) * (domain_.getWidth() + 1) + column -
               unsigned(domain_.getX());
    }

    const GridData & grid_;
    GridData::Point scale_;
    const Tin<Accessor> * tin_ = nullptr;
    NBX::Area domain_;
    std::vector<float> heights_; ///< row by row over the domain
    double maximum_ = 0.0;
};

/// Builds the nodes of one tree. The working memory is kept from node to node.
class TreeBuilder {
public:
    TreeBuilder(const NBX::SO<GridData> & grid, double wall, unsigned maxVertices)
        : grid_(grid), wall_(wall), maxVertices_(maxVertices), surface_(*grid) {}

    /// Appends to `vertices` the numbers that the node uses. Null when cancelled.
    NBX::SO<GeometryPatch> build(const NBX::Area & domain, std::vector<unsigned> & vertices,
                                 double progressOffset, double progressScale, unsigned level) {
        checkDomain(grid_.get(), domain);
        if (grid_->vertices() == 0) return nullptr;
        if (!s_progress->update(progressOffset, "", "")) {
            s_cancelled = true;
            return nullptr;
        }
        if (isLeaf(domain, level)) return buildLeaf(domain, vertices);

        const std::size_t firstMicroVertex = microVertices_.size();
        NBX::SO<Children> children(new Children);
        std::vector<unsigned> candidates;
        NBX::Bounds box;
        for (const Part & part : cut(domain, progressOffset, progressScale)) {
            const auto child =
                build(part.domain, candidates, part.progressOffset, part.progressScale, level + 1);
            if (s_cancelled) return nullptr;
            children->append(child);
            box += child->boundingBox();
        }
        return buildTin(domain, candidates, vertices, box, children, firstMicroVertex);
    }

private:
    bool isLeaf(const NBX::Area & domain, unsigned level) const {
        const std::uint64_t w = domain.getWidth(), h = domain.getHeight();
        if (w * h > maxVertices_ || !(level > s_lastSplitLevel || w < 3 || h < 3)) return false;
        return (w + 1) * (h + 1) <= maxVertices_;
    }

    NBX::SO<GeometryPatch> buildLeaf(const NBX::Area & domain, std::vector<unsigned> & vertices) {
        NBX::Bounds box;
        const unsigned x0 = unsigned(domain.getX()), y0 = unsigned(domain.getY());
        for (unsigned y = y0; y <= y0 + domain.getHeight(); ++y)
            for (unsigned x = x0; x <= x0 + domain.getWidth(); ++x) {
                box += grid_->vertex(x, y);
                vertices.push_back(grid_->index(x, y));
            }
        appendMicroVertices(domain, box);
        return new GridPatch(grid_, domain, box, 0.0, wall_, nullptr);
    }

    /// Extends `box` by the micro-structures of a leaf.
    void appendMicroVertices(const NBX::Area & domain, NBX::Bounds & box) {
        const auto * hybrid = dynamic_cast<const HybridData *>(grid_.get());
        if (!hybrid) return;
        std::vector<unsigned> numbers;
        const unsigned x0 = unsigned(domain.getX()), y0 = unsigned(domain.getY());
        for (unsigned y = y0; y < y0 + domain.getHeight(); ++y)
            for (unsigned x = x0; x < x0 + domain.getWidth(); ++x) {
                const NBX::SO<MicroTrianglesData> micro = hybrid->microData(x, y);
                if (!micro) continue;
                box += micro->boundingBox();
                for (unsigned v = 0; v < micro->vertices(); ++v)
                    if (!micro->isGridVertex(v)) numbers.push_back(micro->convertToContainerIndex(v));
            }
        std::sort(numbers.begin(), numbers.end());
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        for (const unsigned number : numbers)
            microVertices_.push_back(hybrid->vertex(number));
    }

    /// The largest vertical distance of a vertex of the micro-structures in `domain`, which begin with number
    /// `first`, from the surface of the node.
    double microDistance(const NBX::Area & domain, std::size_t first) const {
        const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
        const auto low = grid_->vertex(x, y);
        const auto high = grid_->vertex(x + domain.getWidth(), y + domain.getHeight());
        double distance = 0.0;
        TinFace hint = tin_.face(0U);
        for (std::size_t i = first; i < microVertices_.size(); ++i) {
            const auto & v = microVertices_[i];
            // One on the border may have been rounded to the other side.
            const Accessor::Point p(std::clamp(v.x, low.x, high.x), std::clamp(v.z, low.z, high.z), v.y);
            const TinFace face = tin_.locate(p, hint);
            if (!face) continue;
            distance = std::max(distance, std::abs(tin_.heightOn(face, p) - p.z));
            hint = face;
        }
        return distance;
    }

    NBX::SO<GeometryPatch> buildTin(const NBX::Area & domain, std::vector<unsigned> & candidates,
                                    std::vector<unsigned> & vertices, const NBX::Bounds & box,
                                    const NBX::SO<Children> & children, std::size_t firstMicroVertex) {
        const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
        const unsigned w = domain.getWidth(), h = domain.getHeight();
        Accessor::currentData = grid_;
        appendBorder(domain, candidates);

        tin_.clear();
        tin_.init(grid_->index(x, y), grid_->index(x + w, y), grid_->index(x + w, y + h),
                  grid_->index(x, y + h));
        refinement_.run(tin_, candidates, s_refinementThreshold, maxVertices_);
        for (unsigned n = 0; n < tin_.nodes(); ++n)
            vertices.push_back(tin_.number(tin_.node(n)));

        surface_.scan(tin_, domain);
        const double error = std::max(surface_.distance(), microDistance(domain, firstMicroVertex));
        const MyTinToTristrips strips(tin_);
        const NBX::SO<NBX::Array<unsigned>> numbers = rankNodes();
        for (const auto & child : children->stl())
            setParentHeights(child.get());

        return new TinPatch(
            grid_, numbers.get(), localNumbers(strips.nodes()).get(), new NBX::Array<unsigned>(strips.ends()),
            borderNumbers(0, 3).get(), x == 0, borderNumbers(3, 2).get(), y + h == grid_->sizeY() - 1,
            borderNumbers(2, 1).get(), x + w == grid_->sizeX() - 1, borderNumbers(1, 0).get(), y == 0, box,
            std::max(error, s_leastInnerError), wall_, children->isEmpty() ? nullptr : children.get());
    }

    /// Every vertex of the border is a candidate, even one that the children dropped. Those that are there
    /// twice do no harm: on a node the error is 0.
    void appendBorder(const NBX::Area & domain, std::vector<unsigned> & candidates) const {
        const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
        const unsigned w = domain.getWidth(), h = domain.getHeight();
        for (unsigned i = 0; i <= w; ++i) {
            candidates.push_back(grid_->index(x + i, y));
            candidates.push_back(grid_->index(x + i, y + h));
        }
        for (unsigned j = 0; j <= h; ++j) {
            candidates.push_back(grid_->index(x, y + j));
            candidates.push_back(grid_->index(x + w, y + j));
        }
    }

    /// The numbers of all nodes, ascending. `ranks_` then holds the place of each node's number.
    NBX::SO<NBX::Array<unsigned>> rankNodes() {
        order_.resize(tin_.nodes());
        std::iota(order_.begin(), order_.end(), 0U);
        std::sort(order_.begin(), order_.end(), [this](unsigned a, unsigned b) {
            return tin_.number(tin_.node(a)) < tin_.number(tin_.node(b));
        });
        ranks_.resize(order_.size());
        NBX::SO<NBX::Array<unsigned>> numbers(new NBX::Array<unsigned>(tin_.nodes()));
        for (unsigned rank = 0; rank < order_.size(); ++rank) {
            ranks_[order_[rank]] = static_cast<unsigned short>(rank);
            numbers->stl()[rank] = tin_.number(tin_.node(order_[rank]));
        }
        return numbers;
    }

    NBX::SO<NBX::Array<unsigned short>> localNumbers(const std::vector<TinNode> & nodes) const {
        NBX::SO<NBX::Array<unsigned short>> result(new NBX::Array<unsigned short>(unsigned(nodes.size())));
        std::transform(nodes.begin(), nodes.end(), result->stl().begin(),
                       [this](TinNode n) { return ranks_[n.index()]; });
        return result;
    }

    /// The local numbers along one side, from corner to corner, clockwise. The corners are the first four
    /// nodes of the mesh.
    NBX::SO<NBX::Array<unsigned short>> borderNumbers(unsigned startCorner, unsigned endCorner) const {
        const TinNode n = tin_.node(startCorner), end = tin_.node(endCorner);
        std::vector<TinNode> nodes;
        nodes.reserve(tin_.nodes() / 4);
        TinEdge e = tin_.boundaryEdge(n);
        // The start corner of a mesh is on its border.
        NBX_CHECK(n, L"internal error");
        for (; e && tin_.origin(e) != end; e = tin_.next(e))
            nodes.push_back(tin_.origin(e));
        nodes.push_back(end);
        return localNumbers(nodes);
    }

    /// Tells a child the height of the present surface at each of its vertices.
    void setParentHeights(GeometryPatch * child) const {
        auto * patch = dynamic_cast<TinPatch *>(child);
        if (!patch) return;
        const auto numbers = patch->vertexIndices();
        NBX::SO<NBX::Array<float>> heights(new NBX::Array<float>(numbers->size()));
        std::transform(numbers->pointer(), numbers->pointer() + numbers->size(), heights->stl().begin(),
                       [this](unsigned number) { return surface_.height(number); });
        patch->setParentHeights(heights.get());
    }

    NBX::SO<GridData> grid_;
    double wall_;
    unsigned maxVertices_;
    Tin<Accessor> tin_;
    TinAlgorithmPointsToTin<Accessor> refinement_;
    SurfaceScan surface_;
    /// Those of the leaves so far that are not on the grid. Leaves are built in the order of the tree, hence
    /// the ones below a node are the last when it is built.
    std::vector<NBX::Vector3Base<double>> microVertices_;
    std::vector<unsigned> order_;       ///< nodes in the order of their numbers
    std::vector<unsigned short> ranks_; ///< of each node
};

void writeStatistics(const RASTER::RasterData & raster) {
    const RASTER::Histogram histogram(&raster);
    const auto precision = std::cerr.precision(15);
    std::cerr << "creating terrain for:\n"
              << "\tgrid:\t" << raster.cellsX() << "x" << raster.cellsY() << " vertices\n"
              << "\n"
              << "\tmin X:  \t" << raster.minX() << "\n"
              << "\tmax X:  \t" << raster.maxX() << "\n"
              << "\tdelta X:\t" << raster.maxX() - raster.minX() << "\n"
              << "\n"
              << "\tmin Y:  \t" << raster.minY() << "\n"
              << "\tmax Y:  \t" << raster.maxY() << "\n"
              << "\tdelta Y:\t" << raster.maxY() - raster.minY() << "\n"
              << "\n"
              << "\tnumber of defined height values:  \t" << histogram.numberOfDefinedValues() << "\n"
              << "\tnumber of undefined height values:\t" << histogram.numberOfUndefinedValues() << "\n"
              << "\tnumber of different height values:\t" << histogram.numberOfDifferentValues() << "\n"
              << "\n"
              << "\tminimum height value:\t" << histogram.minimum() << "\n"
              << "\tmaximum height value:\t" << histogram.maximum() << "\n"
              << "\tdelta height value:  \t" << histogram.maximum() - histogram.minimum() << "\n"
              << "\taverage height value:\t" << histogram.average() << "\n"
              << std::endl;
    std::cerr.precision(precision);
}

} // namespace

NBX::SO<GeometryPatch> CreateGeometryTree::create(GeometryData * data, unsigned maxVertices) {
    NBX_CHECK(maxVertices >= 50, L"maxVertices must be >= 50: " << maxVertices);
    const NBX::SO<GridData> grid(static_cast<GridData *>(data));
    NBX_CHECK(grid, L"no grid");
    if (!grid) return nullptr;

    NBX::Progress progress("generating terrain LOD model", 1.0);
    s_progress = &progress;
    s_cancelled = false;

    writeStatistics(*grid->rasterData());
    const NBX::Bounds box = data->boundingBox();
    const double wall = box.getLLF().y - (box.getURB().y - box.getLLF().y) * 0.2;
    std::vector<unsigned> vertices;
    NBX::SO<GeometryPatch> root =
        TreeBuilder(grid, wall, std::max(maxVertices, s_leastMaxVertices))
            .build(NBX::Area(0, 0, grid->sizeX() - 1, grid->sizeY() - 1), vertices, 0.0, 1.0, 0);

    s_progress = nullptr;
    if (s_cancelled) return nullptr;
    progress.finish();
    return root;
}

} // namespace ZMT::CORE
