// One picture of a tree: the walk chooses nodes, they are drawn in its order, and then what they would like
// is reported. Buffers of a batch stay bound as long as its nodes follow each other. State of OpenGL that
// textures change is put back once, at the end.

#include "texturedtriangletreepaintergl.h"

#include <cmath>
#include <optional>

#include <GL/glew.h>

#include <nbx/engine/canvas.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "atlasstagesgl.h"
#include "treeviewsgl.h"
#include "treewalkgl.h"
#include "visibilitymanagergl.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(TexturedTriangleTreePainterGL, NBX::ShapePainter)

namespace {

using NBX::SO;
using Node = RenderTree::NodePointer;
using Mesh = NBX::MappedVertexAttributeShapeGL;
using Binding = NBX::MappedVertexAttributeBindingGL;
using Statistics = TexturedTriangleTreePainterGL::Statistics;

Statistics & tally() {
    static Statistics statistics;
    return statistics;
}

/// Which set of a mesh's coordinates are those in the atlas of the whole tree: of `triangles`, and of
/// `originalGeometry`, whose first set is that in its source texture.
constexpr unsigned s_treeCoordinates = 0, s_treeCoordinatesOfOriginals = 1;

/// Puts textures, their matrices' mode, and what enables them back at the end.
class TextureStateScope {
public:
    TextureStateScope() { glPushAttrib(GL_TEXTURE_BIT | GL_ENABLE_BIT | GL_TRANSFORM_BIT); }
    ~TextureStateScope() { glPopAttrib(); }
    TextureStateScope(const TextureStateScope &) = delete;
    TextureStateScope & operator=(const TextureStateScope &) = delete;
};

/// Draws the nodes that a walk has chosen.
class TreeDrawing {
public:
    TreeDrawing(NBX::EngineGL * engine, const SO<TexturedTriangleTree> & tree, const TreeWalkGL & walk,
                const SO<VisibilityManager> & manager)
        : engine_(engine), nodes_(*tree->getRenderTree()), walk_(walk), manager_(manager) {}

    void draw(const TreeWalkGL::Visit & visit) {
        if (visit.how == TreeWalkGL::How::Whole) drawWhole(visit);
        if (visit.how == TreeWalkGL::How::Original) drawOriginals(visit);
    }

private:
    BlendedAtlasGL atlasOf(const Node & node, int layer, unsigned coordinates) const;
    static void blendOneAfterTheOther(BlendedAtlasGL & first, BlendedAtlasGL & second);
    void drawWhole(const TreeWalkGL::Visit & visit);
    void drawSubtree(const Node & node, const TreeWalkGL::Data * batch);
    bool drawRange(const RenderNode & node, const TreeWalkGL::Data * batch);
    void drawOriginals(const TreeWalkGL::Visit & visit);
    void drawMesh(const Mesh * mesh);
    void bind(const TreeWalkGL::Data & data);
    void release();

    NBX::EngineGL * engine_;
    RenderTree & nodes_;
    const TreeWalkGL & walk_;
    SO<VisibilityManager> manager_;
    std::optional<Binding> binding_;
    const TreeWalkGL::Data * bound_ = nullptr;
    std::vector<unsigned> sets_,
        boundSets_; ///< of coordinates by unit: those wanted, and those of the binding
};

double scaleOf(const RenderNode & node) {
    return node.textureScaleFactor > 0.0 ? node.textureScaleFactor : 1.0;
}

/// The nearest atlas on the way to the root, and the next one above as far as the former is blended with it.
BlendedAtlasGL TreeDrawing::atlasOf(const Node & node, int layer, unsigned coordinates) const {
    BlendedAtlasGL atlas;
    if (!walk_.isEnabled(layer)) return atlas;
    for (Node at = node; at; at = nodes_.parent(at)) {
        const RenderNode & content = at->content;
        if (!TreeWalkGL::hasAtlas(content, layer)) continue;
        const AtlasGL found{content.texture(unsigned(layer)), scaleOf(content), coordinates};
        if (atlas.fine) {
            atlas.coarse = found;
            return atlas;
        }
        atlas.fine = found;
        const Node above = nodes_.parent(at);
        if (above) atlas.weight = walk_.weightBelow(above);
        if (atlas.weight >= 1.0) return atlas;
    }
    atlas.weight = 1.0;
    return atlas;
}

/// Only one of two textures can be blended at a time: the first in the first half of the way, the second in
/// the other one.
void TreeDrawing::blendOneAfterTheOther(BlendedAtlasGL & first, BlendedAtlasGL & second) {
    if (!first.fine || !second.fine) return;
    first.weight = std::min(1.0, 2.0 * first.weight);
    second.weight = second.coarse ? std::max(0.0, 2.0 * second.weight - 1.0) : 1.0;
    if (first.weight < 1.0 && second.weight < 1.0) second = {second.coarse, {}, 1.0};
}

void TreeDrawing::bind(const TreeWalkGL::Data & data) {
    if (bound_ == &data && boundSets_ == sets_) return;
    release();
    binding_.emplace(engine_, data, sets_);
    bound_ = &data;
    boundSets_ = sets_;
}

void TreeDrawing::release() {
    binding_.reset();
    bound_ = nullptr;
}

void TreeDrawing::drawWhole(const TreeWalkGL::Visit & visit) {
    BlendedAtlasGL first = atlasOf(visit.node, 0, s_treeCoordinates);
    BlendedAtlasGL second = atlasOf(visit.node, 1, s_treeCoordinates);
    blendOneAfterTheOther(first, second);
    const AtlasStagesGL stages(engine_, first, second);
    sets_ = stages.coordinateSets();
    manager_->beginQuery(visibilityKey(visit.node), engine_);
    drawSubtree(visit.node, visit.batch);
    manager_->endQuery(engine_);
    ++tally().nodes;
}

/// Everything at and below a node, in one call where it lies in a batch, else batch by batch, and leaf by
/// leaf where there is none.
void TreeDrawing::drawSubtree(const Node & root, const TreeWalkGL::Data * batch) {
    struct Part {
        Node node;
        const TreeWalkGL::Data * batch;
    };
    std::vector<Part> stack{{root, batch}};
    while (!stack.empty()) {
        const Part part = stack.back();
        stack.pop_back();
        const RenderNode & content = part.node->content;
        if (drawRange(content, part.batch)) continue;
        drawMesh(content.triangles.get());
        for (unsigned i = RenderTree::s_childrenOfNode; nodes_.hasChildren(part.node) && i-- > 0;) {
            const Node child = nodes_.child(part.node, i);
            stack.push_back({child, child->content.vertexData.get()});
        }
    }
}

/// False where the node has no range in the batch.
bool TreeDrawing::drawRange(const RenderNode & node, const TreeWalkGL::Data * batch) {
    if (!batch || node.vertexRangeStart < 0 || node.numVertices < 0) return false;
    const unsigned vertices = batch->vertices();
    const auto start = unsigned(node.vertexRangeStart), count = unsigned(node.numVertices);
    if (start > vertices || count > vertices - start || !batch->isDrawable()) return false;
    if (count == 0) return true;
    bind(*batch);
    binding_->draw(GL_TRIANGLES, node.vertexRangeStart, node.numVertices);
    ++tally().drawCalls;
    tally().vertices += count;
    return true;
}

void TreeDrawing::drawMesh(const Mesh * mesh) {
    if (!mesh || !mesh->isDrawable() || mesh->data()->vertices() == 0) return;
    bind(*mesh->data());
    if (mesh->indices())
        binding_->drawIndexed(unsigned(mesh->primitiveType()), *mesh->indices());
    else
        binding_->draw(unsigned(mesh->primitiveType()), 0, int(mesh->data()->vertices()));
    ++tally().drawCalls;
    tally().vertices += mesh->data()->vertices();
}

bool hasTreeCoordinates(const Mesh & mesh) {
    return mesh.data() && mesh.data()->buffer(Mesh::Data::TEXCOORD_ID(s_treeCoordinatesOfOriginals));
}

void TreeDrawing::drawOriginals(const TreeWalkGL::Visit & visit) {
    const RenderNode & content = visit.node->content;
    const BlendedAtlasGL atlas = atlasOf(visit.node, 0, s_treeCoordinatesOfOriginals);
    const BlendedAtlasGL second = atlasOf(visit.node, 1, s_treeCoordinatesOfOriginals);
    const double weight = walk_.weightOfOriginals(visit);
    for (unsigned i = 0; i < content.originalGeometry.size(); ++i) {
        const Mesh * mesh = content.originalGeometry[i].get();
        if (!mesh) continue;
        const bool canMix = hasTreeCoordinates(*mesh);
        // On unit 0 in luminance as well: source textures belong to the first layer, whatever its format, and
        // unit 1 is the second layer's, which holds for them too.
        const auto [wrapS, wrapT] = content.originalTextureWrap(i);
        BlendedAtlasGL first{{content.originalTextures->get(i), 1.0, 0, wrapS, wrapT}, {}, 1.0};
        if (canMix && atlas.fine && weight < 1.0) first = {first.fine, atlas.fine, weight};
        const AtlasStagesGL stages(engine_, first, canMix ? second : BlendedAtlasGL());
        sets_ = stages.coordinateSets();
        manager_->beginQuery(visibilityKey(visit.node, i), engine_);
        drawMesh(mesh);
        manager_->endQuery(engine_);
    }
    ++tally().originals;
}

/// What one picture of a tree would like, told to the controller.
class TreeWishes {
public:
    TreeWishes(const SO<TexturedTriangleTree> & tree, const TreeWalkGL & walk,
               const SO<TTTMemoryController> & controller, const SO<VisibilityManager> & manager)
        : tree_(tree), nodes_(*tree->getRenderTree()), walk_(walk), controller_(controller),
          manager_(manager) {}

    /// All of it is urgent, what finer ones replace as well: without its atlas they would not be drawn.
    void report(const TreeWalkGL::Visit & visit) const {
        const bool isDrawn = visit.how == TreeWalkGL::How::Whole;
        reportNode(visit.node, visit.distance2, false);
        if (visit.wantsOriginals && visit.node->content.originalTextures->size() > 0) {
            if (isDrawn) estimateOriginals(visit.node);
            reportNode(visit.node, visit.distance2, true);
        }
        if (visit.wantsChildren) reportChildren(visit);
    }

private:
    void reportNode(const Node & node, double distance2, bool original) const {
        controller_->reportNeededNode(tree_, node, std::sqrt(distance2), original, true, manager_);
    }
    /// While the leaf is drawn whole nobody counts them apart.
    void estimateOriginals(const Node & leaf) const {
        const unsigned seen = manager_->fragmentCount(visibilityKey(leaf));
        const unsigned count = leaf->content.originalTextures->size();
        for (unsigned i = 0; i < count; ++i)
            manager_->estimate(visibilityKey(leaf, i), seen / count);
    }
    /// They are drawn together, or none of them: those that are out of view are wanted with the others, as
    /// long as the node does not suffice. While they are not drawn nobody counts them.
    void reportChildren(const TreeWalkGL::Visit & visit) const {
        const bool isDrawn = visit.how == TreeWalkGL::How::Whole;
        const unsigned seen = manager_->fragmentCount(visibilityKey(visit.node));
        for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i) {
            const Node child = nodes_.child(visit.node, i);
            if (!child->content.bounds.isDefined() || walk_.isBeyondLimit(child)) continue;
            if (isDrawn) manager_->estimate(visibilityKey(child), seen / RenderTree::s_childrenOfNode);
            reportNode(child, walk_.distance2(child), false);
        }
    }

    SO<TexturedTriangleTree> tree_;
    RenderTree & nodes_;
    const TreeWalkGL & walk_;
    SO<TTTMemoryController> controller_;
    SO<VisibilityManager> manager_;
};

void paintNodes(NBX::EngineGL * engine, const SO<TexturedTriangleTree> & tree,
                const SO<const NBX::ViewInfo> & view, const SO<TTTMemoryController> & controller,
                const SO<VisibilityManager> & manager) {
    manager->beginFrame();
    const TreeWalkGL walk(*tree, *view);
    if (walk.lacksOriginals() && TreeViewsGL::isDamageNew(tree.get()))
        NBX_REPORT(0, L"ptr->content.originalTextures!=0", L"texture array must not be NULL");
    {
        TreeDrawing drawing(engine, tree, walk, manager);
        for (const TreeWalkGL::Visit & visit : walk.visits())
            drawing.draw(visit);
    }
    manager->update();
    controller->keepTogether(*tree);
    const TreeWishes wishes(tree, walk, controller, manager);
    for (const TreeWalkGL::Visit & visit : walk.visits())
        wishes.report(visit);
}

} // namespace

const Statistics & TexturedTriangleTreePainterGL::statistics() {
    return tally();
}

void TexturedTriangleTreePainterGL::resetStatistics() {
    tally() = {};
}

NBX::ID TexturedTriangleTreePainterGL::target() const {
    return TexturedTriangleTree::ClassNameNBX();
}

bool TexturedTriangleTreePainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    auto * gl = dynamic_cast<NBX::EngineGL *>(engine);
    const SO<TexturedTriangleTree> tree(
        dynamic_cast<TexturedTriangleTree *>(const_cast<NBX::Shape *>(shape)));
    if (!gl || !tree) return false;
    const SO<TTTMemoryController> controller = TTTMemoryController::getInstance();
    const SO<VisibilityManager> manager = TreeViewsGL::managerOf(tree.get(), gl);
    controller->registerTree(tree);
    const SO<const NBX::ViewInfo> view = gl->viewInfo();
    const TextureStateScope textures; // those that go to the card are bound on the way
    if (TreeViewsGL::beginsPicture(gl)) {
        controller->update(gl, view);
        if (controller->redisplayRequired()) NBX::Canvas::postAllForRedisplay(0.0);
    }
    controller->recalculateNodeDistances(tree, view, manager);
    if (const auto & untextured = tree->getUntexturedGeometry()) gl->paint(untextured.get());
    if (!tree->getRenderTree()) return true;
    paintNodes(gl, tree, view, controller, manager);
    return true;
}

NBX_REGISTER_HANDLER_GL(TexturedTriangleTreePainterGL)

} // namespace ZMT::CORE
