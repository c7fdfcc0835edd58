#include "pbufferlighttargetsgl.h"

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>

#include "lightaccumulationgl.h"

namespace ZMT::UTIL {

namespace {

constexpr unsigned s_properties = NBX::GLCanvas::COLOR_BUFFER | NBX::GLCanvas::DEPTH_BUFFER |
                                  NBX::GLCanvas::ALPHA_BUFFER | NBX::PBufferCanvasGL::FLOAT_BUFFER;

void copyTo(NBX::EngineGL * engine, const NBX::Texture2DGL & texture) {
    texture.bind(engine);
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, static_cast<GLsizei>(texture.getWidth()),
                        static_cast<GLsizei>(texture.getHeight()));
    glBindTexture(GL_TEXTURE_2D, 0);
}

NBX::SO<NBX::Texture2DGL> nearest(NBX::SO<NBX::Texture2DGL> texture) {
    texture->setMinFilter(NBX::TextureGL::FM_Nearest);
    texture->setMagFilter(NBX::TextureGL::FM_Nearest);
    texture->setWrap(NBX::TextureGL::WM_ClampToEdge);
    return texture;
}

} // namespace

PBufferLightTargetsGL::PBufferLightTargetsGL(unsigned size, unsigned shadowSize)
    : size_(size),
      canvas_(new NBX::PBufferCanvasGL(std::max(size, shadowSize), std::max(size, shadowSize), s_properties)),
      shadowMap_(new NBX::Texture2DGL(shadowSize, shadowSize, GL_DEPTH_COMPONENT24)) {
    if (!canvas_->isCreated()) return;
    canvas_->prepareRedisplay();
    clearLightGL();
}

PBufferLightTargetsGL::~PBufferLightTargetsGL() {
    if (canvas_->isCreated()) canvas_->finishRedisplay();
    canvas_->destroy();
}

bool PBufferLightTargetsGL::isSupported() {
    return NBX::PBufferCanvasGL::isSupported(s_properties);
}

bool PBufferLightTargetsGL::isUsable() const {
    return canvas_->isCreated() && canvas_->hasProperty(s_properties);
}

NBX::EngineGL * PBufferLightTargetsGL::engine() const {
    return canvas_->engine().get();
}

void PBufferLightTargetsGL::beginDepth() {
    glClear(GL_DEPTH_BUFFER_BIT);
}

void PBufferLightTargetsGL::endDepth() {
    copyTo(engine(), *shadowMap_);
}

void PBufferLightTargetsGL::addPartialSum() {
    const NBX::SO<NBX::Image> colors = readColors();
    clearLightGL();
    if (!sum_ || !colors) {
        sum_ = colors;
        return;
    }
    for (int y = 0; y < sum_->height(); ++y) {
        auto * to = static_cast<float *>(sum_->lineComponents(y));
        const auto * from = static_cast<const float *>(colors->lineComponents(y));
        for (unsigned i = 0; i < 4 * size_; ++i)
            to[i] += from[i];
    }
}

NBX::SO<NBX::Texture2DGL> PBufferLightTargetsGL::light() {
    if (sum_)
        return nearest(new NBX::ImageTexture2DGL(
            sum_, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::FM_Nearest,
            NBX::TextureGL::FM_Nearest, 1.0, NBX::Matrix4x4Base<double>(), NBX::Color(0.0F, 0.0F, 0.0F, 0.0F),
            GL_RGBA32F_ARB));
    NBX::SO<NBX::Texture2DGL> texture = nearest(new NBX::Texture2DGL(size_, size_, GL_RGBA16F_ARB));
    copyTo(engine(), *texture);
    return texture;
}

void PBufferLightTargetsGL::draw(const std::function<void()> & paint) {
    clearLightGL();
    paint();
    sum_ = nullptr;
}

NBX::SO<NBX::Image> PBufferLightTargetsGL::readColors() const {
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(static_cast<int>(size_), static_cast<int>(size_),
                                                   NBX::LS_RGBA, NBX::Image::Float));
    return canvas_->snapshot(image.get()) ? image : nullptr;
}

NBX::SO<NBX::Image> PBufferLightTargetsGL::read() {
    return sum_ ? sum_ : readColors();
}

} // namespace ZMT::UTIL
