#pragma once

#include <array>

#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/gl/texture/texture2dgl.h>

#include "lighttargetsgl.h"

namespace ZMT::UTIL {

/// By frame buffer objects, in the context of a canvas.
class FboLightTargetsGL : public LightTargetsGL {
public:
    /// `engine` outlives it; its context is current.
    FboLightTargetsGL(NBX::EngineGL * engine, unsigned size, unsigned shadowSize);
    ~FboLightTargetsGL() override;

    bool isUsable() const override;
    NBX::EngineGL * engine() const override { return engine_; }
    unsigned size() const override { return size_; }
    unsigned shadowSize() const override { return shadowMap_->getWidth(); }
    void beginDepth() override;
    void endDepth() override;
    const NBX::Texture2DGL & shadowMap() const override { return *shadowMap_; }
    void beginLight() override;
    void endLight() override;
    void addPartialSum() override;
    NBX::SO<NBX::Texture2DGL> light() override;
    void draw(const std::function<void()> & paint) override;
    NBX::SO<NBX::Image> read() override;

private:
    struct Target {
        NBX::SO<NBX::RenderTextureGL> texture;
        NBX::SO<NBX::FrameBufferObjectGL> buffer;
    };

    Target newTarget(unsigned type) const;

    NBX::EngineGL * engine_;
    unsigned size_;
    NBX::SO<NBX::Texture2DGL> shadowMap_;
    NBX::SO<NBX::FrameBufferObjectGL> depthBuffer_;
    Target colors_, sum_;            ///< the sum is made when it is first needed
    std::array<Target, 2> pictures_; ///< as are these
    const Target * light_;           ///< which of them has the light
};

} // namespace ZMT::UTIL
