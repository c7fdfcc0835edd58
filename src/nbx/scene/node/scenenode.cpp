#include <nbx/scene/node/scenenode.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_CLASS_IMPL(SceneNode, RenderObj)

void SceneNode::setNodeState(unsigned state) {
    if (nodeState_ == state) return;
    nodeState_ = state;
    modified();
}

void SceneNode::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<RenderObj>(m, this);
    attributeWithDefault(m, "nodeState", nodeState_, NS_Bounds | NS_Renders);
}

} // namespace NBX
