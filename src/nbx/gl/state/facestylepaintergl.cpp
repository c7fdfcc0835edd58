#include <unordered_map>

#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/facestyle.h>

namespace NBX {

namespace {

/// What filled faces are drawn as: a wire frame mode turns them into lines.
GLenum modeOfFilledFaces(const Engine & engine) {
    const auto * mode =
        dynamic_cast<const PolygonModeGL *>(engine.getAttribute(PolygonModeGL::ClassNameNBX()));
    return mode ? mode->getMode() : GL_FILL;
}

void emitMode(GLenum side, FaceStyle::Style style, GLenum filled) {
    glPolygonMode(side, style == FaceStyle::S_Points  ? GL_POINT
                        : style == FaceStyle::S_Lines ? GL_LINE
                                                      : filled);
}

void emitCulling(bool front, bool back) {
    if (front || back)
        glEnable(GL_CULL_FACE);
    else
        glDisable(GL_CULL_FACE);
    glCullFace(front && back ? GL_FRONT_AND_BACK : front ? GL_FRONT : GL_BACK);
}

/// The order that was in force before the first entry of a stack that says one, by engine.
class FaceOrders {
public:
    void enter(const Engine * engine, FaceStyle::Order order) {
        if (order == FaceStyle::O_Unchanged) return;
        GLint current = GL_CCW;
        glGetIntegerv(GL_FRONT_FACE, &current);
        before_.try_emplace(engine, current);
        glFrontFace(order == FaceStyle::O_Clockwise ? GL_CW : GL_CCW);
    }
    void leave(const Engine * engine) {
        const auto found = before_.find(engine);
        if (found == before_.end()) return;
        glFrontFace(static_cast<GLenum>(found->second));
        before_.erase(found);
    }

private:
    std::unordered_map<const Engine *, GLint> before_;
};

class FaceStylePainterGL : public MonoAttributePainter {
public:
    ID target() const override { return FaceStyle::ClassNameNBX(); }

    bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) override {
        static const SO<FaceStyle> defaults(new FaceStyle());
        const auto & style = entering ? static_cast<const FaceStyle &>(*attribute) : *defaults;
        const GLenum filled = modeOfFilledFaces(*engine);
        emitMode(GL_FRONT, style.getFront(), filled);
        emitMode(GL_BACK, style.getBack(), filled);
        emitCulling(style.getFront() == FaceStyle::S_Culled, style.getBack() == FaceStyle::S_Culled);
        if (entering)
            orders_.enter(engine, style.getOrder());
        else
            orders_.leave(engine);
        return true;
    }

private:
    FaceOrders orders_;
};

} // namespace

NBX_REGISTER_HANDLER_GL(FaceStylePainterGL)

} // namespace NBX
