#include "aoimplfbogl.h"

#include <nbx/gl/context/glcanvas.h>

#include "fbolighttargetsgl.h"
#include "litscenesgl.h"

namespace ZMT::UTIL {

NBX_CLASS_IMPL(AOImplFBO, AOImpl)

namespace {

class ContextScope {
public:
    explicit ContextScope(NBX::GLCanvas & canvas)
        : canvas_(canvas), isCurrent_(canvas.makeContextCurrent()) {}
    ~ContextScope() {
        if (isCurrent_) canvas_.releaseContext();
    }
    ContextScope(const ContextScope &) = delete;
    ContextScope & operator=(const ContextScope &) = delete;
    explicit operator bool() const { return isCurrent_; }

private:
    NBX::GLCanvas & canvas_;
    bool isCurrent_;
};

NBX::SO<NBX::Image> renderOn(NBX::GLCanvas & canvas, const LitSceneGL & scene, const LightList & lights,
                             unsigned size, unsigned shadowSize, int borderWidth, NBX::Progress * progress) {
    const ContextScope current(canvas);
    if (!current) return nullptr;
    FboLightTargetsGL targets(canvas.engine().get(), size, shadowSize);
    return targets.isUsable() ? renderLightGL(targets, scene, lights, borderWidth, progress) : nullptr;
}

} // namespace

AOImplFBO::AOImplFBO(NBX::SO<NBX::GLCanvas> canvas) : canvas_(canvas) {
    setObjectName(L"AOImpl: FBO");
}

AOImplFBO::~AOImplFBO() = default;

bool AOImplFBO::isSupported(NBX::GLCanvas & canvas) {
    const ContextScope current(canvas);
    return current && canvas.engine()->hasExtension("GL_EXT_framebuffer_object");
}

NBX::SO<NBX::Image> AOImplFBO::render(const TerrainStep & step, const LightList & lights,
                                      NBX::Progress * progress) {
    return renderOn(*canvas_, newLitSceneGL(step), lights, step.size, step.size,
                    AmbientOcclusion::getTextureBorderWidth(), progress);
}

NBX::SO<NBX::Image> AOImplFBO::render(const MeshStep & step, const LightList & lights,
                                      NBX::Progress * progress) {
    return renderOn(*canvas_, newLitSceneGL(step), lights, step.size,
                    step.shadowSize ? step.shadowSize : step.size,
                    step.closes ? AmbientOcclusion::getTextureBorderWidth() : 0, progress);
}

} // namespace ZMT::UTIL
