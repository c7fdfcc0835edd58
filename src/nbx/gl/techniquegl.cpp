#include <nbx/gl/techniquegl.h>

#include <nbx/gl/enginegl.h>

namespace NBX {

NBX_CLASS_IMPL(TechniqueGL, Technique)

bool TechniqueGL::canBeUsed(Engine * engine) const {
    return dynamic_cast<EngineGL *>(engine) != nullptr;
}

} // namespace NBX
