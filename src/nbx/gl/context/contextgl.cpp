// One display for the process, and one root context on it, with which all contexts share their objects. Names
// of dropped objects wait in a list, the shared ones in one and those of a context in its own, and are freed
// when a context that knows them becomes current: objects are dropped on any thread, and outside of any
// context.

#include <nbx/gl/context/contextgl.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/glew.h>

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

void freeName(NameGL::Kind kind, unsigned name) {
    switch (kind) {
    case NameGL::NK_Buffer:
        glDeleteBuffers(1, &name);
        break;
    case NameGL::NK_Texture:
        glDeleteTextures(1, &name);
        break;
    case NameGL::NK_DisplayList:
        glDeleteLists(name, 1);
        break;
    case NameGL::NK_RenderBuffer:
        glDeleteRenderbuffersEXT(1, &name);
        break;
    case NameGL::NK_ShaderObject:
        glDeleteObjectARB(name);
        break;
    case NameGL::NK_FrameBuffer:
        glDeleteFramebuffersEXT(1, &name);
        break;
    case NameGL::NK_Query:
        glDeleteQueries(1, &name);
        break;
    }
}

EGLDisplay initialized(EGLDisplay display) {
    if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr)) return EGL_NO_DISPLAY;
    return eglBindAPI(EGL_OPENGL_API) ? display : EGL_NO_DISPLAY;
}

/// The platform without any display server.
EGLDisplay openSurfacelessDisplay() {
    const auto getDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getDisplay) return EGL_NO_DISPLAY;
    return initialized(getDisplay(EGL_PLATFORM_SURFACELESS_MESA, nullptr, nullptr));
}

EGLint attributeOf(EGLDisplay display, EGLConfig config, EGLint attribute) {
    EGLint value = 0;
    eglGetConfigAttrib(display, config, attribute, &value);
    return value;
}

/// The configuration without multisampling that has what `format` asks for; without alpha if it asks for
/// none, where there is such a one.
EGLConfig chooseConfig(EGLDisplay display, const ContextGL::Format & format) {
    const EGLint wanted[] = {EGL_SURFACE_TYPE,
                             EGL_PBUFFER_BIT,
                             EGL_RENDERABLE_TYPE,
                             EGL_OPENGL_BIT,
                             EGL_RED_SIZE,
                             8,
                             EGL_GREEN_SIZE,
                             8,
                             EGL_BLUE_SIZE,
                             8,
                             EGL_ALPHA_SIZE,
                             format.alpha ? 8 : 0,
                             EGL_DEPTH_SIZE,
                             format.depth ? 24 : 0,
                             EGL_STENCIL_SIZE,
                             format.stencil ? 8 : 0,
                             EGL_NONE};
    std::array<EGLConfig, 256> configs;
    EGLint count = 0;
    if (!eglChooseConfig(display, wanted, configs.data(), EGLint(configs.size()), &count)) return nullptr;
    const auto penalty = [&](EGLConfig config) {
        const bool alpha = attributeOf(display, config, EGL_ALPHA_SIZE) > 0;
        const bool wide = attributeOf(display, config, EGL_RED_SIZE) > 8;
        return 4 * (attributeOf(display, config, EGL_SAMPLES) > 0) + 2 * wide + (alpha != format.alpha);
    };
    const auto best = std::min_element(configs.begin(), configs.begin() + count,
                                       [&](EGLConfig a, EGLConfig b) { return penalty(a) < penalty(b); });
    return best == configs.begin() + count ? nullptr : *best;
}

/// What contexts of a window system share with.
struct SharedGroup {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
};

/// The display of the process, and the context that keeps the shared objects while no other exists.
class Platform {
public:
    static Platform & instance() { return instanceIn({}); }
    /// The platform is made by the first call; `group` has no meaning later.
    static Platform & instanceIn(const SharedGroup & group) {
        static auto * platform = new Platform(group);
        return *platform;
    }
    bool isUsable() const { return root_ != EGL_NO_CONTEXT; }
    EGLDisplay display() const { return display_; }
    EGLContext root() const { return root_; }
    unsigned maxPixelBufferSize() const { return maxPixelBufferSize_; }

private:
    explicit Platform(const SharedGroup & group) : display_(group.display) {
        if (display_ == EGL_NO_DISPLAY) display_ = openSurfacelessDisplay();
        if (display_ == EGL_NO_DISPLAY) display_ = initialized(eglGetDisplay(EGL_DEFAULT_DISPLAY));
        if (display_ == EGL_NO_DISPLAY) return;
        eglBindAPI(EGL_OPENGL_API);
        const EGLConfig config = chooseConfig(display_, ContextGL::Format());
        if (!config) return;
        root_ = eglCreateContext(display_, config, group.context, nullptr);
        maxPixelBufferSize_ = unsigned(std::min(attributeOf(display_, config, EGL_MAX_PBUFFER_WIDTH),
                                                attributeOf(display_, config, EGL_MAX_PBUFFER_HEIGHT)));
    }

    EGLDisplay display_ = EGL_NO_DISPLAY;
    EGLContext root_ = EGL_NO_CONTEXT;
    unsigned maxPixelBufferSize_ = 0;
};

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

    static EGLDisplay display() { return Platform::instance().display(); }

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
        format.alpha = attributeOf(display(), config, EGL_ALPHA_SIZE) > 0;
        format.depth = attributeOf(display(), config, EGL_DEPTH_SIZE) > 0;
        format.stencil = attributeOf(display(), config, EGL_STENCIL_SIZE) > 0;
    }
};

ContextGL::ContextGL() : impl_(std::make_unique<Impl>()) {}

ContextGL::~ContextGL() {
    destroy();
}

bool ContextGL::isSupported() {
    return Platform::instance().isUsable();
}

unsigned ContextGL::maxPixelBufferSize() {
    return Platform::instance().maxPixelBufferSize();
}

ContextGL * ContextGL::current() {
    return currentContext;
}

bool ContextGL::shareWithCurrent() {
    const SharedGroup group{eglGetCurrentDisplay(), eglGetCurrentContext()};
    if (group.context == EGL_NO_CONTEXT) return false;
    const Platform & platform = Platform::instanceIn(group);
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
    impl_->config = chooseConfig(Impl::display(), format);
    if (impl_->config)
        impl_->context =
            eglCreateContext(Impl::display(), impl_->config, Platform::instance().root(), nullptr);
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
        freeName(kind, name);
    else
        sharedNames().add(kind, name);
}

void ContextGL::dropOwn(NameGL::Kind kind, unsigned name) {
    if (!isCreated()) return;
    if (isCurrent())
        freeName(kind, name);
    else
        impl_->dropped.add(kind, name);
}

void ContextGL::freeDroppedNames() {
    for (const DroppedNames::Entry & entry : sharedNames().take())
        freeName(entry.kind, entry.name);
    for (const DroppedNames::Entry & entry : impl_->dropped.take())
        freeName(entry.kind, entry.name);
}

} // namespace NBX
