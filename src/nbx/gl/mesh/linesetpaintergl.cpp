#include "linesetpaintergl.h"

#include <GL/glew.h>

#include "vertexarraysgl.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/lineset.h>

namespace NBX {

NBX_CLASS_IMPL(LineSetPainterGL, ShapePainter)

namespace {

GLenum modeOf(LineSet::PrimitiveType type) {
    switch (type) {
    case LineSet::PT_LineStrip:
        return GL_LINE_STRIP;
    case LineSet::PT_LineLoop:
        return GL_LINE_LOOP;
    case LineSet::PT_Lines:
        break;
    }
    return GL_LINES;
}

} // namespace

ID LineSetPainterGL::target() const {
    return LineSet::ClassNameNBX();
}

bool LineSetPainterGL::render(Engine * engine, const Shape * shape) {
    const auto * set = dynamic_cast<const LineSet *>(shape);
    NBX_CHECK(engine, L"no engine");
    if (!engine || !set) return false;
    const SO<LineSet::Vertices> vertices = set->newVertexIterator();
    if (!vertices || vertices->isEmpty()) return true;
    VertexArraysGL arrays(*vertices, 0);
    arrays.setColors(set->newColorIterator().get());
    glDrawArrays(modeOf(set->getPrimitiveType()), 0, GLsizei(vertices->size()));
    return true;
}

NBX_REGISTER_HANDLER_GL(LineSetPainterGL)

} // namespace NBX
