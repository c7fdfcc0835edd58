#pragma once

#include <nbx/object/so.h>

namespace NBX {
class EngineGL;
}

namespace ZMT::CORE {

class TexturedTriangleTree;
class VisibilityManager;

/// What lasts from one picture to the next: which trees were seen by which engine, and which picture it is.
/// On the render thread.
class TreeViewsGL {
public:
    /// The one of a tree in the view of an engine, made where there is none. It goes with the tree, or when
    /// the engine gives up its context; those that are due to go are let go here.
    static NBX::SO<VisibilityManager> managerOf(TexturedTriangleTree * tree, NBX::EngineGL * engine);
    /// Whether a tree that some engine has a manager for is damaged for the first time: what is told of it is
    /// told once, not in every picture.
    static bool isDamageNew(const TexturedTriangleTree * tree);
    /// Whether this is the first call in the picture that the engine's canvas is drawing. Without a canvas
    /// every call is.
    static bool beginsPicture(const NBX::EngineGL * engine);
};

} // namespace ZMT::CORE
