#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/colorattribute.h>

namespace NBX {

namespace {

class ColorAttributePainterGL : public MonoAttributePainter {
public:
    ID target() const override { return ColorAttribute::ClassNameNBX(); }

    bool apply(Engine *, const MonoAttribute * attribute, bool entering) override {
        const Color & color =
            entering ? static_cast<const ColorAttribute *>(attribute)->getColor() : Color::white;
        glColor4fv(color.data());
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(ColorAttributePainterGL)

} // namespace NBX
