#include "mappedvertexattributeshapepaintergl.h"

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(MappedVertexAttributeShapePainterGL, ShapePainter)

ID MappedVertexAttributeShapePainterGL::target() const {
    return MappedVertexAttributeShapeGL::ClassNameNBX();
}

bool MappedVertexAttributeShapePainterGL::render(Engine * engine, const Shape * shape) {
    auto * gl = dynamic_cast<EngineGL *>(engine);
    const auto * mesh = dynamic_cast<const MappedVertexAttributeShapeGL *>(shape);
    NBX_CHECK(gl, L"no engine");
    if (!gl || !mesh) return false;
    if (!mesh->isDrawable() || mesh->data()->vertices() == 0) return true;
    const MappedVertexAttributeBindingGL binding(gl, *mesh->data());
    if (mesh->indices())
        binding.drawIndexed(unsigned(mesh->primitiveType()), *mesh->indices());
    else
        binding.draw(unsigned(mesh->primitiveType()), 0, int(mesh->data()->vertices()));
    return true;
}

NBX_REGISTER_HANDLER_GL(MappedVertexAttributeShapePainterGL)

} // namespace NBX
