#include "aoimpl.h"

#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/errorhandler.h>

#include "aoimplfbogl.h"
#include "aoimplpbuffergl.h"

namespace ZMT::UTIL {

NBX_CLASS_IMPL(AOImpl, NBX::SharedObj)

NBX::SO<AOImpl> newAOImpl(NBX::SO<NBX::GLCanvas> canvas) {
    NBX_CHECK(canvas, L"no canvas");
    if (!canvas) return nullptr;
    NBX::SO<AOImpl> impl;
    if (AmbientOcclusion::getFBOEnabled() && AOImplFBO::isSupported(*canvas))
        impl = new AOImplFBO(canvas);
    else if (AOImplPBuffer::isSupported())
        impl = new AOImplPBuffer;
    if (!impl) NBX_REPORT(0, L"impl!=0", L"no suitable hardware support for ambient occlusion calculation!");
    return impl;
}

} // namespace ZMT::UTIL
