#pragma once

#include <nbx/object/so.h>
#include <zmt/core/terrain/texture/terraintexture.h>

#include "texturepatchrequest.h"

namespace ZMT::CORE {

/// A streaming texture that was opened. Shows, for each patch, the tile that is fine enough, or the finest
/// one above it that is there. Its tree follows the patches of one terrain; patches of others get the finest
/// tile that contains them. Render thread.
class AsyncQuadtreeTerrainTexture_Impl : public TerrainTexture {
    NBX_CLASS(AsyncQuadtreeTerrainTexture_Impl, TerrainTexture)
public:
    using TileRef = StreamingTextureFormat::TileRef;
    using Point = NBX::Vector3Base<double>;

    /// Asks for the root.
    AsyncQuadtreeTerrainTexture_Impl(const TextureStream & stream, const TileRef & root);
    ~AsyncQuadtreeTerrainTexture_Impl() override;

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const Point & eye, double textureError,
                bool inMotion) const override;
    /// Of the root's patch, in geo coordinates. Waits for the root; undefined when it cannot be read.
    NBX::Bounds boundingBox() const override;

    const NBX::SO<TexturePatchRequest> & root() const { return root_; }

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority, const Point & eye,
                                        double textureError, bool inMotion, bool asynchronous,
                                        bool & incomplete) const override;

private:
    struct Search;

    bool ensureRoot(bool force) const;
    NBX::SO<NBX::TextureGL> find(TexturePatchRequest & node, double expectedError, Search & search) const;
    void prefetchChildren(const TexturePatchRequest & node, double error, Search & search) const;

    const NBX::SO<TexturePatchRequest> root_;
    mutable NBX::SO<NBX::TextureGL> rootTexture_; ///< kept, so that there is always something to show
};

} // namespace ZMT::CORE
