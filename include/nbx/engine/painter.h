#pragma once

#include <nbx/engine/handler.h>

namespace NBX {

class Engine;

/// Base of the handlers that draw.
class Painter : public Handler {
    NBX_CLASS(Painter, Handler)
public:
    ID service() const override;
};

} // namespace NBX
