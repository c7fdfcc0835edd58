#pragma once

#include <nbx/math/bounds.h>
#include <nbx/scene/base/renderobj.h>

namespace NBX {

class Engine;

/// Base of the nodes of a scene. A node may hang below several others.
class SceneNode : public RenderObj {
    NBX_CLASS(SceneNode, RenderObj)
public:
    /// What a node takes part in; the values are joined with `|`.
    enum NodeState {
        NS_Bounds = 1,  ///< counts in the boxes of the nodes above
        NS_Renders = 2, ///< is evaluated
    };

    unsigned getNodeState() const { return nodeState_; }
    void setNodeState(unsigned state);

    /// Lets the engine process the node with its current technique. Nothing happens for a node that is
    /// disabled or whose state lacks `NS_Renders`.
    virtual void evaluate(Engine * engine) = 0;
    /// In the frame of the node above. `engine` may be null where no node below needs one.
    virtual Bounds boundingBox(Engine * engine) = 0;
    /// The same as `evaluate`, for callers that draw.
    void paint(Engine * engine) { evaluate(engine); }

    /// Attribute "nodeState", default 3.
    void serialize(SerializationManager & m) override;

protected:
    bool renders() const { return isEnabled() && (nodeState_ & NS_Renders) != 0; }

private:
    unsigned nodeState_ = NS_Bounds | NS_Renders;
};

} // namespace NBX
