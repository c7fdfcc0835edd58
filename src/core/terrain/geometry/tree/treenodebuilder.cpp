// Greedy refinement after M. Garland and P. Heckbert, Fast Polygonal Approximation of Terrains and Height
// Fields, 1995, applied level by level: a node refines over what its children kept, and its error is then
// measured against the full grid, so that errors do not add up.

#include "treenodebuilder.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/mytintotristrips.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>

namespace ZMT::CORE {

namespace {

constexpr double s_refinementThreshold = 1e-6;
constexpr double s_leastInnerError = 1e-6;

} // namespace

void KeptVertices::append(const KeptVertices & other) {
    numbers.insert(numbers.end(), other.numbers.begin(), other.numbers.end());
    microVertices.insert(microVertices.end(), other.microVertices.begin(), other.microVertices.end());
}

TreeNodeBuilder::TreeNodeBuilder(const TreeFrame & frame, GoOn goOn)
    : frame_(frame), grid_(*frame.grid), plan_(frame.maxVertices), goOn_(std::move(goOn)),
      tin_(Accessor(grid_)), refinement_(Accessor(grid_)), surface_(grid_) {}

bool TreeNodeBuilder::enter(const TreePart & part) const {
    checkDomain(&grid_, part.domain);
    return goOn_(part.progressOffset);
}

NBX::SO<GeometryPatch> TreeNodeBuilder::build(const TreePart & part, std::size_t firstDraw,
                                              KeptVertices & kept) {
    nextDraw_ = firstDraw;
    return buildNode(part, kept);
}

NBX::SO<GeometryPatch> TreeNodeBuilder::buildNode(const TreePart & part, KeptVertices & kept) {
    if (!enter(part)) return nullptr;
    if (plan_.isLeaf(part)) return buildLeaf(part.domain, kept);

    NBX::SO<Children> children(new Children);
    KeptVertices below;
    for (const TreePart & childPart : TreePlan::cut(part)) {
        const auto child = buildNode(childPart, below);
        if (!child) return nullptr;
        children->append(child);
    }
    return buildTin(part.domain, children, std::move(below), nextDraw_++, kept);
}

NBX::SO<GeometryPatch> TreeNodeBuilder::buildLeaf(const NBX::Area & domain, KeptVertices & kept) const {
    NBX::Bounds box;
    const unsigned x0 = unsigned(domain.getX()), y0 = unsigned(domain.getY());
    for (unsigned y = y0; y <= y0 + domain.getHeight(); ++y)
        for (unsigned x = x0; x <= x0 + domain.getWidth(); ++x) {
            box += grid_.vertex(x, y);
            kept.numbers.push_back(grid_.index(x, y));
        }
    appendMicroVertices(domain, box, kept);
    return new GridPatch(frame_.grid, domain, box, 0.0, frame_.wall, nullptr);
}

/// Extends `box` by the micro-structures of a leaf.
void TreeNodeBuilder::appendMicroVertices(const NBX::Area & domain, NBX::Bounds & box,
                                          KeptVertices & kept) const {
    if (!grid_.hasCellShapes()) return;
    const unsigned gridVertices = grid_.sizeX() * grid_.sizeY();
    std::vector<unsigned> numbers;
    const unsigned x0 = unsigned(domain.getX()), y0 = unsigned(domain.getY());
    for (unsigned y = y0; y < y0 + domain.getHeight(); ++y)
        for (unsigned x = x0; x < x0 + domain.getWidth(); ++x)
            for (const unsigned corner : grid_.cellCorners(x, y)) {
                box += grid_.vertex(corner);
                if (corner >= gridVertices) numbers.push_back(corner);
            }
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    for (const unsigned number : numbers)
        kept.microVertices.push_back(grid_.vertex(number));
}

NBX::SO<GeometryPatch> TreeNodeBuilder::buildTin(const NBX::Area & domain, const NBX::SO<Children> & children,
                                                 KeptVertices && below, std::size_t draw,
                                                 KeptVertices & kept) {
    NBX::Bounds box;
    for (const auto & child : children->stl())
        box += child->boundingBox();
    refine(domain, below.numbers);
    for (unsigned n = 0; n < tin_.nodes(); ++n)
        kept.numbers.push_back(tin_.number(tin_.node(n)));

    surface_.scan(tin_, domain);
    const double error = std::max(surface_.distance(), microDistance(domain, below.microVertices));
    kept.microVertices.insert(kept.microVertices.end(), below.microVertices.begin(),
                              below.microVertices.end());
    // The centre is in the face that was drawn, which is where it is looked for first: nothing else draws, so
    // that a node's strips depend on its own draw alone, whichever thread makes them.
    const MyTinToTristrips strips(tin_, tin_.face(frame_.draws[draw] % tin_.faces()));
    centre_ = strips.centre();
    const NBX::SO<NBX::Array<unsigned>> numbers = rankNodes();
    for (const auto & child : children->stl())
        setParentHeights(child.get());

    const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
    return new TinPatch(frame_.grid, numbers.get(), localNumbers(strips.nodes()).get(),
                        new NBX::Array<unsigned>(strips.ends()), borderNumbers(0, 3).get(), x == 0,
                        borderNumbers(3, 2).get(), y + domain.getHeight() == grid_.sizeY() - 1,
                        borderNumbers(2, 1).get(), x + domain.getWidth() == grid_.sizeX() - 1,
                        borderNumbers(1, 0).get(), y == 0, box, std::max(error, s_leastInnerError),
                        frame_.wall, children->isEmpty() ? nullptr : children.get());
}

/// Makes the triangulation of a node. `candidates` are the vertices that its children kept.
void TreeNodeBuilder::refine(const NBX::Area & domain, std::vector<unsigned> & candidates) {
    const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
    const unsigned w = domain.getWidth(), h = domain.getHeight();
    appendBorder(domain, candidates);
    tin_.clear();
    tin_.init(grid_.index(x, y), grid_.index(x + w, y), grid_.index(x + w, y + h), grid_.index(x, y + h));
    refinement_.run(tin_, candidates, s_refinementThreshold, frame_.maxVertices);
}

/// The largest vertical distance of a vertex of the micro-structures in `domain` from the surface.
double TreeNodeBuilder::microDistance(const NBX::Area & domain,
                                      const std::vector<Point> & microVertices) const {
    const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
    const auto low = grid_.vertex(x, y);
    const auto high = grid_.vertex(x + domain.getWidth(), y + domain.getHeight());
    double distance = 0.0;
    TinFace hint = tin_.face(0U);
    for (const auto & v : microVertices) {
        // One on the border may have been rounded to the other side.
        const Accessor::Point p(std::clamp(v.x, low.x, high.x), std::clamp(v.z, low.z, high.z), v.y);
        const TinFace face = tin_.locate(p, hint);
        if (!face) continue;
        distance = std::max(distance, std::abs(tin_.heightOn(face, p) - p.z));
        hint = face;
    }
    return distance;
}

/// Every vertex of the border is a candidate, even one that the children dropped. Those that are there
/// twice do no harm: on a node the error is 0.
void TreeNodeBuilder::appendBorder(const NBX::Area & domain, std::vector<unsigned> & candidates) const {
    const unsigned x = unsigned(domain.getX()), y = unsigned(domain.getY());
    const unsigned w = domain.getWidth(), h = domain.getHeight();
    for (unsigned i = 0; i <= w; ++i) {
        candidates.push_back(grid_.index(x + i, y));
        candidates.push_back(grid_.index(x + i, y + h));
    }
    for (unsigned j = 0; j <= h; ++j) {
        candidates.push_back(grid_.index(x, y + j));
        candidates.push_back(grid_.index(x + w, y + j));
    }
}

/// The numbers of all nodes, ascending. `ranks_` then holds the place of each node's number.
NBX::SO<NBX::Array<unsigned>> TreeNodeBuilder::rankNodes() {
    // Number and node in one, since these are compared most quickly.
    order_.clear();
    for (unsigned n = 0; n < tin_.nodes(); ++n)
        order_.push_back(std::uint64_t(tin_.number(tin_.node(n))) << 32 | n);
    std::sort(order_.begin(), order_.end());
    ranks_.resize(order_.size());
    NBX::SO<NBX::Array<unsigned>> numbers(new NBX::Array<unsigned>(tin_.nodes()));
    for (unsigned rank = 0; rank < order_.size(); ++rank) {
        ranks_[static_cast<std::uint32_t>(order_[rank])] = static_cast<unsigned short>(rank);
        numbers->stl()[rank] = static_cast<unsigned>(order_[rank] >> 32);
    }
    return numbers;
}

NBX::SO<NBX::Array<unsigned short>> TreeNodeBuilder::localNumbers(const std::vector<TinNode> & nodes) const {
    NBX::SO<NBX::Array<unsigned short>> result(new NBX::Array<unsigned short>(unsigned(nodes.size())));
    std::transform(nodes.begin(), nodes.end(), result->stl().begin(),
                   [this](TinNode n) { return ranks_[n.index()]; });
    return result;
}

/// The local numbers along one side, from corner to corner, clockwise. The corners are the first four
/// nodes of the mesh.
NBX::SO<NBX::Array<unsigned short>> TreeNodeBuilder::borderNumbers(unsigned startCorner,
                                                                   unsigned endCorner) const {
    // Every mesh begins with its corners: no data leads to the report, only a mesh that was never begun.
    const TinNode n = startCorner < tin_.nodes() ? tin_.node(startCorner) : TinNode();
    NBX_CHECK(n, L"internal error");
    std::vector<TinNode> nodes;
    if (!n) return localNumbers(nodes);
    const TinNode end = tin_.node(endCorner);
    nodes.reserve(tin_.nodes() / 4);
    for (TinEdge e = tin_.boundaryEdge(n); e && tin_.origin(e) != end; e = tin_.next(e))
        nodes.push_back(tin_.origin(e));
    nodes.push_back(end);
    return localNumbers(nodes);
}

/// Tells a child the height of the present surface at each of its vertices.
void TreeNodeBuilder::setParentHeights(GeometryPatch * child) const {
    auto * patch = dynamic_cast<TinPatch *>(child);
    if (!patch) return;
    const auto numbers = patch->vertexIndices();
    NBX::SO<NBX::Array<float>> heights(new NBX::Array<float>(numbers->size()));
    std::transform(numbers->pointer(), numbers->pointer() + numbers->size(), heights->stl().begin(),
                   [this](unsigned number) { return surface_.height(number); });
    patch->setParentHeights(heights.get());
}

} // namespace ZMT::CORE
