#include <nbx/gl/context/techniquegl.h>

#include <nbx/gl/context/enginegl.h>

namespace NBX {

NBX_CLASS_IMPL(TechniqueGL, Technique)

bool TechniqueGL::canBeUsed(Engine * engine) const {
    return dynamic_cast<EngineGL *>(engine) != nullptr;
}

} // namespace NBX
