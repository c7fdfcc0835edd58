#include <nbx/gl/effect/texturingeffectgl.h>

namespace NBX {

NBX_CLASS_IMPL(TexturingEffectGL, MonoAttribute)

TexturingEffectGL::TexturingEffectGL(bool enabled) : MonoAttribute(enabled) {}

ID TexturingEffectGL::category() const {
    return ClassNameNBX();
}

bool TexturingEffectGL::isPassEffect() const {
    return true;
}

} // namespace NBX
