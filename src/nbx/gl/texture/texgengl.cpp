#include <nbx/gl/texture/texgengl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/gl/texture/textureunitsettinggl.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(TexGenGL, MonoAttribute)

namespace {

const GLenum coordinates[] = {GL_S, GL_T, GL_R, GL_Q};
const GLenum enables[] = {GL_TEXTURE_GEN_S, GL_TEXTURE_GEN_T, GL_TEXTURE_GEN_R, GL_TEXTURE_GEN_Q};

GLint modeValue(TexGenGL::Mode mode) {
    switch (mode) {
    case TexGenGL::M_EyeLinear:
        return GL_EYE_LINEAR;
    case TexGenGL::M_SphereMap:
        return GL_SPHERE_MAP;
    case TexGenGL::M_ObjectLinear:
        break;
    }
    return GL_OBJECT_LINEAR;
}

void disableFrom(int first) {
    for (int i = first; i < 4; ++i)
        glDisable(enables[i]);
}

} // namespace

TexGenGL::TexGenGL(Mode mode, const Matrix4x4Base<double> & planes)
    : MonoAttribute(true), mode_(mode), planes_(planes) {}

void TexGenGL::setPlanes(const Matrix4x4Base<double> & planes) {
    if (planes == planes_) return;
    planes_ = planes;
    modified();
}

void TexGenGL::enable() const {
    const int count = mode_ == M_SphereMap ? 2 : 4;
    const GLenum plane = mode_ == M_EyeLinear ? GL_EYE_PLANE : GL_OBJECT_PLANE;
    for (int i = 0; i < count; ++i) {
        glTexGeni(coordinates[i], GL_TEXTURE_GEN_MODE, modeValue(mode_));
        if (mode_ != M_SphereMap) glTexGendv(coordinates[i], plane, &planes_.rows()[std::size_t(i) * 4]);
        glEnable(enables[i]);
    }
    disableFrom(count);
}

void TexGenGL::disable() {
    disableFrom(0);
}

void TexGenGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    int mode = mode_;
    attributeWithDefault(m, "mode", mode, int(M_ObjectLinear));
    if (m.isReading()) mode_ = 0 <= mode && mode <= M_SphereMap ? static_cast<Mode>(mode) : M_ObjectLinear;
    attributeWithDefault(m, "planes", planes_, Matrix4x4Base<double>());
}

namespace {

void apply(EngineGL & engine, const TexGenGL & attribute, bool entering) {
    TextureUnitSettingGL::updateTexGens(&engine, entering ? nullptr : &attribute);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(TexGenGL, apply)

} // namespace NBX
