#pragma once

#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/object/so.h>

namespace NBX {

class EngineGL;
class FrameBufferObjectGL;

/// A texture that is drawn into through a `FrameBufferObjectGL`, of the kind that a type and a format of its
/// texels ask for. It belongs to the thread of the canvases.
class RenderTextureGL : public SharedObj {
    NBX_CLASS(RenderTextureGL, SharedObj)
public:
    /// `type` is GL_UNSIGNED_BYTE, GL_UNSIGNED_SHORT, GL_HALF_FLOAT or GL_FLOAT, with as much precision in
    /// the texture; `format` GL_RGBA, GL_RGB, GL_RG, GL_RED or, not of bytes or halves, GL_DEPTH_COMPONENT.
    /// Other ones, a null engine and an empty size are reported; there is no texture then. Floats and depths
    /// are not mixed with their neighbours where they are sampled, since some of these may stand for no data;
    /// other textures are sampled linearly, with `mipmaps` through these.
    RenderTextureGL(EngineGL * engine, unsigned width, unsigned height, unsigned type = 0x1401,
                    unsigned format = 0x1908, bool mipmaps = false);

    unsigned type() const { return type_; }
    unsigned format() const { return format_; }
    /// Null when it could not be made. Whoever drew into it calls its `contentChanged`.
    const SO<Texture2DGL> & texture() const { return texture_; }
    /// Lets `target`, which has this size and keeps the texture, draw into it: as colour `index`, or as
    /// depth. Reported for null.
    void attachTo(FrameBufferObjectGL * target, unsigned index = 0) const;

private:
    unsigned type_, format_;
    SO<Texture2DGL> texture_;
};

} // namespace NBX
