#include <nbx/engine/engine.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/scene/shape/composite.h>

namespace NBX {

namespace {

/// Paints the members of a composite.
class CompositeSimplifier : public ShapeSimplifier {
    NBX_TEMPLATE_CLASS(CompositeSimplifier, ShapeSimplifier)
public:
    ID target() const override { return Composite::ClassNameNBX(); }

    bool simplify(Engine * engine, const Shape * shape) override {
        const auto * composite = dynamic_cast<const Composite *>(shape);
        if (!composite) return false;
        for (unsigned i = 0; i < composite->shapes(); ++i)
            engine->paint(SO<Shape>(composite->shape(i)).get());
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER(CompositeSimplifier)

} // namespace NBX
