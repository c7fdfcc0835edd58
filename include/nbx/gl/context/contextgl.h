#pragma once

#include <memory>

#include <nbx/gl/context/namegl.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// One OpenGL compatibility context without a window. Its default frame buffer is a pixel buffer.
///
/// All contexts of the process share buffers, textures, display lists and programs. Frame buffer objects
/// and queries belong to the context they were made in.
///
/// A subclass may stand for a context that a window system makes and makes current; see `enter`. It takes
/// part in the sharing after `shareWithCurrent`.
///
/// A context is current on at most one thread. `create`, `makeCurrent` and `resize` report a failure of the
/// platform at level 2 and give false.
class ContextGL : public SharedObj {
    NBX_CLASS(ContextGL, SharedObj)
public:
    /// What the pixel buffer holds besides red, green and blue.
    struct Format {
        bool alpha = true;   ///< as many bits as each of the colours
        bool depth = true;   ///< 24 bits
        bool stencil = true; ///< 8 bits
        bool floats = false; ///< colours are floats of 16 bits, else integers of 8
    };

    /// Nothing is made yet; see `create`.
    ContextGL();
    ~ContextGL() override;

    /// True when this process can make contexts.
    static bool isSupported();
    /// The largest side of a pixel buffer.
    static unsigned maxPixelBufferSize();
    /// Whether pixel buffers can have floats as colours.
    static bool hasFloatPixelBuffers();
    /// Whether the context that is current can draw elsewhere than on its own buffers.
    static bool hasFrameBufferObjects();
    /// The context that is current on the calling thread, or null.
    static ContextGL * current();
    /// Lets the contexts of the process share with the EGL context of a window system that is current on this
    /// thread, and with those that this one shares with. To be called before any context is made. False
    /// without one, and when contexts on another display were made before.
    static bool shareWithCurrent();

    /// Makes the context and its pixel buffer of `width` by `height` pixels. It is not made current.
    bool create(unsigned width, unsigned height, const Format & format);
    /// Frees the context. Names that only this context knew are gone with it. Does nothing without one.
    virtual void destroy();
    virtual bool isCreated() const;

    /// Makes the context current on this thread, and frees the names that were dropped meanwhile.
    virtual bool makeCurrent();
    /// Leaves this thread without a context if this one is current on it.
    virtual void release();
    bool isCurrent() const { return current() == this; }

    /// Gives the context a pixel buffer of another size, with undefined content.
    virtual bool resize(unsigned width, unsigned height);
    /// What the pixel buffer really has; it may be more than was asked for in depth and stencil.
    const Format & format() const;

protected:
    /// Notes that this context is current now, and frees the names that were dropped meanwhile. `makeCurrent`
    /// of a subclass calls it when the window system has made its context current, and `release` calls
    /// `leave`.
    bool enter();
    void leave();

private:
    friend class NameGL;
    struct Impl;

    static void dropShared(NameGL::Kind kind, unsigned name);
    void dropOwn(NameGL::Kind kind, unsigned name);
    void freeDroppedNames();

    std::unique_ptr<Impl> impl_;
};

} // namespace NBX
