#include <unordered_map>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
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

void apply(EngineGL & engine, const FaceStyle & attribute, bool entering) {
    static const SO<FaceStyle> defaults(new FaceStyle());
    static FaceOrders orders;
    const FaceStyle & style = entering ? attribute : *defaults;
    const GLenum filled = modeOfFilledFaces(engine);
    emitMode(GL_FRONT, style.getFront(), filled);
    emitMode(GL_BACK, style.getBack(), filled);
    emitCulling(style.getFront() == FaceStyle::S_Culled, style.getBack() == FaceStyle::S_Culled);
    if (entering)
        orders.enter(&engine, style.getOrder());
    else
        orders.leave(&engine);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(FaceStyle, apply)

} // namespace NBX
