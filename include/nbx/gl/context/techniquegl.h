#pragma once

#include <nbx/engine/technique.h>

namespace NBX {

/// A technique that draws with OpenGL what the attributes of one class ask for, in as many passes as the
/// hardware needs. It runs on engines of the class `EngineGL` alone.
class TechniqueGL : public Technique {
    NBX_CLASS(TechniqueGL, Technique)
public:
    /// The name of the attribute class that it implements.
    virtual ID target() const = 0;
    /// True for an engine that draws with OpenGL.
    bool canBeUsed(Engine * engine) const override;
};

} // namespace NBX
