// A technique that draws nothing: it keeps the polygon and line sets, and leaves every other shape to the
// simplifier of its class, as if it had no painter. Composites are taken apart here, as
// they may be nested deep.

#include "simpleshapes.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <nbx/engine/handler.h>
#include <nbx/engine/technique.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/tf.h>

namespace NBX {

namespace {

const char * const s_service = "NBX::SimpleShapes";

/// Lets the technique see all shapes.
class ShapeCollector : public Handler {
    NBX_TEMPLATE_CLASS(ShapeCollector, Handler)
public:
    ID service() const override { return s_service; }
    ID target() const override { return Shape::ClassNameNBX(); }
};

/// Lets the technique see all attributes.
class AttributeCollector : public Handler {
    NBX_TEMPLATE_CLASS(AttributeCollector, Handler)
public:
    ID service() const override { return s_service; }
    ID target() const override { return MonoAttribute::ClassNameNBX(); }
};

bool isSimple(const Shape * shape) {
    return dynamic_cast<const PolygonSet *>(shape) || dynamic_cast<const LineSet *>(shape);
}

class CollectingTechnique : public Technique {
    NBX_TEMPLATE_CLASS(CollectingTechnique, Technique)
public:
    ID service() const override { return s_service; }

    bool process(Engine * engine, Handler *, const Shape * shape) override {
        if (!isSimple(shape) && !dynamic_cast<const Composite *>(shape)) return false;
        SimpleShape found{SO<Shape>(const_cast<Shape *>(shape)), engine->modelMatrix(), {}};
        for (const SO<MonoAttribute> & attribute : pushed_)
            if (engine->getAttribute(attribute->category()) == attribute.get() &&
                std::find(found.attributes.begin(), found.attributes.end(), attribute) ==
                    found.attributes.end())
                found.attributes.push_back(attribute);
        shapes.push_back(std::move(found));
        return true;
    }

    /// Notes the attribute, and leaves it to its simplifier.
    bool apply(Engine *, Handler *, const MonoAttribute * attribute, bool) override {
        if (!dynamic_cast<const Tf *>(attribute))
            pushed_.emplace_back(const_cast<MonoAttribute *>(attribute));
        return false;
    }

    /// Simple ones and composites.
    std::vector<SimpleShape> shapes;

private:
    std::vector<SO<MonoAttribute>> pushed_;
};

/// What the engine comes to for a shape that is not simple: simple shapes and composites.
std::vector<SimpleShape> simplified(Engine & engine, const SimpleShape & place) {
    const SO<SceneThing> node(new SceneThing());
    if (!(place.matrix == engine.modelMatrix()))
        node->append(new Tf(engine.modelMatrix().inverse() * place.matrix));
    for (const SO<MonoAttribute> & attribute : place.attributes)
        node->append(attribute.get());
    node->append(place.shape.get());
    const SO<CollectingTechnique> technique(new CollectingTechnique());
    engine.evaluate(node.get(), technique.get());
    return std::move(technique->shapes);
}

std::vector<SimpleShape> membersOf(const Composite & composite, const SimpleShape & place) {
    std::vector<SimpleShape> members;
    for (unsigned i = 0; i < composite.shapes(); ++i)
        if (composite.shape(i)->isEnabled())
            members.push_back({SO<Shape>(composite.shape(i)), place.matrix, place.attributes});
    return members;
}

} // namespace

std::vector<SimpleShape> simpleShapes(Engine & engine, Shape * shape) {
    std::vector<SimpleShape> result, waiting{{SO<Shape>(shape), engine.modelMatrix(), {}}};
    while (!waiting.empty()) {
        SimpleShape place = std::move(waiting.back());
        waiting.pop_back();
        if (isSimple(place.shape.get())) {
            result.push_back(std::move(place));
            continue;
        }
        const auto * composite = dynamic_cast<const Composite *>(place.shape.get());
        std::vector<SimpleShape> next = composite ? membersOf(*composite, place) : simplified(engine, place);
        waiting.insert(waiting.end(), std::make_move_iterator(next.rbegin()),
                       std::make_move_iterator(next.rend()));
    }
    return result;
}

NBX_REGISTER_HANDLER(ShapeCollector)
NBX_REGISTER_HANDLER(AttributeCollector)

} // namespace NBX
