#pragma once

#include <memory>

#include <nbx/gl/namegl.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// One OpenGL compatibility context without a window. Its default frame buffer is a pixel buffer.
///
/// All contexts of the process share buffers, textures, display lists and programs. Frame buffer objects
/// and queries belong to the context they were made in.
///
/// A context is current on at most one thread. `create`, `makeCurrent` and `resize` report a failure of the
/// platform at level 2 and give false.
class ContextGL : public SharedObj {
    NBX_CLASS(ContextGL, SharedObj)
public:
    /// What the pixel buffer holds besides 8 bits each of red, green and blue.
    struct Format {
        bool alpha = true;   ///< 8 bits
        bool depth = true;   ///< 24 bits
        bool stencil = true; ///< 8 bits
    };

    /// Nothing is made yet; see `create`.
    ContextGL();
    ~ContextGL() override;

    /// True when this process can make contexts.
    static bool isSupported();
    /// The largest side of a pixel buffer.
    static unsigned maxPixelBufferSize();
    /// The context that is current on the calling thread, or null.
    static ContextGL * current();

    /// Makes the context and its pixel buffer of `width` by `height` pixels. It is not made current.
    bool create(unsigned width, unsigned height, const Format & format);
    /// Frees the context. Names that only this context knew are gone with it. Does nothing without one.
    void destroy();
    bool isCreated() const;

    /// Makes the context current on this thread, and frees the names that were dropped meanwhile.
    bool makeCurrent();
    /// Leaves this thread without a context if this one is current on it.
    void release();
    bool isCurrent() const { return current() == this; }

    /// Gives the context a pixel buffer of another size, with undefined content.
    bool resize(unsigned width, unsigned height);
    /// What the pixel buffer really has; it may be more than was asked for in depth and stencil.
    const Format & format() const;

private:
    friend class NameGL;
    struct Impl;

    static void dropShared(NameGL::Kind kind, unsigned name);
    void dropOwn(NameGL::Kind kind, unsigned name);
    void freeDroppedNames();

    std::unique_ptr<Impl> impl_;
};

} // namespace NBX
