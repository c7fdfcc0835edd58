#pragma once

#include <EGL/egl.h>

#include <nbx/gl/context/contextgl.h>

namespace NBX {

/// The display of the process, and the context that keeps the shared objects while no other exists. The first
/// call from whatever thread makes it.
class EglPlatformGL {
public:
    /// What contexts of a window system share with.
    struct Group {
        EGLDisplay display = EGL_NO_DISPLAY;
        EGLContext context = EGL_NO_CONTEXT;
    };

    static EglPlatformGL & instance() { return instanceIn({}); }
    /// The platform is made by the first call; `group` has no meaning later.
    static EglPlatformGL & instanceIn(const Group & group);

    bool isUsable() const { return root_ != EGL_NO_CONTEXT; }
    EGLDisplay display() const { return display_; }
    EGLContext root() const { return root_; }
    unsigned maxPixelBufferSize() const { return maxPixelBufferSize_; }

    static EGLint attributeOf(EGLDisplay display, EGLConfig config, EGLint attribute);
    static bool hasFloats(EGLDisplay display, EGLConfig config);
    /// The configuration without multisampling that has what `format` asks for; without alpha if it asks for
    /// none, where there is such a one. Null where there is none at all.
    static EGLConfig chooseConfig(EGLDisplay display, const ContextGL::Format & format);

private:
    explicit EglPlatformGL(const Group & group);

    EGLDisplay display_ = EGL_NO_DISPLAY;
    EGLContext root_ = EGL_NO_CONTEXT;
    unsigned maxPixelBufferSize_ = 0;
};

} // namespace NBX
