#pragma once

#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/texture/texture2dgl.h>

#include "lighttargetsgl.h"

namespace ZMT::UTIL {

/// By a pixel buffer of 16-bit floats with a context of its own, which is current while this lives. It is as
/// large as the larger of the two; depths and colours, in its lower left, are copied to textures. Sums are
/// added in main memory.
class PBufferLightTargetsGL : public LightTargetsGL {
public:
    PBufferLightTargetsGL(unsigned size, unsigned shadowSize);
    ~PBufferLightTargetsGL() override;

    static bool isSupported();

    bool isUsable() const override;
    NBX::EngineGL * engine() const override;
    unsigned size() const override { return size_; }
    unsigned shadowSize() const override { return shadowMap_->getWidth(); }
    void beginDepth() override;
    void endDepth() override;
    const NBX::Texture2DGL & shadowMap() const override { return *shadowMap_; }
    void beginLight() override {}
    void endLight() override {}
    void addPartialSum() override;
    NBX::SO<NBX::Texture2DGL> light() override;
    void draw(const std::function<void()> & paint) override;
    NBX::SO<NBX::Image> read() override;

private:
    NBX::SO<NBX::Image> readColors() const;

    unsigned size_;
    NBX::SO<NBX::PBufferCanvasGL> canvas_;
    NBX::SO<NBX::Texture2DGL> shadowMap_;
    NBX::SO<NBX::Image> sum_; ///< null while there are no partial sums
};

} // namespace ZMT::UTIL
