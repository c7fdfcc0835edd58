#pragma once

#include <nbx/math/bounds.h>

namespace NBX {
class Engine;
class SceneNode;
} // namespace NBX

namespace ZMT::CORE {

/// Where something stands in a scene.
class SceneContent {
public:
    /// Whether the box of a shape below `node`, or of a node of another kind than the composite one, meets
    /// `box`, both in the frame in which `node` stands. False for null. `engine` may be null where no node
    /// needs one for its box.
    static bool meets(NBX::SceneNode * node, const NBX::Bounds & box, NBX::Engine * engine);
};

} // namespace ZMT::CORE
