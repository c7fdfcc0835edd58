#pragma once

#include <nbx/engine/handler.h>

namespace NBX {

class Engine;
class EngineGL;
class MonoAttribute;
class PassesSetup;
class TexturingEffectGL;

/// Base of the handlers that turn a texturing effect into passes of texture stages.
class TexturingEffectShaderGL : public Handler {
    NBX_CLASS(TexturingEffectShaderGL, Handler)
public:
    /// The name of this class.
    ID service() const override;
    /// Whether the driver can do the effect; otherwise it is left out, which is reported once for its class.
    virtual bool canBeUsed(Engine * engine, const MonoAttribute * effect) const;
    /// Adds the effect on top of what `passes` has.
    virtual void updatePasses(EngineGL * engine, TexturingEffectGL * effect, PassesSetup & passes) = 0;
};

} // namespace NBX
