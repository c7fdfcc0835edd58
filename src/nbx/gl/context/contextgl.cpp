// One display for the process, and one root context on it, with which all contexts share their objects. Names
// of dropped objects wait in a list, the shared ones in one and those of a context in its own, and are freed
// when a context that knows them becomes current: objects are dropped on any thread, and outside of any
// context.

#include <nbx/gl/context/contextgl.h>

#include <mutex>
#include <utility>
#include <vector>

#include <EGL/egl.h>
#include <GL/glew.h>

#include "eglplatformgl.h"
#include "namekindsgl.h"

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(ContextGL, SharedObj)

namespace {

thread_local ContextGL * currentContext = nullptr;

/// Names that nobody holds any more, waiting for a context.
struct DroppedNames {
    struct Entry {
        NameGL::Kind kind;
        unsigned name;
    };

    void add(NameGL::Kind kind, unsigned name) {
        const std::lock_guard<std::mutex> lock(mutex);
        entries.push_back({kind, name});
    }
    std::vector<Entry> take() {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(entries, {});
    }

    std::mutex mutex;
    std::vector<Entry> entries; ///< guarded by `mutex`
};

/// Outlives every static object that may hold a name.
DroppedNames & sharedNames() {
    static auto * names = new DroppedNames;
    return *names;
}

/// Loads the entry points beyond 1.1 for the process. The loader says that there is no GLX display when it
/// is used under EGL; it has loaded everything by then.
bool loadEntryPoints() {
    static bool loaded = false;
    if (loaded) return true;
    const GLenum result = glewInit();
    loaded = result == GLEW_OK || result == GLEW_ERROR_NO_GLX_DISPLAY;
    if (!loaded) NBX_FAILURE(L"cannot load the OpenGL entry points");
    return loaded;
}

} // namespace

struct ContextGL::Impl {
    EGLConfig config = nullptr;
    EGLContext context = EGL_NO_CONTEXT;
    EGLSurface surface = EGL_NO_SURFACE;
    Format format;
    bool everCurrent = false;
    DroppedNames dropped;

    static EGLDisplay display() { return EglPlatformGL::instance().display(); }

    EGLSurface newSurface(unsigned width, unsigned height) const {
        const EGLint size[] = {EGL_WIDTH, EGLint(width), EGL_HEIGHT, EGLint(height), EGL_NONE};
        const unsigned limit = maxPixelBufferSize();
        EGLSurface surface = EGL_NO_SURFACE;
        if (width <= limit && height <= limit) surface = eglCreatePbufferSurface(display(), config, size);
        if (surface == EGL_NO_SURFACE)
            NBX_FAILURE(L"cannot make a pixel buffer of " << width << L" by " << height << L" pixels");
        return surface;
    }
    void dropSurface() {
        if (surface != EGL_NO_SURFACE) eglDestroySurface(display(), surface);
        surface = EGL_NO_SURFACE;
    }
    void readFormat() {
        format.alpha = EglPlatformGL::attributeOf(display(), config, EGL_ALPHA_SIZE) > 0;
        format.depth = EglPlatformGL::attributeOf(display(), config, EGL_DEPTH_SIZE) > 0;
        format.stencil = EglPlatformGL::attributeOf(display(), config, EGL_STENCIL_SIZE) > 0;
        format.floats = EglPlatformGL::hasFloats(display(), config);
    }
};

ContextGL::ContextGL() : impl_(std::make_unique<Impl>()) {}

ContextGL::~ContextGL() {
    destroy();
}

bool ContextGL::hasFrameBufferObjects() {
    return GLEW_EXT_framebuffer_object != GL_FALSE;
}

bool ContextGL::isSupported() {
    return EglPlatformGL::instance().isUsable();
}

unsigned ContextGL::maxPixelBufferSize() {
    return EglPlatformGL::instance().maxPixelBufferSize();
}

bool ContextGL::hasFloatPixelBuffers() {
    Format format;
    format.floats = true;
    return isSupported() && EglPlatformGL::chooseConfig(Impl::display(), format) != nullptr;
}

ContextGL * ContextGL::current() {
    return currentContext;
}

bool ContextGL::shareWithCurrent() {
    const EglPlatformGL::Group group{eglGetCurrentDisplay(), eglGetCurrentContext()};
    if (group.context == EGL_NO_CONTEXT) return false;
    const EglPlatformGL & platform = EglPlatformGL::instanceIn(group);
    return platform.isUsable() && platform.display() == group.display;
}

bool ContextGL::create(unsigned width, unsigned height, const Format & format) {
    NBX_CHECK(!isCreated(), L"the context exists already");
    if (isCreated()) return false;
    if (!isSupported()) {
        NBX_FAILURE(L"no OpenGL without a window on this system");
        return false;
    }
    eglBindAPI(EGL_OPENGL_API);
    impl_->config = EglPlatformGL::chooseConfig(Impl::display(), format);
    if (impl_->config)
        impl_->context =
            eglCreateContext(Impl::display(), impl_->config, EglPlatformGL::instance().root(), nullptr);
    if (impl_->context == EGL_NO_CONTEXT) {
        NBX_FAILURE(L"cannot make an OpenGL context");
        return false;
    }
    impl_->readFormat();
    impl_->surface = impl_->newSurface(width, height);
    if (impl_->surface == EGL_NO_SURFACE) destroy();
    return isCreated();
}

void ContextGL::destroy() {
    if (!isCreated()) return;
    if (isCurrent()) release();
    impl_->dropSurface();
    eglDestroyContext(Impl::display(), impl_->context);
    impl_->context = EGL_NO_CONTEXT;
    impl_->everCurrent = false;
    impl_->dropped.take();
}

bool ContextGL::isCreated() const {
    return impl_->context != EGL_NO_CONTEXT;
}

bool ContextGL::makeCurrent() {
    if (!isCreated()) return false;
    eglBindAPI(EGL_OPENGL_API);
    if (currentContext != this &&
        !eglMakeCurrent(Impl::display(), impl_->surface, impl_->surface, impl_->context)) {
        NBX_FAILURE(L"cannot make the OpenGL context current");
        return false;
    }
    if (!enter()) return false;
    if (!impl_->everCurrent) {
        // A pixel buffer has a back buffer alone, but is read from the front at the start.
        glReadBuffer(GL_BACK);
        impl_->everCurrent = true;
    }
    return true;
}

bool ContextGL::enter() {
    currentContext = this;
    if (!loadEntryPoints()) return false;
    freeDroppedNames();
    return true;
}

void ContextGL::release() {
    if (currentContext != this) return;
    eglMakeCurrent(Impl::display(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    leave();
}

void ContextGL::leave() {
    if (currentContext == this) currentContext = nullptr;
}

bool ContextGL::resize(unsigned width, unsigned height) {
    if (!isCreated()) return false;
    const EGLSurface surface = impl_->newSurface(width, height);
    if (surface == EGL_NO_SURFACE) return false;
    const bool current = isCurrent();
    release();
    impl_->dropSurface();
    impl_->surface = surface;
    return !current || makeCurrent();
}

const ContextGL::Format & ContextGL::format() const {
    return impl_->format;
}

void ContextGL::dropShared(NameGL::Kind kind, unsigned name) {
    if (currentContext)
        freeNameGL(kind, name);
    else
        sharedNames().add(kind, name);
}

void ContextGL::dropOwn(NameGL::Kind kind, unsigned name) {
    if (!isCreated()) return;
    if (isCurrent())
        freeNameGL(kind, name);
    else
        impl_->dropped.add(kind, name);
}

void ContextGL::freeDroppedNames() {
    for (const DroppedNames::Entry & entry : sharedNames().take())
        freeNameGL(entry.kind, entry.name);
    for (const DroppedNames::Entry & entry : impl_->dropped.take())
        freeNameGL(entry.kind, entry.name);
}

} // namespace NBX
