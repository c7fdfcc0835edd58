#include <nbx/gl/state/polygonmodegl.h>

#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(PolygonModeGL, MonoAttribute)

static_assert(PolygonModeGL::M_Point == GL_POINT && PolygonModeGL::M_Line == GL_LINE &&
              PolygonModeGL::M_Fill == GL_FILL);

PolygonModeGL::PolygonModeGL(unsigned mode) : MonoAttribute(true), mode_(mode) {
    NBX_CHECK(mode == GL_FILL || mode == GL_LINE || mode == GL_POINT, L"no such mode: " << mode);
}

namespace {

class PolygonModePainterGL : public MonoAttributePainter {
public:
    ID target() const override { return PolygonModeGL::ClassNameNBX(); }

    bool apply(Engine *, const MonoAttribute * attribute, bool entering) override {
        glPolygonMode(GL_FRONT_AND_BACK,
                      entering ? static_cast<const PolygonModeGL *>(attribute)->getMode() : GL_FILL);
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(PolygonModePainterGL)

} // namespace NBX
