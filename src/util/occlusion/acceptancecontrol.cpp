#include "acceptancecontrol.h"

#include <nbx/engine/engine.h>
#include <nbx/engine/shapepainter.h>

namespace ZMT::UTIL {

NBX_CLASS_IMPL(AcceptanceControl, NBX::Shape)

namespace {

class AcceptanceControlPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(AcceptanceControlPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return AcceptanceControl::ClassNameNBX(); }

    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        const auto & control = static_cast<const AcceptanceControl &>(*shape);
        if (control.accepts())
            engine->regard(control.category());
        else
            engine->disregard(control.category());
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER(AcceptanceControlPainter)

} // namespace ZMT::UTIL
