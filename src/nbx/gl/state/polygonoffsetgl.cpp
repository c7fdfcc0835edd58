#include <nbx/gl/state/polygonoffsetgl.h>

#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>

namespace NBX {

NBX_CLASS_IMPL(PolygonOffsetGL, MonoAttribute)

PolygonOffsetGL::PolygonOffsetGL(unsigned faces, double factor, double units)
    : MonoAttribute(true), faces_(faces), factor_(factor), units_(units) {}

namespace {

void set(GLenum capability, bool on) {
    if (on)
        glEnable(capability);
    else
        glDisable(capability);
}

void emit(const PolygonOffsetGL & state) {
    set(GL_POLYGON_OFFSET_FILL, (state.getFaces() & PolygonOffsetGL::F_Filled) != 0);
    set(GL_POLYGON_OFFSET_LINE, (state.getFaces() & PolygonOffsetGL::F_Lines) != 0);
    set(GL_POLYGON_OFFSET_POINT, (state.getFaces() & PolygonOffsetGL::F_Points) != 0);
    glPolygonOffset(static_cast<GLfloat>(state.getFactor()), static_cast<GLfloat>(state.getUnits()));
}

class PolygonOffsetPainterGL : public MonoAttributePainter {
public:
    ID target() const override { return PolygonOffsetGL::ClassNameNBX(); }

    bool apply(Engine *, const MonoAttribute * attribute, bool entering) override {
        static const PolygonOffsetGL none(0, 0.0, 0.0);
        emit(entering ? static_cast<const PolygonOffsetGL &>(*attribute) : none);
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(PolygonOffsetPainterGL)

} // namespace NBX
