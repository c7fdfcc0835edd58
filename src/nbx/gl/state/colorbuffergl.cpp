#include <nbx/gl/state/colorbuffergl.h>

#include <string>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include "nbx/scene/base/serializecolor.h"
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(ColorBufferGL, MonoAttribute)

ColorBufferGL::ColorBufferGL(unsigned operations) : MonoAttribute(true), operations_(operations) {}

ColorBufferGL * ColorBufferGL::newAlphaTest(bool enabled, unsigned function, double reference) {
    auto * result = new ColorBufferGL(0);
    result->setAlphaTest({enabled, function, reference});
    return result;
}

ColorBufferGL * ColorBufferGL::newBlending(bool enabled, unsigned sourceFactor, unsigned targetFactor,
                                           const Color & constant) {
    auto * result = new ColorBufferGL(0);
    result->setBlending({enabled, sourceFactor, targetFactor, constant});
    return result;
}

ColorBufferGL * ColorBufferGL::newLock(bool red, bool green, bool blue, bool alpha) {
    auto * result = new ColorBufferGL(0);
    result->setLock(red, green, blue, alpha);
    return result;
}

void ColorBufferGL::setBlending(const Blending & blending) {
    blending_ = blending;
    operations_ |= O_Blending;
    modified();
}

void ColorBufferGL::setAlphaTest(const AlphaTest & test) {
    alphaTest_ = test;
    operations_ |= O_AlphaTest;
    modified();
}

void ColorBufferGL::setLock(bool red, bool green, bool blue, bool alpha) {
    writes_[0] = red;
    writes_[1] = green;
    writes_[2] = blue;
    writes_[3] = alpha;
    operations_ |= O_Lock;
    modified();
}

namespace {

bool isFactor(unsigned factor) {
    return factor <= GL_ONE || (factor >= GL_SRC_COLOR && factor <= GL_SRC_ALPHA_SATURATE) ||
           (factor >= GL_CONSTANT_COLOR && factor <= GL_ONE_MINUS_CONSTANT_ALPHA);
}

} // namespace

void ColorBufferGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    attributeWithDefault(m, "operations", operations_, 0U);
    attributeWithDefault(m, "blends", blending_.enabled, false);
    attributeWithDefault(m, "sourceFactor", blending_.source, unsigned(GL_ONE));
    attributeWithDefault(m, "targetFactor", blending_.target, unsigned(GL_ZERO));
    serializeColor(m, "constant", blending_.constant, Color(0.0F, 0.0F, 0.0F, 0.0F));
    attributeWithDefault(m, "testsAlpha", alphaTest_.enabled, false);
    attributeWithDefault(m, "function", alphaTest_.function, unsigned(GL_ALWAYS));
    attributeWithDefault(m, "reference", alphaTest_.reference, 0.0);
    for (unsigned i = 0; i < 4; ++i)
        attributeWithDefault(m, ("writes_" + std::to_string(i)).c_str(), writes_[i], true);
    const bool isSound = isFactor(blending_.source) && isFactor(blending_.target) &&
                         alphaTest_.function >= GL_NEVER && alphaTest_.function <= GL_ALWAYS;
    if (!isSound) throw IOError(L"stored state of the colour buffer is damaged");
}

namespace {

void emitBlending(const ColorBufferGL::Blending & blending) {
    if (blending.enabled)
        glEnable(GL_BLEND);
    else
        glDisable(GL_BLEND);
    // What is blended over a colour covers it by its alpha: the target becomes as opaque as both are
    // together, where the factors of the colours would multiply the alpha by itself.
    const bool isOver = blending.source == GL_SRC_ALPHA && blending.target == GL_ONE_MINUS_SRC_ALPHA;
    glBlendFuncSeparate(blending.source, blending.target, isOver ? GL_ONE : blending.source, blending.target);
    glBlendColor(blending.constant[0], blending.constant[1], blending.constant[2], blending.constant[3]);
}

void emitAlphaTest(const ColorBufferGL::AlphaTest & test) {
    if (test.enabled)
        glEnable(GL_ALPHA_TEST);
    else
        glDisable(GL_ALPHA_TEST);
    glAlphaFunc(test.function, static_cast<GLclampf>(test.reference));
}

/// The topmost attribute that sets it decides each of the values.
void apply(EngineGL & engine, const ColorBufferGL & attribute, bool entering) {
    ColorBufferGL::Blending blending;
    ColorBufferGL::AlphaTest alphaTest;
    GLboolean writes[4] = {GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE};
    forEachInForce(engine, attribute, entering, [&](const ColorBufferGL & entry) {
        const auto sets = [&](unsigned operation) {
            return (entry.operations() & (operation | ColorBufferGL::O_All)) != 0;
        };
        if (sets(ColorBufferGL::O_Blending)) blending = entry.blending();
        if (sets(ColorBufferGL::O_AlphaTest)) alphaTest = entry.alphaTest();
        for (unsigned i = 0; i < 4 && sets(ColorBufferGL::O_Lock); ++i)
            writes[i] = entry.writes(i);
    });
    emitBlending(blending);
    emitAlphaTest(alphaTest);
    glColorMask(writes[0], writes[1], writes[2], writes[3]);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(ColorBufferGL, apply)

} // namespace NBX
