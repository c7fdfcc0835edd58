// A hierarchy over the boxes of the leaves, in each of which there is one over the triangles. Boxes of floats
// lead the ray to the leaves, somewhat too many; the exact boxes of the nodes are held against the ray where
// it hits something. So a box that lies in that of its parent spares the parent. The hits are those of a walk
// from the root that hands the mesh of each leaf to the engine, to the bit.

#include "rayleaves.h"

#include <algorithm>
#include <utility>

#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>

namespace ZMT::CORE {

namespace {

using NBX::RayTracingTechnique;
using V = NBX::Vector3Base<double>;

/// Hits whose distances differ by less may be equally far in the scene.
constexpr double s_closeness = 1e-9;

bool contains(const NBX::Bounds & outer, const NBX::Bounds & inner) {
    const V &low = outer.getLLF(), &high = outer.getURB();
    for (unsigned axis = 0; axis < 3; ++axis)
        if (!(low[axis] <= inner.getLLF()[axis] && inner.getURB()[axis] <= high[axis])) return false;
    return true;
}

/// What was read may be no number, and is taken for a box without an end.
NBX::BoxHierarchy::Box boxOf(const NBX::Bounds & bounds, std::uint32_t number) {
    constexpr double most = 1e30;
    NBX::BoxHierarchy::Box box{{}, {}, number};
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double low = bounds.getLLF()[axis], high = bounds.getURB()[axis];
        box.low[axis] = float(low > -most ? std::min(low, most) : -most);
        box.high[axis] = float(high < most ? std::max(high, -most) : most);
    }
    return box;
}

V wide(const NBX::Vector3Base<float> & v) {
    return {v.x, v.y, v.z};
}

} // namespace

bool RayLeaves::Place::isMet(const NBX::Ray & ray) const {
    for (const Place * place = this; place; place = place->alsoTested)
        if (!RayTracingTechnique::checkBounds(ray, place->box)) return false;
    return true;
}

RayLeaves::Leaf::Leaf(const NBX::SO<Mesh> & mesh, const Place * place)
    : mesh(mesh), place(place), isOdd(mesh->classInfoNBX() != Mesh::ClassInfoNBX()) {}

const NBX::TriangleHierarchy * RayLeaves::Leaf::hierarchy() const {
    if (!isMade.load(std::memory_order_acquire)) {
        const std::lock_guard lock(mutex);
        if (!isMade.load(std::memory_order_relaxed)) triangles = mesh->newHierarchy();
        isMade.store(true, std::memory_order_release);
    }
    return triangles.get();
}

void RayLeaves::Leaf::fetchAhead() const {
    if (isMade.load(std::memory_order_acquire) && triangles) triangles->fetchAhead();
}

RayLeaves::RayLeaves(RenderTree & nodes) {
    addLeaves(nodes);
    std::vector<NBX::BoxHierarchy::Box> boxes;
    boxes.reserve(leaves_.size());
    for (std::size_t i = 0; i < leaves_.size(); ++i)
        boxes.push_back(boxOf(leaves_[i].place->box, std::uint32_t(i)));
    order_.reserve(boxes.size());
    boxes_ = NBX::BoxHierarchy(std::move(boxes), 1, [&](const NBX::BoxHierarchy::Box * first, unsigned) {
        order_.push_back(first->number);
    });
}

void RayLeaves::addLeaves(RenderTree & nodes) {
    struct Waiting {
        RenderTree::NodePointer node;
        const Place * parent;
        unsigned child;
    };
    std::vector<Waiting> waiting{{nodes.root(), nullptr, 0}};
    while (!waiting.empty()) {
        const auto [node, parent, child] = waiting.back();
        waiting.pop_back();
        const NBX::Bounds & box = node->content.bounds;
        if (!box.isDefined()) continue;
        const Place * tested = parent;
        while (tested && contains(tested->box, box))
            tested = tested->alsoTested;
        const Place * place =
            &places_.emplace_back(Place{box, parent, tested, parent ? parent->depth + 1 : 0, child});
        if (!nodes.hasChildren(node)) {
            if (node->content.triangles) leaves_.emplace_back(node->content.triangles, place);
            continue;
        }
        for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i)
            waiting.push_back({nodes.child(node, i), place, i});
    }
}

/// The way of one ray from leaf to leaf.
class RayLeaves::Search {
public:
    Search(NBX::Engine * engine, const NBX::Ray & ray, RayTracingTechnique & technique)
        : engine_(engine), ray_(ray), boxRay_(ray), technique_(technique), limit_(technique.limit()) {
        const auto * handler = dynamic_cast<const NBX::RayIntersector *>(
            engine->findHandler(NBX::RayIntersector::ClassNameNBX(), Mesh::ClassInfoNBX()));
        isPlain_ = handler && handler->hitsTriangles();
    }

    const NBX::BoxRay & boxRay() const { return boxRay_; }
    /// The parameter up to which hits still count.
    double limit() const { return limit_; }

    void visit(const Leaf & leaf) {
        const NBX::TriangleHierarchy * triangles = isPlain_ && !leaf.isOdd ? leaf.hierarchy() : nullptr;
        if (!triangles) {
            if (!leaf.place->isMet(ray_)) return;
            engine_->paint(leaf.mesh.get());
            limit_ = std::min(limit_, technique_.limit());
            return;
        }
        NBX::BoxHierarchy::fetchAhead<NBX::RenderObj>(*leaf.mesh); // which a hit asks
        const auto hit = triangles->nearest(ray_, boxRay_, limit_);
        if (hit && leaf.mesh->isEnabled() && leaf.place->isMet(ray_)) take({&leaf, *hit});
    }
    /// The nearest hit and those that may be equally far in the scene.
    std::vector<Hit> closeHits() {
        std::vector<Hit> hits{*nearest_};
        for (const Hit & hit : others_)
            if (hit.at.distance <= limit_) hits.push_back(hit);
        return hits;
    }
    bool isContested() const { return !others_.empty(); }
    const std::optional<Hit> & nearest() const { return nearest_; }

private:
    void take(const Hit & hit) {
        if (!nearest_ || hit.at.distance * (1.0 + s_closeness) < nearest_->at.distance) {
            others_.clear();
            nearest_ = hit;
        } else if (hit.at.distance < nearest_->at.distance) {
            others_.push_back(std::exchange(*nearest_, hit));
        } else {
            others_.push_back(hit);
        }
        limit_ = std::min(limit_, nearest_->at.distance * (1.0 + s_closeness));
    }

    NBX::Engine * engine_;
    const NBX::Ray & ray_;
    NBX::BoxRay boxRay_;
    RayTracingTechnique & technique_;
    double limit_;
    bool isPlain_;
    std::optional<Hit> nearest_;
    std::vector<Hit> others_; ///< about as near
};

void RayLeaves::intersect(NBX::Engine * engine, const NBX::Ray & ray, RayTracingTechnique & technique) const {
    Search search(engine, ray, technique);
    boxes_.visit(
        search.boxRay(), search.limit(),
        [&](std::uint32_t leaf) {
            search.visit(leaves_[order_[leaf]]);
            return search.limit();
        },
        [&](std::uint32_t leaf) { leaves_[order_[leaf]].fetchAhead(); });
    const auto report = [&](const Hit & hit) {
        const auto & [a, b, c] = hit.at.corners;
        technique.reportTriangle(engine, ray, hit.at.distance, {wide(a), wide(b), wide(c)},
                                 hit.leaf->mesh.get());
    };
    if (!search.nearest()) return;
    if (!search.isContested()) {
        report(*search.nearest());
        return;
    }
    std::vector<Hit> hits = search.closeHits();
    std::sort(hits.begin(), hits.end(),
              [&](const Hit & a, const Hit & b) { return isReachedBefore(*a.leaf, *b.leaf, ray); });
    std::for_each(hits.begin(), hits.end(), report);
}

/// On a walk that goes on with the child whose box is entered first, and with the last one of several.
bool RayLeaves::isReachedBefore(const Leaf & a, const Leaf & b, const NBX::Ray & ray) {
    const Place *first = a.place, *second = b.place;
    if (first == second) return false;
    while (first->parent != second->parent) {
        const bool firstIsDeeper = first->depth > second->depth, sameDepth = first->depth == second->depth;
        if (firstIsDeeper || sameDepth) first = first->parent;
        if (!firstIsDeeper) second = second->parent;
    }
    const double firstEnters = RayTracingTechnique::enterBounds(ray, first->box);
    const double secondEnters = RayTracingTechnique::enterBounds(ray, second->box);
    return firstEnters == secondEnters ? first->child > second->child : firstEnters < secondEnters;
}

std::size_t RayLeaves::bytes() const {
    std::size_t bytes = boxes_.bytes() + places_.size() * sizeof(Place) + leaves_.size() * sizeof(Leaf) +
                        order_.capacity() * sizeof(std::uint32_t);
    for (const Leaf & leaf : leaves_)
        if (leaf.isMade.load(std::memory_order_acquire) && leaf.triangles)
            bytes += sizeof *leaf.triangles + leaf.triangles->bytes();
    return bytes;
}

} // namespace ZMT::CORE
