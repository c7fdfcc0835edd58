#include "scenecontent.h"

#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/shape.h>

namespace ZMT::CORE {

namespace {

/// Undefined for what has none, and for composite nodes, whose objects have their own.
NBX::Bounds boxOf(NBX::RenderObj * object, NBX::Engine * engine) {
    if (const auto * shape = dynamic_cast<const NBX::Shape *>(object)) return shape->boundingBox();
    if (dynamic_cast<const NBX::SceneThing *>(object)) return {};
    auto * node = dynamic_cast<NBX::SceneNode *>(object);
    return node ? node->boundingBox(engine) : NBX::Bounds();
}

} // namespace

bool SceneContent::meets(NBX::SceneNode * node, const NBX::Bounds & box, NBX::Engine * engine) {
    if (!node) return false;
    const auto * thing = dynamic_cast<const NBX::SceneThing *>(node);
    if (!thing) return node->boundingBox(engine).intersects(box);
    const bool meetsNothing =
        thing->traverse([&](NBX::RenderObj * object, const NBX::Matrix4x4Base<double> & toScene) {
            const NBX::Bounds own = boxOf(object, engine);
            return !own.isDefined() || !own.transform(toScene).intersects(box);
        });
    return !meetsNothing;
}

} // namespace ZMT::CORE
