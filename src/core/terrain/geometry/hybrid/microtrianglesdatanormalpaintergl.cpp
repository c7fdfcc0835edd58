#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatanormalpaintergl.h>

#include "core/terrain/geometry/regular/normalcolorgl.h"
#include "microtrianglesgl.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(MicroTrianglesDataNormalPainterGL, NBX::ShapePainter)

NBX::ID MicroTrianglesDataNormalPainterGL::target() const {
    return MicroTrianglesData::ClassNameNBX();
}

bool MicroTrianglesDataNormalPainterGL::render(NBX::Engine *, const NBX::Shape * shape) {
    const auto * micro = dynamic_cast<const MicroTrianglesData *>(shape);
    if (!micro) return false;
    drawMicroTrianglesGL(*micro,
                         [this](const NBX::Vector3Base<double> & normal) { normalColorGL(normal, scale_); });
    return true;
}

} // namespace ZMT::CORE
