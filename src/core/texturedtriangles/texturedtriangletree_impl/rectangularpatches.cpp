// Greedy merging: of all pairs of neighbouring patches the one whose common rectangle saves most area comes
// first, as long as one saves any. What a pair would save is known from the convex hulls of both, so that
// large patches cost no more than their outlines.

#include "rectangularpatches.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include <nbx/container/sequence/array.h>
#include <nbx/container/space/boundingboxtree.h>
#include <nbx/math/algorithmimpl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonsettool.h>

#include "textureatlasgenerator.h"
#include "trianglecorners.h"

namespace ZMT::CORE {

namespace {

using Vector = TriPatch::Vector;
using Rectangle = std::array<Vector, 4>;
using Corners = std::array<Vector, 3>;

/// Of a rectangle that is too large for any atlas.
constexpr double s_costOfTooLarge = 1e20;
/// Squared diagonal below which there is nothing to draw.
constexpr double s_leastDiagonal2 = 1e-10;
/// Neighbours of a triangle at a dense spot: one for each edge.
constexpr std::size_t s_manyBoxes = 5;

NBX::Bounds boundsOf(std::span<const Vector> points) {
    NBX::Bounds box;
    for (const Vector & point : points)
        box += point;
    return box;
}

bool isTiny(const NBX::Bounds & box) {
    return !box.isDefined() || !(box.diagonal().length2() >= s_leastDiagonal2);
}

/// Each side moves outwards.
Rectangle grown(const Rectangle & r, double by) {
    const Vector across = r[3] - r[0];
    Vector along = (r[1] - r[0]).normalized();
    if (along == Vector()) along = Vector(across.z, 0.0, -across.x).normalized();
    if (along == Vector()) along = Vector(1.0, 0.0, 0.0);
    const Vector u = along * by, v(-u.z, 0.0, u.x);
    return {r[0] - u - v, r[1] + u - v, r[2] + u + v, r[3] - u + v};
}

double edgeDistance2(const Vector & a, const Vector & b, const Vector & c, const Vector & d) {
    return std::min((a - c).length2() + (b - d).length2(), (a - d).length2() + (b - c).length2());
}

/// From one edge to the nearest one of a triangle.
double edgeDistance2(const Vector & a, const Vector & b, const Corners & other) {
    return std::min({edgeDistance2(a, b, other[0], other[1]), edgeDistance2(a, b, other[1], other[2]),
                     edgeDistance2(a, b, other[2], other[0])});
}

/// For each edge of `corners` the nearest of `candidates`, none twice.
std::vector<int> nearestToEdges(const Corners & corners, std::vector<int> candidates,
                                const std::vector<TriPatchManager::Triangle> & triangles) {
    std::vector<int> nearest;
    for (unsigned edge = 0; edge < 3 && !candidates.empty(); ++edge) {
        const auto distance = [&](int i) {
            return edgeDistance2(corners[edge], corners[(edge + 1) % 3],
                                 triangles[static_cast<std::size_t>(i)].corners);
        };
        const auto best = std::min_element(candidates.begin(), candidates.end(),
                                           [&](int a, int b) { return distance(a) < distance(b); });
        nearest.push_back(*best);
        candidates.erase(best);
    }
    return nearest;
}

std::vector<Vector> hullsOf(const TriPatch & a, const TriPatch & b) {
    std::vector<Vector> points = a.hull;
    points.insert(points.end(), b.hull.begin(), b.hull.end());
    return points;
}

} // namespace

NBX_CLASS_IMPL(TriPatch, SharedObj)
NBX_CLASS_IMPL(TriPatchManager, SharedObj)

bool MergeOp::operator<(const MergeOp & o) const {
    return std::tie(gain, m_a->number, m_b->number) < std::tie(o.gain, o.m_a->number, o.m_b->number);
}

TriPatchManager::TriPatchManager(std::vector<Triangle> vertices, double border, double maxSize)
    : vertices_(std::move(vertices)), border_(border), maxSize_(maxSize) {
    for (const Triangle & triangle : vertices_) {
        const NBX::SO<TriPatch> patch = newPatch(triangle.corners);
        patch->triangles.insert(triangle.number);
        patches_.insert(patch);
    }
    findNeighbours();
}

TriPatchManager::~TriPatchManager() {
    // Neighbours hold each other.
    for (const NBX::SO<TriPatch> & patch : patches_)
        patch->neighbours.clear();
}

/// Of the rectangle around all points.
double TriPatchManager::costOf(std::span<const Vector> points) const {
    const auto rectangle = NBX::AlgorithmImpl::boundingRectangle(points);
    if (!rectangle || isTiny(boundsOf(points))) return 0.0;
    const auto & [a, b, c, d] = *rectangle;
    const double width = (b - a).length() + border_, height = (c - b).length() + border_;
    return width > maxSize_ || height > maxSize_ ? s_costOfTooLarge : width * height;
}

/// Without triangles and neighbours.
NBX::SO<TriPatch> TriPatchManager::newPatch(std::span<const Vector> points) {
    NBX::SO<TriPatch> patch(new TriPatch(made_++));
    patch->area = costOf(points);
    const auto rectangle = NBX::AlgorithmImpl::boundingRectangle(points);
    if (!rectangle) return patch;
    patch->rectangle = *rectangle;
    patch->hull = NBX::AlgorithmImpl::convexHull2D(points);
    return patch;
}

void TriPatchManager::findNeighbours() {
    std::vector<NBX::Bounds> boxes;
    NBX::Bounds space;
    for (const Triangle & triangle : vertices_)
        space += boxes.emplace_back(boundsOf(triangle.corners));
    const NBX::SO<NBX::BoundingBoxTree> tree(new NBX::BoundingBoxTree(space, 5, 50));
    for (std::size_t i = 0; i < boxes.size(); ++i)
        if (boxes[i].isDefined()) tree->insert(boxes[i], static_cast<int>(i));

    const std::vector<NBX::SO<TriPatch>> byNumber(patches_.begin(), patches_.end());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        std::vector<int> candidates = tree->findOverlappingBoxes(boxes[i]);
        std::erase(candidates, static_cast<int>(i));
        if (candidates.size() > s_manyBoxes)
            candidates = nearestToEdges(vertices_[i].corners, std::move(candidates), vertices_);
        for (const int candidate : candidates)
            if (const auto k = static_cast<std::size_t>(candidate); i < k && areNeighbours(i, k))
                link(byNumber[i], byNumber[k]);
    }
}

/// Of two triangles whose boxes touch.
bool TriPatchManager::areNeighbours(std::size_t a, std::size_t b) const {
    const NBX::Bounds boxA = boundsOf(vertices_[a].corners), boxB = boundsOf(vertices_[b].corners);
    if (isTiny(boxA) || isTiny(boxB)) return false;
    const auto rectangle = [this](std::size_t i) {
        const auto & [p, q, r] = vertices_[i].corners;
        return NBX::AlgorithmImpl::boundingRectangle(p, q, r);
    };
    const auto rectangleA = rectangle(a), rectangleB = rectangle(b);
    return rectangleA && rectangleB &&
           !NBX::AlgorithmImpl::clipConvexPolygons(grown(*rectangleA, border_), grown(*rectangleB, border_))
                .empty();
}

void TriPatchManager::link(NBX::SO<TriPatch> a, NBX::SO<TriPatch> b) {
    // In one order, so that the same pair always costs the same to the last digit.
    if (b->number < a->number) a.swap(b);
    const double cost = costOf(hullsOf(*a, *b));
    const double gain = cost - (a->area + b->area);
    a->neighbours[b->number] = {b, gain};
    b->neighbours[a->number] = {a, gain};
    // Two that are too large already would seem to gain by becoming one.
    if (cost < s_costOfTooLarge) queue_.insert({a, b, gain});
}

/// Takes a patch out of its neighbours, and what could be done with it out of the queue.
void TriPatchManager::unlink(TriPatch & patch) {
    const NBX::SO<TriPatch> self(&patch);
    for (const auto & [number, neighbour] : patch.neighbours) {
        neighbour.patch->neighbours.erase(patch.number);
        const bool isFirst = patch.number < number;
        queue_.erase({isFirst ? self : neighbour.patch, isFirst ? neighbour.patch : self, neighbour.gain});
    }
    patch.neighbours.clear();
}

bool TriPatchManager::holds(const MergeOp & op) const {
    const auto isOurs = [this](const NBX::SO<TriPatch> & patch) {
        const auto found = patch ? patches_.find(patch) : patches_.end();
        return found != patches_.end() && *found == patch;
    };
    const bool holdsA = isOurs(op.m_a), holdsB = isOurs(op.m_b);
    const bool areTwo = op.m_a != op.m_b;
    if (!holdsA)
        NBX_REPORT(0, L"patchManager->patches().find(op.m_a)!=patchManager->patches().end()",
                   L"patch not found");
    if (!holdsB)
        NBX_REPORT(0, L"patchManager->patches().find(op.m_b)!=patchManager->patches().end()",
                   L"patch not found");
    if (!areTwo) NBX_REPORT(0, L"op.m_a!=op.m_b", L"nuetz");
    return holdsA && holdsB && areTwo;
}

/// A patch with the triangles of both, and how they lie to others. One that holds the other takes it in: its
/// rectangle stays, and so does all that is known of its neighbours.
NBX::SO<TriPatch> TriPatchManager::united(const NBX::SO<TriPatch> & a, const NBX::SO<TriPatch> & b) {
    const std::vector<Vector> points = hullsOf(*a, *b), hull = NBX::AlgorithmImpl::convexHull2D(points);
    if (hull == a->hull) return a;
    if (hull == b->hull) return b;
    return newPatch(hull);
}

NBX::SO<TriPatch> TriPatchManager::merge(const MergeOp & op) {
    if (!holds(op)) return nullptr;
    const NBX::SO<TriPatch> merged = united(op.m_a, op.m_b);
    std::map<unsigned, TriPatch::Neighbour> neighbours;
    for (const NBX::SO<TriPatch> & old : {op.m_a, op.m_b}) {
        if (old == merged) continue;
        neighbours.insert(old->neighbours.begin(), old->neighbours.end());
        unlink(*old);
        // The smaller set moves into the larger one.
        if (merged->triangles.size() < old->triangles.size()) merged->triangles.swap(old->triangles);
        merged->triangles.merge(old->triangles);
        patches_.erase(old);
    }
    patches_.insert(merged);
    for (const auto & [number, neighbour] : neighbours) {
        const bool isOther = neighbour.patch != op.m_a && neighbour.patch != op.m_b;
        if (isOther && !merged->neighbours.count(number)) link(neighbour.patch, merged);
    }
    return merged;
}

void TriPatchManager::mergeAll() {
    while (!queue_.empty() && queue_.begin()->gain < 0.0) {
        const MergeOp next = *queue_.begin();
        queue_.erase(queue_.begin());
        merge(next);
    }
}

NBX::SO<TextureAtlasGenerator::Groups>
TextureAtlasGenerator::groupRectangularPatches(const Vectors * vertices, const Triangles * triangles,
                                               double border, double maxSize) {
    if (!vertices || vertices->isEmpty() || !triangles || triangles->isEmpty()) return nullptr;
    const TriangleCorners corners(*vertices);
    std::vector<TriPatchManager::Triangle> turned;
    NBX::AlgorithmImpl::Matrix toPlane;
    Vector origin;
    for (const int triangle : *triangles) {
        NBX_CHECK(corners.contains(triangle), L"invalid triangle number");
        if (!corners.contains(triangle)) continue;
        Corners at = corners[triangle];
        if (turned.empty()) {
            origin = at[0];
            toPlane = NBX::AlgorithmImpl::rotateToXZPlane(
                NBX::PolygonSetTool::getTriangleNormal(at[0], at[1], at[2]));
        }
        // Turned about a point nearby, a place far from the origin costs no digits.
        for (Vector & corner : at)
            corner = toPlane * (corner - origin);
        turned.push_back({triangle, at});
    }
    const NBX::SO<TriPatchManager> manager(new TriPatchManager(std::move(turned), border, maxSize));
    manager->mergeAll();
    const NBX::SO<NBX::NonPersistentArray<NBX::SO<Triangles>>> groups(
        new NBX::NonPersistentArray<NBX::SO<Triangles>>);
    for (const NBX::SO<TriPatch> & patch : manager->patches())
        groups->append(
            new NBX::Array<int>(std::vector<int>(patch->triangles.begin(), patch->triangles.end())));
    return groups;
}

} // namespace ZMT::CORE
