#include "aoimplpbuffergl.h"

#include <nbx/image/image.h>

#include "litscenesgl.h"
#include "pbufferlighttargetsgl.h"

namespace ZMT::UTIL {

NBX_CLASS_IMPL(AOImplPBuffer, AOImpl)

namespace {

NBX::SO<NBX::Image> renderOnPixelBuffer(const LitSceneGL & scene, const LightList & lights, unsigned size,
                                        unsigned shadowSize, int borderWidth, NBX::Progress * progress) {
    PBufferLightTargetsGL targets(size, shadowSize);
    return targets.isUsable() ? renderLightGL(targets, scene, lights, borderWidth, progress) : nullptr;
}

} // namespace

AOImplPBuffer::AOImplPBuffer() {
    setObjectName(L"AOImpl: PBuffer");
}

AOImplPBuffer::~AOImplPBuffer() = default;

bool AOImplPBuffer::isSupported() {
    return PBufferLightTargetsGL::isSupported();
}

NBX::SO<NBX::Image> AOImplPBuffer::render(const TerrainStep & step, const LightList & lights,
                                          NBX::Progress * progress) {
    return renderOnPixelBuffer(newLitSceneGL(step), lights, step.size, step.size,
                               AmbientOcclusion::getTextureBorderWidth(), progress);
}

NBX::SO<NBX::Image> AOImplPBuffer::render(const MeshStep & step, const LightList & lights,
                                          NBX::Progress * progress) {
    return renderOnPixelBuffer(newLitSceneGL(step), lights, step.size,
                               step.shadowSize ? step.shadowSize : step.size,
                               step.closes ? AmbientOcclusion::getTextureBorderWidth() : 0, progress);
}

} // namespace ZMT::UTIL
