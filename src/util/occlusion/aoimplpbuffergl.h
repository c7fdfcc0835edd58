#pragma once

#include "aoimpl.h"

namespace ZMT::UTIL {

/// The renderer by a pixel buffer, "AOImpl: PBuffer", for drivers without frame buffer objects.
class AOImplPBuffer : public AOImpl {
    NBX_CLASS(AOImplPBuffer, AOImpl)
public:
    AOImplPBuffer();
    ~AOImplPBuffer() override;

    static bool isSupported();

    NBX::SO<NBX::Image> render(const TerrainStep & step, const LightList & lights,
                               NBX::Progress * progress) override;
    NBX::SO<NBX::Image> render(const MeshStep & step, const LightList & lights,
                               NBX::Progress * progress) override;
};

} // namespace ZMT::UTIL
