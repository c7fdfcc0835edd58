#include <nbx/gl/state/depthbuffergl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(DepthBufferGL, MonoAttribute)

DepthBufferGL::DepthBufferGL(unsigned operations, bool write, bool test, unsigned function, double nearRange,
                             double farRange)
    : MonoAttribute(true), operations_(operations), write_(write), test_(test), function_(function),
      near_(nearRange), far_(farRange) {}

DepthBufferGL::DepthBufferGL(bool write, bool test) : DepthBufferGL(O_All, write, test, GL_LESS, 0.0, 1.0) {}

void DepthBufferGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    attributeWithDefault(m, "operations", operations_, unsigned(O_All));
    attributeWithDefault(m, "write", write_, true);
    attributeWithDefault(m, "test", test_, true);
    attributeWithDefault(m, "function", function_, unsigned(GL_LESS));
    attributeWithDefault(m, "nearRange", near_, 0.0);
    attributeWithDefault(m, "farRange", far_, 1.0);
    if (function_ < GL_NEVER || function_ > GL_ALWAYS) throw IOError(L"stored depth test is damaged");
}

namespace {

struct State {
    bool test = true, write = true;
    GLenum function = GL_LESS;
    double nearRange = 0.0, farRange = 1.0;
};

void takeOver(State & state, const DepthBufferGL & attribute) {
    unsigned operations = attribute.operations();
    if (operations & DepthBufferGL::O_All) {
        operations = DepthBufferGL::O_Test | DepthBufferGL::O_Write | DepthBufferGL::O_Function;
        state.nearRange = attribute.nearRange();
        state.farRange = attribute.farRange();
    }
    if (operations & DepthBufferGL::O_Test) state.test = attribute.tests();
    if (operations & DepthBufferGL::O_Write) state.write = attribute.writes();
    if (operations & DepthBufferGL::O_Function) state.function = attribute.function();
}

void emit(const State & state) {
    if (state.test)
        glEnable(GL_DEPTH_TEST);
    else
        glDisable(GL_DEPTH_TEST);
    glDepthMask(state.write ? GL_TRUE : GL_FALSE);
    glDepthFunc(state.function);
    glDepthRange(state.nearRange, state.farRange);
}

void apply(EngineGL & engine, const DepthBufferGL & attribute, bool entering) {
    State state;
    forEachInForce(engine, attribute, entering, [&](const DepthBufferGL & entry) { takeOver(state, entry); });
    emit(state);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(DepthBufferGL, apply)

} // namespace NBX
