#pragma once

#include <nbx/engine/handler.h>

namespace NBX {

class Engine;

/// Base of the handlers that express an object by simpler ones, for what has no handler of the wanted
/// service.
class Simplifier : public Handler {
    NBX_CLASS(Simplifier, Handler)
public:
    ID service() const override;
    /// True when what it hands to the engine is never simplified again, so that the result is plain polygons
    /// or lines.
    virtual bool isSimple() const { return false; }
};

} // namespace NBX
