// The part of LODNode that speaks to an engine, kept out of the scene's own folder.

#include <nbx/scene/node/lodnode.h>

#include <nbx/engine/engine.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

void LODNode::evaluate(Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !renders()) return;
    const SO<LODNode> held(this);
    // View coordinates keep the lengths of the scene.
    const double distance = (engine->modelViewMatrix() * center_).length();
    if (const SO<SceneNode> level = levelAt(distance)) level->evaluate(engine);
}

} // namespace NBX
