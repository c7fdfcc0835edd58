#include <nbx/gl/texture/texenvgl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/gl/texture/textureunitsettinggl.h>

#include "nbx/scene/base/serializecolor.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(TexEnvGL, MonoAttribute)

namespace {

GLint modeValue(TexEnvGL::Mode mode) {
    switch (mode) {
    case TexEnvGL::M_Decal:
        return GL_DECAL;
    case TexEnvGL::M_Blend:
        return GL_BLEND;
    case TexEnvGL::M_Replace:
        return GL_REPLACE;
    case TexEnvGL::M_Add:
        return GL_ADD;
    case TexEnvGL::M_Combine:
        return GL_COMBINE;
    case TexEnvGL::M_Modulate:
        break;
    }
    return GL_MODULATE;
}

} // namespace

TexEnvGL::TexEnvGL(Mode mode) : MonoAttribute(true), mode_(mode) {}

void TexEnvGL::setEnvironmentColor(const Color & color) {
    if (color == environmentColor_) return;
    environmentColor_ = color;
    modified();
}

ID TexEnvGL::category() const {
    return ClassNameNBX();
}

void TexEnvGL::enable() const {
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, modeValue(mode_));
    glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, environmentColor_.data());
}

void TexEnvGL::disable() {
    static const TexEnvGL defaults(M_Modulate);
    defaults.TexEnvGL::enable();
}

void TexEnvGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    int mode = mode_;
    attributeWithDefault(m, "mode", mode, int(M_Modulate));
    if (m.isReading()) mode_ = M_Modulate <= mode && mode <= M_Combine ? static_cast<Mode>(mode) : M_Modulate;
    serializeColor(m, "environmentColor", environmentColor_, Color(0.0F, 0.0F, 0.0F, 0.0F));
}

namespace {

void apply(EngineGL & engine, const TexEnvGL & attribute, bool entering) {
    TextureUnitSettingGL::updateUnit(&engine, 0, entering ? nullptr : &attribute);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(TexEnvGL, apply)

} // namespace NBX
