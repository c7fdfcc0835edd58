#include <zmt/core/terrain/geometry/hybrid/microdata.h>

#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

MicroData::MicroData(const HybridData * container) : NBX::Shape(true), container_(container) {
    NBX_CHECK(container, L"no container");
}

NBX_CLASS_IMPL(MicroData, NBX::Shape)

} // namespace ZMT::CORE
