#include "eglplatformgl.h"

#include <algorithm>
#include <array>
#include <vector>

#include <EGL/eglext.h>

namespace NBX {

namespace {

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

} // namespace

EglPlatformGL::EglPlatformGL(const Group & group) : display_(group.display) {
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

EglPlatformGL & EglPlatformGL::instanceIn(const Group & group) {
    static auto * platform = new EglPlatformGL(group);
    return *platform;
}

EGLint EglPlatformGL::attributeOf(EGLDisplay display, EGLConfig config, EGLint attribute) {
    EGLint value = 0;
    eglGetConfigAttrib(display, config, attribute, &value);
    return value;
}

bool EglPlatformGL::hasFloats(EGLDisplay display, EGLConfig config) {
    return attributeOf(display, config, EGL_COLOR_COMPONENT_TYPE_EXT) == EGL_COLOR_COMPONENT_TYPE_FLOAT_EXT;
}

EGLConfig EglPlatformGL::chooseConfig(EGLDisplay display, const ContextGL::Format & format) {
    const EGLint bits = format.floats ? 16 : 8;
    std::vector<EGLint> wanted = {EGL_SURFACE_TYPE,    EGL_PBUFFER_BIT,
                                  EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                  EGL_RED_SIZE,        bits,
                                  EGL_GREEN_SIZE,      bits,
                                  EGL_BLUE_SIZE,       bits,
                                  EGL_ALPHA_SIZE,      format.alpha ? bits : 0,
                                  EGL_DEPTH_SIZE,      format.depth ? 24 : 0,
                                  EGL_STENCIL_SIZE,    format.stencil ? 8 : 0};
    // Platforms that know no floats know no attribute for them either.
    if (format.floats)
        wanted.insert(wanted.end(), {EGL_COLOR_COMPONENT_TYPE_EXT, EGL_COLOR_COMPONENT_TYPE_FLOAT_EXT});
    wanted.push_back(EGL_NONE);
    std::array<EGLConfig, 256> configs;
    EGLint count = 0;
    if (!eglChooseConfig(display, wanted.data(), configs.data(), EGLint(configs.size()), &count))
        return nullptr;
    const auto penalty = [&](EGLConfig config) {
        const bool alpha = attributeOf(display, config, EGL_ALPHA_SIZE) > 0;
        const bool wide = attributeOf(display, config, EGL_RED_SIZE) > bits;
        return 4 * (attributeOf(display, config, EGL_SAMPLES) > 0) + 2 * wide + (alpha != format.alpha);
    };
    const auto best = std::min_element(configs.begin(), configs.begin() + count,
                                       [&](EGLConfig a, EGLConfig b) { return penalty(a) < penalty(b); });
    return best == configs.begin() + count ? nullptr : *best;
}

} // namespace NBX
