#pragma once

#include "aoimpl.h"

namespace ZMT::UTIL {

/// The renderer by frame buffer objects, "AOImpl: FBO", in the context of a canvas.
class AOImplFBO : public AOImpl {
    NBX_CLASS(AOImplFBO, AOImpl)
public:
    explicit AOImplFBO(NBX::SO<NBX::GLCanvas> canvas);
    ~AOImplFBO() override;

    /// Whether the driver of the canvas's context has what it needs.
    static bool isSupported(NBX::GLCanvas & canvas);

    NBX::SO<NBX::Image> render(const TerrainStep & step, const LightList & lights,
                               NBX::Progress * progress) override;
    NBX::SO<NBX::Image> render(const MeshStep & step, const LightList & lights,
                               NBX::Progress * progress) override;

private:
    NBX::SO<NBX::GLCanvas> canvas_;
};

} // namespace ZMT::UTIL
