// Children come before their parents, whose pictures are made of theirs; a picture is written when it has
// gone into that of the parent, and let go. So there are never more than four pictures for each level.

#include "rendertreecreator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <optional>
#include <unordered_map>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "core/texturedtriangles/modelnumber.h"
#include "leafatlas.h"
#include "pagingfilewriter.h"
#include "sourcetextures.h"

namespace ZMT::CORE {

namespace {

using NBX::Image;
using NBX::SO;
using AtlasTree = AtlasTreeGenerator::AtlasTree;
using TextureFormat = TexturedTriangleTree::TextureFormat;
using TriangleID = TriangleContainer::TriangleID;
using Vector = TriangleContainer::Vector;
using VectorArray = NBX::Array<Vector>;
using TriangleIDs = AtlasTreeGenerator::Triangles;

unsigned depthBelow(AtlasTree & tree, const AtlasTree::NodePointer & node) {
    unsigned depth = 0;
    for (unsigned i = 0; tree.hasChildren(node) && i < AtlasTree::s_childrenOfNode; ++i)
        depth = std::max(depth, 1 + depthBelow(tree, tree.child(node, i)));
    return depth;
}

/// Not those of a leaf whose triangles went to a sibling.
bool hasAtlas(const AtlasTree::NodePointer & leaf) {
    return !leaf->content.imageFile.empty() && leaf->content.triangles;
}

/// The triangles of the leaves that have an atlas, children before what lies behind their parent.
std::vector<SO<TriangleIDs>> leavesOf(AtlasTree & tree) {
    std::vector<SO<TriangleIDs>> leaves;
    std::vector<AtlasTree::NodePointer> waiting{tree.root()};
    while (!waiting.empty()) {
        const AtlasTree::NodePointer node = waiting.back();
        waiting.pop_back();
        if (!tree.hasChildren(node) && hasAtlas(node)) leaves.push_back(node->content.triangles);
        for (unsigned i = AtlasTree::s_childrenOfNode; tree.hasChildren(node) && i-- > 0;)
            waiting.push_back(tree.child(node, i));
    }
    return leaves;
}

/// Triangles that become a shape.
class ShapeMesh {
public:
    explicit ShapeMesh(const SO<TriangleContainer> & container) : container_(container) {}

    /// With the coordinates of set 0 as they are now, and others as set 1.
    void add(const TriangleID & id, const std::array<Vector, 3> * secondSet = nullptr) {
        const TriangleContainer::Triangle triangle = container_->triangle(id);
        const std::optional<Vector> model = container_->model(id);
        for (unsigned k = 0; k < 3; ++k) {
            if (model) models_->append(*model);
            vertices_->append(triangle.vertices[k]);
            texCoords_->append(triangle.texCoords[k]);
            colors_->append(container_->color(id, k));
            if (secondSet) secondSet_->append((*secondSet)[k]);
            box_ += triangle.vertices[k];
        }
    }
    /// `swapsSets` makes the other coordinates set 0.
    SO<NBX::MappedVertexAttributeShapeGL> newShape(bool swapsSets) const {
        const SO<NBX::PolygonSet> set(new NBX::PolygonSet(
            NBX::PolygonSet::PT_Triangles, NBX::SO<NBX::PolygonSet::Vertices>(vertices_.get())));
        set->setColorIterator(SO<NBX::PolygonSet::Colors>(colors_.get()));
        set->setTextureIterator(SO<NBX::PolygonSet::Vertices>((swapsSets ? secondSet_ : texCoords_).get()),
                                0);
        if (swapsSets) set->setTextureIterator(SO<NBX::PolygonSet::Vertices>(texCoords_.get()), 1);
        if (models_->size() == vertices_->size())
            set->setTextureIterator(SO<NBX::PolygonSet::Vertices>(models_.get()), ModelNumber::unit);
        return ModelNumber::newMesh(*set);
    }
    const NBX::Bounds & box() const { return box_; }

private:
    SO<TriangleContainer> container_;
    SO<VectorArray> vertices_{new VectorArray()}, texCoords_{new VectorArray()},
        secondSet_{new VectorArray()}, models_{new VectorArray()};
    SO<NBX::Array<NBX::Color>> colors_{new NBX::Array<NBX::Color>()};
    NBX::Bounds box_;
};

/// One call of `RenderTreeCreator::create`.
class RenderTreeRun {
public:
    using AtlasNode = AtlasTree::NodePointer;
    using Node = RenderTree::NodePointer;

    RenderTreeRun(TexturedTriangleTree & tree, TextureFormat format, int layer,
                  const std::wstring & pagingFile, const SO<AtlasTree> & atlasTree,
                  const SO<TriangleContainer> & container, const AtlasResolution & resolution,
                  const SO<NBX::GLCanvas> & canvas)
        : tree_(tree), format_(format), layer_(std::size_t(layer)), pagingFile_(pagingFile),
          atlasTree_(atlasTree), container_(container), resolution_(resolution),
          hasAlpha_(!canvas || canvas->hasProperty(NBX::GLCanvas::ALPHA_BUFFER)), file_(pagingFile, format),
          textures_(*container), maxDepth_(depthBelow(*atlasTree, atlasTree->root())),
          hasTree_(layer > 0 && tree.getRenderTree()),
          progress_("building textures", atlasTree->numberOfNodes()),
          atlases_(leavesOf(*atlasTree), container, textures_, resolution, canvas.get(),
                   [this] { return goesOn(); }) {}

    SO<RenderTree> run() {
        renderTree_ = hasTree_ ? tree_.getRenderTree() : newTree();
        const Node root = renderTree_->root();
        const SO<Image> picture = make(atlasTree_->root(), root, 0);
        if (isCanceled_) return nullptr;
        const SO<TTTMemoryController::StreamTexture> texture(
            new TTTMemoryController::StreamTexture(picture ? picture : blank(), format_));
        file_.commit(fill_);
        progress_.finish();
        applyToNodes();
        const double scale = root->content.textureScaleFactor;
        texture->setMatrix(NBX::Matrix4x4Base<double>::scaling({scale, scale, 1.0}));
        grown(root->content.textures)[layer_] = NBX::SO<NBX::SharedObj>(texture.get());
        if (TexturedTriangleTree::getVerbose()) std::cout << '\n' << std::flush;
        tree_.registerTextureLayer(int(layer_), pagingFile_, NBX::SO<NBX::SharedObj>(texture.get()), format_);
        return renderTree_;
    }

private:
    SO<RenderTree> newTree() const {
        const AtlasTree & atlases = *atlasTree_;
        return new RenderTree({atlases.minimum(0), atlases.minimum(1)},
                              {atlases.maximum(0), atlases.maximum(1)}, {atlases.axis(0), atlases.axis(1)});
    }
    SO<Image> blank() const {
        return new NBX::MemoryImage(resolution_.atlasSize, resolution_.atlasSize,
                                    hasAlpha_ ? NBX::LS_RGBA : NBX::LS_RGB);
    }
    template <class T> std::vector<T> & grown(std::vector<T> & ofLayers) const {
        ofLayers.resize(std::max(ofLayers.size(), layer_ + 1));
        return ofLayers;
    }

    /// What a layer changes in a node of the tree, which may be one that is in use, and stays as it was until
    /// the layer is complete.
    struct Change {
        double minDistance = 0.0;
        PagingFileWriter::Block block;
        bool hasBlock = false;
    };
    void applyToNodes() {
        for (const auto & [node, change] : changes_) {
            // All layers are sharp where any of them is to be.
            node->minDistance = std::max(node->minDistance, change.minDistance);
            if (!change.hasBlock) continue;
            grown(node->blockPositions)[layer_] = change.block.position;
            grown(node->blockSizes)[layer_] = change.block.size;
        }
    }

    /// The picture of a node; null where it has none, and after a cancel.
    SO<Image> make(const AtlasNode & atlasNode, const Node & node, unsigned depth) {
        tell(atlasNode);
        if (!hasTree_) node->content.textureScaleFactor = std::ldexp(1.0, -int(maxDepth_ - depth));
        if (!atlasTree_->hasChildren(atlasNode)) {
            const SO<Image> picture = makeLeaf(atlasNode, node->content, depth);
            advance();
            return picture;
        }
        if (!hasTree_) renderTree_->createChildren(node);
        return makeInner(atlasNode, node, depth);
    }

    SO<Image> makeInner(const AtlasNode & atlasNode, const Node & node, unsigned depth) {
        std::array<SO<Image>, AtlasTree::s_childrenOfNode> pictures;
        for (unsigned i = 0; i < pictures.size() && !isCanceled_; ++i)
            pictures[i] = make(atlasTree_->child(atlasNode, i), renderTree_->child(node, i), depth + 1);
        if (isCanceled_) return nullptr;
        const SO<Image> picture = AtlasTreeGenerator::combineImages(pictures, resolution_.atlasSize);
        const std::vector<PagingFileWriter::Block> blocks =
            file_.writeAtlases({pictures.begin(), pictures.end()});
        double minDistance = 0.0;
        for (unsigned i = 0; i < pictures.size(); ++i) {
            RenderNode & child = renderTree_->child(node, i)->content;
            Change & change = changes_[&child];
            change.block = blocks[i];
            change.hasBlock = true;
            minDistance = std::max(minDistance, 2.0 * change.minDistance);
            if (!hasTree_) node->content.bounds += child.bounds;
        }
        changes_[&node->content].minDistance = minDistance;
        advance();
        return picture;
    }

    SO<Image> makeLeaf(const AtlasNode & atlasNode, RenderNode & content, unsigned depth) {
        changes_[&content].minDistance = resolution_.distance;
        if (!hasAtlas(atlasNode)) return nullptr;
        const TriangleIDs & triangles = *atlasNode->content.triangles;
        std::vector<std::array<Vector, 3>> sourceCoordinates;
        sourceCoordinates.reserve(triangles.size());
        for (const TriangleID & id : triangles)
            sourceCoordinates.push_back(container_->triangle(id).texCoords);
        double used = 0.0;
        SO<Image> picture = atlases_.next(&used);
        fill_.used += used;
        fill_.all += double(resolution_.atlasSize) * resolution_.atlasSize;
        if (hasTree_) return withoutAlphaUnlessKept(picture);
        moveToTree(triangles, atlasTree_->path(atlasNode), depth);
        takeGeometry(triangles, sourceCoordinates, content);
        return withoutAlphaUnlessKept(picture);
    }

    /// From the coordinates of an atlas to those of the picture that all atlases of the deepest level make.
    void moveToTree(const TriangleIDs & triangles, const std::vector<unsigned> & digits, unsigned depth) {
        Vector offset;
        for (std::size_t i = 0; i < digits.size(); ++i) {
            const double half = std::ldexp(1.0, int(maxDepth_ - 1 - i));
            offset += Vector((digits[i] & 1) * half, (digits[i] >> 1) * half, 0.0);
        }
        const double factor = std::ldexp(1.0, int(maxDepth_ - depth));
        for (const TriangleID & id : triangles) {
            std::array<Vector, 3> texCoords = container_->triangle(id).texCoords;
            for (Vector & coordinates : texCoords)
                coordinates = coordinates * factor + offset;
            container_->setTexCoords(id, texCoords);
        }
    }

    void takeGeometry(const TriangleIDs & triangles,
                      const std::vector<std::array<Vector, 3>> & sourceCoordinates, RenderNode & content) {
        ShapeMesh all(container_);
        std::vector<unsigned> numbers;
        std::vector<ShapeMesh> parts;
        for (unsigned i = 0; i < triangles.size(); ++i) {
            const TriangleID id = triangles.get(i);
            all.add(id);
            const int texture = textures_.numberOf(unsigned(id.mesh));
            if (texture < 0) continue;
            const auto number = unsigned(texture);
            const auto known = std::find(numbers.begin(), numbers.end(), number);
            const auto part = std::size_t(known - numbers.begin());
            if (known == numbers.end()) {
                numbers.push_back(number);
                parts.emplace_back(container_);
            }
            parts[part].add(id, &sourceCoordinates[i]);
        }
        content.bounds = all.box();
        content.triangles = all.newShape(false);
        for (const ShapeMesh & part : parts)
            content.originalGeometry.push_back(part.newShape(true));
        content.originalTextures = new RenderNode::Textures();
        if (layer_ == 0) writeSources(numbers, content);
    }

    void writeSources(const std::vector<unsigned> & numbers, RenderNode & content) {
        if (!file_.writeSources(numbers, textures_, [this] { return goesOn(); })) return;
        for (const unsigned number : numbers) {
            const PagingFileWriter::Block & block = *file_.source(textures_.pictureOf(number));
            content.originalTexturesBlockPositions.push_back(block.position);
            content.originalTexturesBlockSizes.push_back(block.size);
            content.originalTextures->append(nullptr);
            content.originalTexturesWrapModes.push_back(textures_.wrapper(number).getWrapS());
            content.originalTexturesWrapModes.push_back(textures_.wrapper(number).getWrapT());
        }
        std::vector<int> & modes = content.originalTexturesWrapModes;
        const auto isUsual = [](int mode) { return mode == NBX::TextureGL::WM_Repeat; };
        if (std::all_of(modes.begin(), modes.end(), isUsual)) modes.clear();
        content.textureStates.assign(numbers.size(), false);
    }

    SO<Image> withoutAlphaUnlessKept(const SO<Image> & picture) const {
        if (!picture || hasAlpha_ || !picture->hasLayers(NBX::LS_Alpha)) return picture;
        const SO<Image> colors = blank();
        colors->copy(picture.get());
        return colors;
    }

    void tell(const AtlasNode & node) {
        if (!TexturedTriangleTree::getVerbose()) return;
        std::cout << "\r\t\tNode: ";
        for (const unsigned digit : atlasTree_->path(node))
            std::cout << digit;
        std::cout << "                   " << std::flush;
    }
    bool goesOn() {
        isCanceled_ = isCanceled_ || !progress_.update(nodesDone_);
        return !isCanceled_;
    }
    void advance() {
        ++nodesDone_;
        goesOn();
    }

    TexturedTriangleTree & tree_;
    const TextureFormat format_;
    const std::size_t layer_;
    const std::wstring pagingFile_;
    const SO<AtlasTree> atlasTree_;
    const SO<TriangleContainer> container_;
    const AtlasResolution resolution_;
    const bool hasAlpha_; ///< the atlases keep it
    PagingFileWriter file_;
    HeldPagingFiles::Fill fill_;
    SourceTextures textures_;
    const unsigned maxDepth_;
    const bool hasTree_; ///< with the geometry
    NBX::Progress progress_;
    SO<RenderTree> renderTree_;
    std::unordered_map<RenderNode *, Change> changes_;
    double nodesDone_ = 0.0;
    bool isCanceled_ = false;
    LeafAtlases atlases_; ///< of the leaves that have one, in the order in which they are made
};

/// Whether the atlases of a further layer have nodes to stand in.
bool haveSameShape(AtlasTree & atlases, const AtlasTree::NodePointer & atlasNode, RenderTree & tree,
                   const RenderTree::NodePointer & node) {
    if (atlases.hasChildren(atlasNode) != tree.hasChildren(node)) return false;
    for (unsigned i = 0; atlases.hasChildren(atlasNode) && i < AtlasTree::s_childrenOfNode; ++i)
        if (!haveSameShape(atlases, atlases.child(atlasNode, i), tree, tree.child(node, i))) return false;
    return true;
}

bool isFormat(int format) {
    return format >= TexturedTriangleTree::TextureFormatRGBA8 &&
           format <= TexturedTriangleTree::TextureFormatJPEG;
}

} // namespace

SO<RenderTree> RenderTreeCreator::create(TexturedTriangleTree * tree, TextureFormat format, int layer,
                                         const std::wstring & pagingFile, SO<AtlasTree> atlasTree,
                                         SO<TriangleContainer> container, double distance, double fieldOfView,
                                         int screenSize, double quality, int atlasSize,
                                         SO<NBX::GLCanvas> canvas) {
    const bool isUsable = tree && atlasTree && container && layer >= 0 && isFormat(format) && atlasSize > 0;
    NBX_CHECK(isUsable, L"no tree can be made of that");
    if (!isUsable) return nullptr;
    const SO<RenderTree> before = layer > 0 ? tree->getRenderTree() : nullptr;
    const bool fits = !before || haveSameShape(*atlasTree, atlasTree->root(), *before, before->root());
    NBX_CHECK(fits, L"the tree was made of other triangles");
    if (!fits) return nullptr;
    RenderTreeRun run(*tree, format, layer, pagingFile, atlasTree, container,
                      {distance, fieldOfView, screenSize, quality, atlasSize}, canvas);
    return run.run();
}

} // namespace ZMT::CORE
