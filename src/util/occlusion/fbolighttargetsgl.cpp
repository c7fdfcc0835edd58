#include "fbolighttargetsgl.h"

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/image/memoryimage.h>

#include "ambientocclusionshaders.h"
#include "lightaccumulationgl.h"

namespace ZMT::UTIL {

FboLightTargetsGL::FboLightTargetsGL(NBX::EngineGL * engine, unsigned size, unsigned shadowSize)
    : engine_(engine), size_(size),
      shadowMap_(new NBX::Texture2DGL(shadowSize, shadowSize, GL_DEPTH_COMPONENT24)),
      depthBuffer_(new NBX::FrameBufferObjectGL(engine, shadowSize, shadowSize)),
      colors_(newTarget(GL_HALF_FLOAT)), light_(&colors_) {
    shadowMap_->bind(engine_);
    glBindTexture(GL_TEXTURE_2D, 0);
    depthBuffer_->attachDepthTexture(shadowMap_, GL_TEXTURE_2D, shadowMap_->name());
}

FboLightTargetsGL::~FboLightTargetsGL() = default;

FboLightTargetsGL::Target FboLightTargetsGL::newTarget(unsigned type) const {
    Target target{new NBX::RenderTextureGL(engine_, size_, size_, type, GL_RGBA),
                  new NBX::FrameBufferObjectGL(engine_, size_, size_)};
    target.texture->attachTo(target.buffer.get());
    target.buffer->bind(engine_);
    clearLightGL();
    target.buffer->unbind(engine_);
    return target;
}

bool FboLightTargetsGL::isUsable() const {
    return depthBuffer_->isComplete() && colors_.buffer->isComplete();
}

void FboLightTargetsGL::beginDepth() {
    depthBuffer_->bind(engine_);
    glClear(GL_DEPTH_BUFFER_BIT);
}

void FboLightTargetsGL::endDepth() {
    depthBuffer_->unbind(engine_);
}

void FboLightTargetsGL::beginLight() {
    colors_.buffer->bind(engine_);
}

void FboLightTargetsGL::endLight() {
    colors_.buffer->unbind(engine_);
}

void FboLightTargetsGL::addPartialSum() {
    static const NBX::SO<NBX::ColorBufferGL> adding(NBX::ColorBufferGL::newBlending(true, GL_ONE, GL_ONE));
    if (!sum_.buffer) sum_ = newTarget(GL_FLOAT);
    light_ = &sum_;
    sum_.buffer->bind(engine_);
    {
        const NBX::AttributeScope addingScope(engine_, adding.get());
        drawWholeTargetGL(*engine_, *AmbientOcclusionShaders::getCopyProgram(), *colors_.texture->texture());
    }
    sum_.buffer->unbind(engine_);
    colors_.buffer->bind(engine_);
    clearLightGL();
    colors_.buffer->unbind(engine_);
}

NBX::SO<NBX::Texture2DGL> FboLightTargetsGL::light() {
    return light_->texture->texture();
}

void FboLightTargetsGL::draw(const std::function<void()> & paint) {
    Target & target = light_ == &pictures_[0] ? pictures_[1] : pictures_[0];
    if (!target.buffer) target = newTarget(GL_HALF_FLOAT);
    target.buffer->bind(engine_);
    clearLightGL();
    paint();
    target.buffer->unbind(engine_);
    light_ = &target;
}

NBX::SO<NBX::Image> FboLightTargetsGL::read() {
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(static_cast<int>(size_), static_cast<int>(size_),
                                                   NBX::LS_RGBA, NBX::Image::Float));
    return light_->buffer->renderImage(engine_, image.get()) ? image : nullptr;
}

} // namespace ZMT::UTIL
