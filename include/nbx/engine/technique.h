#pragma once

#include <nbx/object/id.h>
#include <nbx/scene/base/renderobj.h>

namespace NBX {

class Engine;
class Handler;
class MonoAttribute;
class Shape;

/// A way in which the engine runs through a scene. This class draws it in one pass; subclasses use several
/// passes, or other services than painting.
class Technique : public RenderObj {
    NBX_CLASS(Technique, RenderObj)
public:
    /// Brackets a run. `start` activates the first pass that is used.
    virtual void start(Engine * engine);
    virtual void stop(Engine * engine);
    /// Makes `pass` the current one; -1 is none.
    virtual void activatePass(int pass);
    /// Activates the next pass that is used; false behind the last one, with none active.
    virtual bool nextPass(Engine * engine);
    /// Whether pass `pass`, counted from 0, exists and is to run. Passes beyond `maxPasses` are never asked
    /// for.
    virtual bool usesPass(int pass) const;
    /// False: the engine leaves the whole run out.
    virtual bool canBeUsed(Engine * engine) const;
    int activePass() const { return activePass_; }
    static constexpr int maxPasses = 64;

    /// The service whose handlers are asked for shapes and mono attributes, before the simplifiers.
    virtual ID service() const;
    /// Lets `handler`, which is of this service, process the shape; true when that is done.
    virtual bool process(Engine * engine, Handler * handler, const Shape * shape);
    /// The same for an attribute that becomes or ceases to be the current one.
    virtual bool apply(Engine * engine, Handler * handler, const MonoAttribute * attribute, bool entering);

private:
    int nextUsedPass(int after) const;

    int activePass_ = -1;
};

} // namespace NBX
