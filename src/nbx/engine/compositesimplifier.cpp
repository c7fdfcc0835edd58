#include <nbx/engine/engine.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/scene/composite.h>

namespace NBX {

namespace {

/// Paints the members of a composite.
class CompositeSimplifier : public ShapeSimplifier {
    NBX_CLASS(CompositeSimplifier, ShapeSimplifier)
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

NBX_CLASS_IMPL(CompositeSimplifier, ShapeSimplifier)

[[maybe_unused]] const bool registered = (Engine::registerHandler(new CompositeSimplifier()), true);

} // namespace

} // namespace NBX
