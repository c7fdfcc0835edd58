#include <nbx/gl/state/colorbuffergl.h>

#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>

namespace NBX {

NBX_CLASS_IMPL(ColorBufferGL, MonoAttribute)

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

void emitBlending(const ColorBufferGL::Blending & blending) {
    if (blending.enabled)
        glEnable(GL_BLEND);
    else
        glDisable(GL_BLEND);
    glBlendFunc(blending.source, blending.target);
    glBlendColor(blending.constant[0], blending.constant[1], blending.constant[2], blending.constant[3]);
}

void emitAlphaTest(const ColorBufferGL::AlphaTest & test) {
    if (test.enabled)
        glEnable(GL_ALPHA_TEST);
    else
        glDisable(GL_ALPHA_TEST);
    glAlphaFunc(test.function, static_cast<GLclampf>(test.reference));
}

/// The attribute that says what `operation` is: the highest of the lower `count` entries that sets it; null
/// for none.
const ColorBufferGL * deciding(const Stack<SO<MonoAttribute>> * stack, unsigned count, unsigned operation) {
    while (count-- > 0) {
        const auto * entry = static_cast<const ColorBufferGL *>(stack->get(count).get());
        if (entry->operations() & (operation | ColorBufferGL::O_All)) return entry;
    }
    return nullptr;
}

class ColorBufferPainterGL : public MonoAttributePainter {
public:
    ID target() const override { return ColorBufferGL::ClassNameNBX(); }

    bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) override {
        const auto * stack = engine->monoTable(attribute->category());
        unsigned count = stack ? stack->size() : 0;
        if (!entering && count > 0 && stack->top().get() == attribute) --count;

        const ColorBufferGL * entry = deciding(stack, count, ColorBufferGL::O_Blending);
        emitBlending(entry ? entry->blending() : ColorBufferGL::Blending());
        entry = deciding(stack, count, ColorBufferGL::O_AlphaTest);
        emitAlphaTest(entry ? entry->alphaTest() : ColorBufferGL::AlphaTest());
        entry = deciding(stack, count, ColorBufferGL::O_Lock);
        const auto writes = [&](unsigned i) -> GLboolean { return !entry || entry->writes(i); };
        glColorMask(writes(0), writes(1), writes(2), writes(3));
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(ColorBufferPainterGL)

} // namespace NBX
