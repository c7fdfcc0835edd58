#include "rendertreelayer.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "atlastreegenerator.h"
#include "pagingfilewriter.h"

namespace ZMT::CORE {

namespace {

using NBX::Image;
using NBX::SO;
using StreamTexture = TTTMemoryController::StreamTexture;

/// One call of `RenderTreeLayer::add`.
class LayerRun {
public:
    using Node = RenderTree::NodePointer;

    LayerRun(TexturedTriangleTree & tree, TexturedTriangleTree::TextureFormat format, int layer,
             const std::wstring & pagingFile, const RenderTreeLayer::Draw & draw)
        : tree_(tree), nodes_(*tree.getRenderTree()), format_(format), layer_(std::size_t(layer)),
          pagingFile_(pagingFile), draw_(draw) {
        if (nodes_.hasChildren(nodes_.root())) file_.emplace(pagingFile, format);
    }

    bool run() {
        const Node root = nodes_.root();
        const SO<Image> picture = make(root);
        if (isGivenUp_) return false;
        const int size = tree_.getAtlasSize();
        const SO<Image> whole = picture ? picture : SO<Image>(new NBX::MemoryImage(size, size, NBX::LS_RGB));
        const SO<StreamTexture> texture(new StreamTexture(whole, format_));
        const double scale = root->content.textureScaleFactor;
        texture->setMatrix(NBX::Matrix4x4Base<double>::scaling({scale, scale, 1.0}));
        if (file_) file_->commit();
        for (const auto & [node, block] : blocks_) {
            grown(node->blockPositions)[layer_] = block.position;
            grown(node->blockSizes)[layer_] = block.size;
        }
        grown(root->content.textures)[layer_] = SO<NBX::SharedObj>(texture.get());
        tree_.registerTextureLayer(int(layer_), file_ ? pagingFile_ : tree_.getPagingFile(0),
                                   SO<NBX::SharedObj>(texture.get()), format_);
        return true;
    }

private:
    template <class T> std::vector<T> & grown(std::vector<T> & ofLayers) const {
        ofLayers.resize(std::max(ofLayers.size(), layer_ + 1));
        return ofLayers;
    }

    /// Null where there are no triangles, and when the layer is given up.
    SO<Image> make(const Node & node) {
        if (nodes_.hasChildren(node)) return makeInner(node);
        if (!node->content.triangles || node->content.triangles->triangles() == 0) return nullptr;
        SO<Image> picture = draw_(node->content);
        isGivenUp_ = !picture;
        return picture;
    }
    SO<Image> makeInner(const Node & node) {
        std::array<SO<Image>, RenderTree::s_childrenOfNode> pictures;
        for (unsigned i = 0; i < pictures.size() && !isGivenUp_; ++i)
            pictures[i] = make(nodes_.child(node, i));
        if (isGivenUp_) return nullptr;
        const auto blocks = file_->writeAtlases({pictures.begin(), pictures.end()});
        for (unsigned i = 0; i < pictures.size(); ++i)
            blocks_.emplace_back(&nodes_.child(node, i)->content, blocks[i]);
        return AtlasTreeGenerator::combineImages(pictures, tree_.getAtlasSize());
    }

    TexturedTriangleTree & tree_;
    RenderTree & nodes_;
    const TexturedTriangleTree::TextureFormat format_;
    const std::size_t layer_;
    const std::wstring & pagingFile_;
    const RenderTreeLayer::Draw & draw_;
    std::optional<PagingFileWriter> file_; ///< nothing for a tree of one node
    std::vector<std::pair<RenderNode *, PagingFileWriter::Block>> blocks_;
    bool isGivenUp_ = false;
};

} // namespace

bool RenderTreeLayer::add(TexturedTriangleTree & tree, TexturedTriangleTree::TextureFormat format, int layer,
                          const std::wstring & pagingFile, const Draw & draw) {
    NBX_CHECK(tree.getRenderTree() && layer > 0, L"no tree for a further layer");
    if (!tree.getRenderTree() || layer <= 0) return false;
    return LayerRun(tree, format, layer, pagingFile, draw).run();
}

} // namespace ZMT::CORE
