// Errors are squared side lengths of a texel on the screen. What a tile that was never read will show is
// expected from its parent: half as large. By the tiles in memory alone, the priority of every other one
// would be 0, and the heights of the terrain would be read first for ever; and a tile that has just come
// would pass for fine enough, whatever is below it.

#include "asyncquadtreeterraintexture_impl.h"

#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

#include "emptystreamingtexturegl.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(AsyncQuadtreeTerrainTexture_Impl, TerrainTexture)

/// What one call of `requestImpl` asks for, and what it has found out.
struct AsyncQuadtreeTerrainTexture_Impl::Search {
    NBX::Bounds box; ///< of the patch, in geo coordinates
    const NBX::ViewInfo & viewInfo;
    const Point & eye;
    double priority;
    double allowedError;
    bool force;
    bool & incomplete;
};

AsyncQuadtreeTerrainTexture_Impl::AsyncQuadtreeTerrainTexture_Impl(const TextureStream & stream,
                                                                   const TileRef & root)
    : TerrainTexture(NBX::TextureGL::FM_Linear, NBX::TextureGL::FM_Linear),
      root_(new TexturePatchRequest(stream, root, 0)) {
    root_->get(AsyncFile::topPriority, false);
    ensureRoot(false);
}

AsyncQuadtreeTerrainTexture_Impl::~AsyncQuadtreeTerrainTexture_Impl() = default;

bool AsyncQuadtreeTerrainTexture_Impl::ensureRoot(bool force) const {
    if (!rootTexture_) rootTexture_ = root_->get(AsyncFile::topPriority, force);
    return bool(rootTexture_);
}

NBX::Bounds AsyncQuadtreeTerrainTexture_Impl::boundingBox() const {
    return ensureRoot(true) ? root_->bounds() : NBX::Bounds();
}

bool AsyncQuadtreeTerrainTexture_Impl::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                              unsigned, unsigned, const Point & eye, double textureError,
                                              bool) const {
    NBX_CHECK(patch, L"no geometry patch");
    if (!patch || !ensureRoot(false)) return false;
    const NBX::Bounds box = GeoTransformation::nbx2geoTf(patch->boundingBox());
    NBX::SO<TexturePatchRequest> node = root_;
    while (node && node->hasChildren() && node->contains(box)) {
        if (node->isFilledBy(box)) return node->error(*viewInfo, eye) > textureError * textureError;
        node = node->childWith(box);
    }
    return false;
}

NBX::SO<NBX::TextureGL>
AsyncQuadtreeTerrainTexture_Impl::requestImpl(const GeometryPatch * patch, NBX::EngineGL *,
                                              const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                                              double priority, const Point & eye, double textureError, bool,
                                              bool asynchronous, bool & incomplete) const {
    NBX_CHECK(patch, L"no geometry patch");
    if (!patch) return EmptyStreamingTextureGL::texture();
    if (!ensureRoot(!asynchronous)) {
        // Nobody else would ask for the picture that has it.
        incomplete = true;
        return EmptyStreamingTextureGL::texture();
    }
    Search search{GeoTransformation::nbx2geoTf(patch->boundingBox()),
                  *viewInfo,
                  eye,
                  priority,
                  textureError * textureError,
                  !asynchronous,
                  incomplete};
    const NBX::SO<NBX::TextureGL> found = find(*root_, root_->lastError(*viewInfo, eye), search);
    return found ? found : rootTexture_;
}

NBX::SO<NBX::TextureGL> AsyncQuadtreeTerrainTexture_Impl::find(TexturePatchRequest & node,
                                                               double expectedError, Search & search) const {
    const NBX::SO<NBX::TextureGL> texture = node.get(search.priority * expectedError, search.force);
    const double error = node.lastError(search.viewInfo, search.eye);
    // Without the image the patch is not split, which it may have to be.
    if (texture && node.hasChildren() && !node.hasImage()) search.incomplete = true;
    if (texture && (error <= search.allowedError || !node.hasChildren())) return texture;
    NBX::SO<TexturePatchRequest> child = node.childWith(search.box);
    if (!child) {
        prefetchChildren(node, error, search);
        // One that came in this call tells for the first time where it lies.
        child = node.childWith(search.box);
        if (!child) {
            // When the patch was asked whether to split, a tile that came later could not tell.
            if (!texture || node.cameInThisFrame()) search.incomplete = true;
            return texture;
        }
    }
    const double known = child->lastError(search.viewInfo, search.eye);
    const NBX::SO<NBX::TextureGL> finer = find(*child, known, search);
    if (finer) return finer;
    search.incomplete = true;
    return texture;
}

/// For when the patch is split, and because children tell where they lie only when they have been read.
void AsyncQuadtreeTerrainTexture_Impl::prefetchChildren(const TexturePatchRequest & node, double error,
                                                        Search & search) const {
    for (const NBX::SO<TexturePatchRequest> & child : node.children())
        if (child && !child->get(search.priority * error / 4.0, search.force)) search.incomplete = true;
}

} // namespace ZMT::CORE
