#include "multitexturinggl.h"

#include <set>

#include <GL/glew.h>

#include <nbx/engine/handler.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/passessetup.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/effect/texturingeffectshadergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

/// Once for each class, as it goes on in every frame.
void reportUnusable(const TexturingEffectGL & effect) {
    static std::set<const ClassInfo *> reported;
    const ClassInfo * info = effect.classInfoNBX();
    if (reported.insert(info).second)
        NBX_FAILURE(L"the graphics card cannot show this effect, which is left out: "
                    << StringUtils::Utf8String2WString(info->name().text()));
}

void setUp(PassesSetup & passes, EngineGL * engine, const std::vector<Attribute *> & topFirst) {
    for (auto i = topFirst.rbegin(); i != topFirst.rend(); ++i) {
        auto * effect = dynamic_cast<TexturingEffectGL *>(*i);
        if (!effect || !effect->isEnabled()) continue;
        auto * shader = dynamic_cast<TexturingEffectShaderGL *>(
            engine->findHandler(TexturingEffectShaderGL::ClassNameNBX(), effect->classInfoNBX()));
        if (!shader) continue;
        if (shader->canBeUsed(engine, effect))
            shader->updatePasses(engine, effect, passes);
        else
            reportUnusable(*effect);
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
