#include <nbx/gl/multitexturinggl.h>

#include <GL/glew.h>

#include <nbx/engine/handler.h>
#include <nbx/gl/depthbuffergl.h>
#include <nbx/gl/enginegl.h>
#include <nbx/gl/passessetup.h>
#include <nbx/gl/texturingeffectgl.h>
#include <nbx/gl/texturingeffectshadergl.h>

namespace NBX {

namespace {

void setUp(PassesSetup & passes, EngineGL * engine, const std::vector<Attribute *> & topFirst) {
    for (auto i = topFirst.rbegin(); i != topFirst.rend(); ++i) {
        auto * effect = dynamic_cast<TexturingEffectGL *>(*i);
        if (!effect || !effect->isEnabled()) continue;
        auto * shader = dynamic_cast<TexturingEffectShaderGL *>(
            engine->findHandler(TexturingEffectShaderGL::ClassNameNBX(), effect->classInfoNBX()));
        if (shader && shader->canBeUsed(engine, effect)) shader->updatePasses(engine, effect, passes);
    }
    passes.finish();
}

/// Restricts the passes behind the first one to what that left visible. Null where it left no depth.
SO<DepthBufferGL> newDepthOfLaterPasses() {
    GLboolean writes = GL_FALSE;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &writes);
    if (!writes || !glIsEnabled(GL_DEPTH_TEST)) return nullptr;
    return new DepthBufferGL(DepthBufferGL::O_Write | DepthBufferGL::O_Function, false, true, GL_EQUAL, 0.0,
                             1.0);
}

bool writesColor() {
    GLboolean writes[4] = {};
    glGetBooleanv(GL_COLOR_WRITEMASK, writes);
    return writes[0] || writes[1] || writes[2] || writes[3];
}

} // namespace

void MultiTexturingGL::paint(EngineGL * engine, const std::vector<Attribute *> & topFirst,
                             const std::function<void()> & paintShapes) {
    PassesSetup passes(engine);
    setUp(passes, engine, topFirst);
    const unsigned count = writesColor() ? passes.numberOfPasses() : 1;
    const SO<DepthBufferGL> depth = count > 1 ? newDepthOfLaterPasses() : nullptr;
    for (unsigned i = 0; i < count; ++i) {
        const AttributeScope laterDepth(engine, i > 0 ? depth.get() : nullptr);
        const AttributeScope pass(engine, passes.pass(i));
        paintShapes();
    }
}

namespace {

const bool registered = (EngineGL::setEffectPainter(&MultiTexturingGL::paint), true);

} // namespace

} // namespace NBX
