#pragma once

#include <nbx/gl/context/namegl.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

class EngineGL;

/// A picture that can be drawn into through a `FrameBufferObjectGL` but not be sampled.
class RenderBufferGL : public SharedObj {
    NBX_CLASS(RenderBufferGL, SharedObj)
public:
    /// `format` is an internal format such as GL_RGBA8 or GL_DEPTH24_STENCIL8. A null engine and a size of 0
    /// or above the driver's limit are reported; the buffer then has no name, as where the driver has no
    /// frame buffer objects. Each pixel has `samples` of them, at most `maxSamples`.
    RenderBufferGL(EngineGL * engine, unsigned width, unsigned height, unsigned format, unsigned samples = 1);

    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    unsigned format() const { return format_; }
    unsigned name() const { return name_.get(); }
    /// The largest side that the driver can make. Needs a current context.
    static unsigned maxSize();
    /// 1 where pixels cannot have several samples. Needs a current context.
    static unsigned maxSamples();

private:
    NameGL name_;
    unsigned width_;
    unsigned height_;
    unsigned format_;
};

} // namespace NBX
