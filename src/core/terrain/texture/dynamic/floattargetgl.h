#pragma once

#include <functional>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// A square of floats to draw into, with depths. Render thread.
class FloatTargetGL {
public:
    /// What stands where nothing is drawn, in all components.
    static constexpr float noData = -9999.0F;

    /// In pixels.
    FloatTargetGL(NBX::EngineGL * engine, unsigned size);

    unsigned size() const { return target_->width(); }
    /// Whether the driver can draw into it.
    bool isUsable() const { return target_->isComplete(); }
    /// Clears it and lets `draw` draw into it, and read from it.
    void drawInto(NBX::EngineGL * engine, const std::function<void()> & draw) const;
    const NBX::SO<NBX::Texture2DGL> & texture() const { return pixels_->texture(); }

private:
    NBX::SO<NBX::RenderTextureGL> pixels_, depths_;
    NBX::SO<NBX::FrameBufferObjectGL> target_;
};

} // namespace ZMT::CORE
