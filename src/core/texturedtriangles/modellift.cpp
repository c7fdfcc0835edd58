// Positions are moved in place, since trees, batches and rays all have them: each is its own height plus the
// lift of its model, never the one before. The buffers then tell that they have changed, so that the card
// gets them again, and rays their hierarchies. Boxes follow from the leaves upwards.

#include "modellift.h"

#include <algorithm>
#include <limits>
#include <unordered_set>

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>

#include "modelnumber.h"

namespace ZMT::CORE {

namespace {

using Mesh = NBX::MappedVertexAttributeShapeGL;
using NBX::SO;

constexpr std::size_t s_height = 1; ///< component of a position

bool isMovable(const Mesh::Buffer & positions) {
    return positions.componentType() == NBX::VertexAttributeTraitsGL<float>::componentType &&
           positions.components() == 3;
}

bool isNumbering(const Mesh::Buffer & models, const Mesh::Buffer & positions) {
    return models.componentType() == NBX::VertexAttributeTraitsGL<float>::componentType &&
           models.components() == 1 && models.count() == positions.count();
}

/// A number from a file may be anything.
double liftOf(float model, const std::vector<double> & lifts, double rest) {
    return model >= 0.0F && double(model) < double(lifts.size()) ? lifts[std::size_t(model)] : rest;
}

NBX::Bounds moved(const NBX::Bounds & box, double lift) {
    if (!box.isDefined()) return box;
    const NBX::Vector3Base<double> up(0.0, lift, 0.0);
    return {box.getLLF() + up, box.getURB() + up};
}

/// The box with the heights of some positions.
NBX::Bounds withHeights(const NBX::Bounds & box, const Mesh::Buffer & positions) {
    const auto * height = static_cast<const float *>(positions.data()) + s_height;
    float low = std::numeric_limits<float>::infinity(), high = -low;
    for (std::size_t i = 0; i < positions.count(); ++i) {
        low = std::min(low, height[3 * i]);
        high = std::max(high, height[3 * i]);
    }
    if (!(low <= high)) return box;
    NBX::Vector3Base<double> lowest = box.getLLF(), highest = box.getURB();
    lowest.y = double(low);
    highest.y = double(high);
    return {lowest, highest};
}

} // namespace

void ModelLift::set(const std::vector<double> & lifts, double rest) {
    const bool isMoved =
        rest != 0.0 || std::any_of(lifts.begin(), lifts.end(), [](double lift) { return lift != 0.0; });
    if (!isMoved) {
        putBack();
        return;
    }
    if (heights_.empty() && boxes_.empty()) keep();
    for (const Heights & heights : heights_) {
        auto * height = static_cast<float *>(heights.positions->mapPointer()) + s_height;
        const auto * model = heights.models ? static_cast<const float *>(heights.models->data()) : nullptr;
        for (std::size_t i = 0; i < heights.own.size(); ++i)
            height[3 * i] = float(heights.own[i] + (model ? liftOf(model[i], lifts, rest) : rest));
        heights.positions->unmapPointer();
    }
    moveBoxes(rest);
}

void ModelLift::keep() {
    for (const SO<TexturedTriangleTree> & tree : trees_) {
        if (const SO<Mesh> & plain = tree->getUntexturedGeometry()) keepHeights(plain->data());
        if (tree->getRenderTree()) keepNodes(*tree->getRenderTree());
    }
    std::unordered_set<const Mesh::Buffer *> seen;
    std::erase_if(heights_,
                  [&](const Heights & heights) { return !seen.insert(heights.positions.get()).second; });
    for (Heights & heights : heights_) {
        heights.own.resize(heights.positions->count());
        const auto * height = static_cast<const float *>(heights.positions->data()) + s_height;
        for (std::size_t i = 0; i < heights.own.size(); ++i)
            heights.own[i] = height[3 * i];
    }
}

void ModelLift::keepNodes(RenderTree & nodes) {
    for (const Box & box : boxes_)
        if (box.tree == &nodes) return;
    std::vector<RenderTree::NodePointer> waiting{nodes.root()};
    while (!waiting.empty()) {
        const RenderTree::NodePointer node = waiting.back();
        waiting.pop_back();
        const RenderNode & content = node->content;
        const SO<Mesh::Data> leaf = content.triangles ? content.triangles->data() : nullptr;
        boxes_.push_back(
            {&nodes, node, content.bounds, leaf ? leaf->buffer(Mesh::Data::VERTEX_ID) : nullptr});
        keepHeights(content.vertexData);
        if (content.triangles) keepHeights(content.triangles->data());
        for (const SO<Mesh> & mesh : content.originalGeometry)
            if (mesh) keepHeights(mesh->data());
        for (unsigned i = 0; nodes.hasChildren(node) && i < RenderTree::s_childrenOfNode; ++i)
            waiting.push_back(nodes.child(node, i));
    }
}

void ModelLift::keepHeights(const SO<Mesh::Data> & data) {
    const SO<Mesh::Buffer> positions = data ? data->buffer(Mesh::Data::VERTEX_ID) : nullptr;
    if (!positions || !isMovable(*positions)) return;
    const SO<Mesh::Buffer> models = data->buffer(ModelNumber::bufferName());
    heights_.push_back({positions, models && isNumbering(*models, *positions) ? models : nullptr, {}});
}

/// Those of leaves anew from their triangles, those of others from their children's.
void ModelLift::moveBoxes(double rest) {
    for (auto box = boxes_.rbegin(); box != boxes_.rend(); ++box) {
        RenderNode & content = box->node->content;
        if (!box->own.isDefined()) continue;
        if (!box->tree->hasChildren(box->node)) {
            content.bounds = box->positions && isMovable(*box->positions)
                                 ? withHeights(box->own, *box->positions)
                                 : moved(box->own, rest);
            continue;
        }
        content.bounds = NBX::Bounds();
        for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i)
            content.bounds += box->tree->child(box->node, i)->content.bounds;
    }
    for (const SO<TexturedTriangleTree> & tree : trees_)
        tree->geometryChanged();
}

void ModelLift::putBack() {
    if (heights_.empty() && boxes_.empty()) return;
    for (const Heights & heights : heights_) {
        auto * height = static_cast<float *>(heights.positions->mapPointer()) + s_height;
        for (std::size_t i = 0; i < heights.own.size(); ++i)
            height[3 * i] = heights.own[i];
        heights.positions->unmapPointer();
    }
    for (const Box & box : boxes_)
        box.node->content.bounds = box.own;
    for (const SO<TexturedTriangleTree> & tree : trees_)
        tree->geometryChanged();
    heights_.clear();
    boxes_.clear();
}

} // namespace ZMT::CORE
