#pragma once

#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/math/bounds.h>
#include <zmt/core/terrain/texture/vector/vectortexture.h>

namespace NBX {
class EngineGL;
class GLCanvas;
} // namespace NBX

namespace ZMT::CORE {

/// Draws scenes of vector textures into textures, on the canvas of the class. Lives for one call; render
/// thread. Does nothing where no canvas can be made, which is reported.
class VectorTextureRenderer {
public:
    /// `engine` is that of the frame, whose scaling and watcher hold; it may be null.
    explicit VectorTextureRenderer(NBX::EngineGL * engine) : engine_(engine) {}

    /// Draws the texture of a patch and stores it.
    void render(VectorTexture::Patch & patch) const;
    /// Draws what waits, as far as there is room for it.
    void renderQueue() const;
    /// One texture for `fastBBox`; null where that has no area.
    NBX::SO<NBX::Texture2DGL> renderFast(const VectorTexture & fastOwner, const NBX::Bounds & fastBBox) const;

    /// The box with the margin that its texture shows. Heights stay.
    static NBX::Bounds widened(const NBX::Bounds & bbox);
    /// Whether a texture is being drawn.
    static bool isRendering();
    /// Textures drawn so far.
    static unsigned long count();
    static void releaseCanvas();

private:
    static NBX::SO<NBX::Texture2DGL> renderTexture(const VectorTexture & owner, NBX::GLCanvas & canvas,
                                                   const NBX::Bounds & bbox);
    static void renderPatch(VectorTexture::Patch & patch, NBX::GLCanvas & canvas);

    NBX::EngineGL * engine_;
};

} // namespace ZMT::CORE
