#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatapaintergl.h>

#include "microtrianglesgl.h"

#include <nbx/gl/context/enginegl.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(MicroTrianglesDataPainterGL, NBX::ShapePainter)

NBX::ID MicroTrianglesDataPainterGL::target() const {
    return MicroTrianglesData::ClassNameNBX();
}

bool MicroTrianglesDataPainterGL::render(NBX::Engine *, const NBX::Shape * shape) {
    const auto * micro = dynamic_cast<const MicroTrianglesData *>(shape);
    if (!micro) return false;
    drawMicroTrianglesGL(*micro, [](const NBX::Vector3Base<double> & normal) { glNormal3dv(&normal.x); });
    return true;
}

NBX_REGISTER_HANDLER_GL(MicroTrianglesDataPainterGL)

} // namespace ZMT::CORE
