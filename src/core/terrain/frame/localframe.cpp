#include <zmt/core/terrain/frame/localframe.h>

#include <zmt/core/terrain/frame/geotransformation.h>

#include "shiftedbounds.h"

namespace ZMT::CORE {

LocalFrame::Point LocalFrame::originInScene() const {
    return origin_ + GeoTransformation::geo2nbxOffset();
}

NBX::Bounds LocalFrame::toGeo(const NBX::Bounds & local) const {
    return shifted(local, origin_);
}

NBX::Bounds LocalFrame::toScene(const NBX::Bounds & local) const {
    return shifted(local, originInScene());
}

} // namespace ZMT::CORE
