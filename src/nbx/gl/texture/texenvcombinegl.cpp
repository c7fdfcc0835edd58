#include <nbx/gl/texture/texenvcombinegl.h>

#include <iterator>

#include <GL/glew.h>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(TexEnvCombineGL, TexEnvGL)

namespace {

static_assert(sizeof(TexEnvCombineGL::Argument) == 8);

const GLenum colorSources[] = {GL_SOURCE0_RGB, GL_SOURCE1_RGB, GL_SOURCE2_RGB};
const GLenum colorOperands[] = {GL_OPERAND0_RGB, GL_OPERAND1_RGB, GL_OPERAND2_RGB};
const GLenum alphaSources[] = {GL_SOURCE0_ALPHA, GL_SOURCE1_ALPHA, GL_SOURCE2_ALPHA};
const GLenum alphaOperands[] = {GL_OPERAND0_ALPHA, GL_OPERAND1_ALPHA, GL_OPERAND2_ALPHA};

void emit(GLenum name, unsigned value) {
    glTexEnvi(GL_TEXTURE_ENV, name, static_cast<GLint>(value));
}

} // namespace

TexEnvCombineGL::TexEnvCombineGL() : TexEnvGL(M_Combine) {
    setColor(GL_REPLACE, {GL_PREVIOUS, GL_SRC_COLOR});
    setAlpha(GL_REPLACE, {GL_PREVIOUS, GL_SRC_ALPHA});
}

void TexEnvCombineGL::setColor(unsigned mode, const Argument & a) {
    color_ = {mode, 1, {a, a, a}};
}

void TexEnvCombineGL::setColor(unsigned mode, const Argument & a, const Argument & b) {
    color_ = {mode, 2, {a, b, b}};
}

void TexEnvCombineGL::setColor(unsigned mode, const Argument & a, const Argument & b, const Argument & c) {
    color_ = {mode, 3, {a, b, c}};
}

void TexEnvCombineGL::setAlpha(unsigned mode, const Argument & a) {
    alpha_ = {mode, 1, {a, a, a}};
}

void TexEnvCombineGL::setAlpha(unsigned mode, const Argument & a, const Argument & b) {
    alpha_ = {mode, 2, {a, b, b}};
}

void TexEnvCombineGL::setColorScale(int scale) {
    NBX_CHECK(scale == 1 || scale == 2 || scale == 4, L"no such scale: " << scale);
    colorScale_ = scale;
}

void TexEnvCombineGL::enable() const {
    TexEnvGL::enable();
    emit(GL_COMBINE_RGB, color_.mode);
    emit(GL_COMBINE_ALPHA, alpha_.mode);
    for (unsigned i = 0; i < color_.count; ++i) {
        emit(colorSources[i], color_.arguments[i].source);
        emit(colorOperands[i], color_.arguments[i].operand);
    }
    for (unsigned i = 0; i < alpha_.count; ++i) {
        emit(alphaSources[i], alpha_.arguments[i].source);
        emit(alphaOperands[i], alpha_.arguments[i].operand);
    }
    glTexEnvf(GL_TEXTURE_ENV, GL_RGB_SCALE, static_cast<GLfloat>(colorScale_));
    glTexEnvf(GL_TEXTURE_ENV, GL_ALPHA_SCALE, 1.0F);
}

/// A damaged one is left as it was.
void TexEnvCombineGL::serializeFunction(SerializationManager & m, const char * name, Function & function) {
    Function stored = function;
    if (!m.rawAttribute(name, &stored, sizeof stored)) return;
    if (stored.count <= std::size(stored.arguments)) function = stored;
}

void TexEnvCombineGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<TexEnvGL>(m, this);
    serializeFunction(m, "color", color_);
    serializeFunction(m, "alpha", alpha_);
    attributeWithDefault(m, "colorScale", colorScale_, 1);
    if (colorScale_ != 1 && colorScale_ != 2 && colorScale_ != 4) colorScale_ = 1;
}

} // namespace NBX
