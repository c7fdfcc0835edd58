#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>

#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/translation.h>

#include "terraintexturedtrianglesshape.h"

namespace ZMT::CORE {

namespace {

/// Strictly: boxes that only touch do not overlap.
bool overlapInPlan(const NBX::Bounds & a, const NBX::Bounds & b) {
    return a.getLLF().x < b.getURB().x && a.getLLF().z < b.getURB().z && b.getLLF().x < a.getURB().x &&
           b.getLLF().z < a.getURB().z;
}

} // namespace

NBX_STORED_CLASS_IMPL(TerrainTexturedTriangles, TerrainTexturedGeometry)

TerrainTexturedTriangles::TerrainTexturedTriangles() = default;

TerrainTexturedTriangles::TerrainTexturedTriangles(const NBX::SO<NBX::PrimitiveQuadTreeGL> & tree,
                                                   const Point & offset)
    : tree_(tree), offset_(offset) {}

TerrainTexturedTriangles::~TerrainTexturedTriangles() = default;

void TerrainTexturedTriangles::setPrimitiveQuadTree(const NBX::SO<NBX::PrimitiveQuadTreeGL> & tree) {
    tree_ = tree;
    modified();
}

NBX::SO<NBX::PrimitiveQuadTreeGL> TerrainTexturedTriangles::primitiveQuadTree() const {
    return tree_;
}

void TerrainTexturedTriangles::setOffset(const Point & offset) {
    offset_ = offset;
    modified();
}

NBX::SO<NBX::SceneNode> TerrainTexturedTriangles::geometry(const NBX::Bounds & box) const {
    if (!tree_ || !overlapInPlan(tree_->boundingBox(), box)) return nullptr;
    const NBX::SO<NBX::PrimitiveQuadTreeAreaGL> area(new NBX::PrimitiveQuadTreeAreaGL(box));
    const NBX::SO<NBX::SceneThing> node(new NBX::SceneThing);
    if (offset_ != Point()) node->append(new NBX::Translation(offset_));
    node->append(new TerrainTexturedTrianglesShape(tree_, area, box));
    return node;
}

NBX::Bounds TerrainTexturedTriangles::boundingBox() const {
    return tree_ ? tree_->boundingBox() : NBX::Bounds();
}

void TerrainTexturedTriangles::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexturedGeometry::acceptChildren(children);
    children.push_back(tree_.get());
}

void TerrainTexturedTriangles::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexturedGeometry>(m, this);
    NBX::attributeWithDefault(m, "tree", tree_, nullptr);
    NBX::attributeWithDefault(m, "offset", offset_, Point());
}

} // namespace ZMT::CORE
