#include "treewalkgl.h"

#include <algorithm>
#include <cmath>

#include "atlasstagesgl.h"

namespace ZMT::CORE {

namespace {

/// Which part of the distance at which a node is replaced by finer ones these take to be blended in. Well
/// below one half, as the next finer ones come at half the distance.
constexpr double s_blendingRange = 0.25;

double square(double x) {
    return x * x;
}

} // namespace

TreeWalkGL::TreeWalkGL(const TexturedTriangleTree & tree, const NBX::ViewInfo & view)
    : tree_(tree), nodes_(*tree.getRenderTree()), view_(view) {
    for (int layer = std::min(tree.getNumberOfLayers(), 2) - 1; layer >= 0; --layer)
        if (isEnabled(layer)) leadingLayer_ = layer;
    const Node root = nodes_.root();
    stack_.push_back({root, nullptr, view_.distance2(root->content.bounds)});
    while (!stack_.empty()) {
        const Waiting next = stack_.back();
        stack_.pop_back();
        visit(next.node, next.batch);
    }
}

bool TreeWalkGL::isEnabled(int layer) const {
    return layer < tree_.getNumberOfLayers() && tree_.getLayerEnabled(layer);
}

bool TreeWalkGL::hasAtlas(const RenderNode & node, int layer) {
    return layer >= 0 && AtlasStagesGL::isUsable(node.texture(unsigned(layer)).get());
}

bool TreeWalkGL::isBeyondLimit(const Node & node) const {
    return tree_.maxDistanceEnabled() && distance2(node) > square(tree_.maxDistance());
}

void TreeWalkGL::visit(const Node & node, const Data * batch) {
    const RenderNode & content = node->content;
    if (!content.bounds.isDefined()) return;
    if (view_.cull(content.bounds) == -1) return;
    const double distance2 = view_.distance2(content.bounds);
    const double limit2 = square(content.minDistance) * square(tree_.getQualityFactor());
    const bool isFine = distance2 > limit2;
    if (isBeyondLimit(node)) return;
    if (content.vertexData) batch = content.vertexData.get();
    const bool isInner = nodes_.hasChildren(node);
    Visit visit{node, distance2, How::Whole, isInner && !isFine, !isInner && !isFine && isEnabled(0), batch};
    if (visit.wantsOriginals && !content.originalTextures) {
        lacksOriginals_ = true;
        visit.wantsOriginals = false;
    }
    if (visit.wantsChildren && canDrawChildren(node)) {
        visit.how = How::Passed;
        pushChildren(node, batch);
    } else if (visit.wantsOriginals && content.originalTextures->size() > 0 &&
               content.originalGeometry.size() == content.originalTextures->size() &&
               content.originalTexturesUploaded()) {
        visit.how = How::Original;
    }
    visits_.push_back(visit);
}

/// They replace the node together, since its atlas covers all of them, those out of view as well: who turns
/// sees them at once. Those beyond the far limit are drawn in no case.
bool TreeWalkGL::canDrawChildren(const Node & node) const {
    if (leadingLayer_ < 0) return true;
    for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i) {
        const Node child = nodes_.child(node, i);
        if (!child->content.bounds.isDefined() || isBeyondLimit(child)) continue;
        if (!hasAtlas(child->content, leadingLayer_)) return false;
    }
    return true;
}

/// The nearest comes last, and so is visited first.
void TreeWalkGL::pushChildren(const Node & node, const Data * batch) {
    const std::size_t first = stack_.size();
    for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i) {
        const Node child = nodes_.child(node, i);
        stack_.push_back({child, batch, distance2(child)});
    }
    std::stable_sort(stack_.begin() + std::ptrdiff_t(first), stack_.end(),
                     [](const Waiting & a, const Waiting & b) { return a.distance2 > b.distance2; });
}

double TreeWalkGL::weight(double minDistance, double distance2) const {
    if (!tree_.getBlendingMode()) return 1.0;
    const double limit = minDistance * tree_.getQualityFactor();
    const double range = limit * s_blendingRange;
    if (!(range > 0.0)) return 1.0;
    return std::clamp((limit - std::sqrt(distance2)) / range, 0.0, 1.0);
}

double TreeWalkGL::weightBelow(const Node & node) const {
    return weight(node->content.minDistance, view_.distance2(node->content.bounds));
}

double TreeWalkGL::weightOfOriginals(const Visit & visit) const {
    return weight(visit.node->content.minDistance, visit.distance2);
}

} // namespace ZMT::CORE
