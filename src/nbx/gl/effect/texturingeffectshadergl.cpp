#include <nbx/gl/effect/texturingeffectshadergl.h>

namespace NBX {

NBX_CLASS_IMPL(TexturingEffectShaderGL, Handler)

ID TexturingEffectShaderGL::service() const {
    return ClassNameNBX();
}

bool TexturingEffectShaderGL::canBeUsed(Engine *, const MonoAttribute *) const {
    return true;
}

} // namespace NBX
