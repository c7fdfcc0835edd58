#pragma once

#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/texturedtriangles/rendernode.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

/// Which nodes of a tree make one picture of it, and what that picture would like. Of OpenGL it needs nothing
/// but to know which atlases are there.
class TreeWalkGL {
public:
    using Node = RenderTree::NodePointer;
    using Data = NBX::MappedVertexAttributeDataGL;

    enum class How {
        Passed,  ///< its children are drawn
        Whole,   ///< by the atlas of the node, or of the nearest ancestor that has one
        Original ///< by the source textures of the leaf
    };
    struct Visit {
        Node node;
        double distance2; ///< from the eye to the bounds, squared
        How how;
        bool wantsChildren;  ///< an inner node whose own atlas does not suffice
        bool wantsOriginals; ///< a leaf whose own atlas does not suffice
        const Data * batch;  ///< that the node belongs to; null without one
    };

    TreeWalkGL(const TexturedTriangleTree & tree, const NBX::ViewInfo & view);

    /// The nodes that are in view and within the far limit, those to be drawn and those above them, a near
    /// one before a far one among the children of a node.
    const std::vector<Visit> & visits() const { return visits_; }

    /// A leaf that is near enough for its source textures has no array of them, and is drawn by an atlas.
    bool lacksOriginals() const { return lacksOriginals_; }

    /// The layer by whose atlases it is decided whether children can be drawn: the first one that is enabled;
    /// -1 where none is.
    int leadingLayer() const { return leadingLayer_; }
    bool isEnabled(int layer) const;

    /// How far the atlases of the children of `node` are blended in: 0 at the distance from which they are
    /// drawn, 1 somewhat nearer. Always 1 without blending.
    double weightBelow(const Node & node) const;
    /// The same for the source textures of a leaf.
    double weightOfOriginals(const Visit & visit) const;

    /// From the eye to the bounds of a node, squared.
    double distance2(const Node & node) const { return view_.distance2(node->content.bounds); }

    /// Beyond the far limit of the tree: neither drawn nor wanted.
    bool isBeyondLimit(const Node & node) const;

    /// The atlas of a layer is in memory and can be drawn.
    static bool hasAtlas(const RenderNode & node, int layer);

private:
    void visit(const Node & node, const Data * batch);
    bool canDrawChildren(const Node & node) const;
    void pushChildren(const Node & node, const Data * batch);
    double weight(double minDistance, double distance2) const;

    struct Waiting {
        Node node;
        const Data * batch;
        double distance2;
    };

    const TexturedTriangleTree & tree_;
    RenderTree & nodes_;
    const NBX::ViewInfo & view_;
    int leadingLayer_ = -1;
    bool lacksOriginals_ = false;
    std::vector<Waiting> stack_;
    std::vector<Visit> visits_;
};

} // namespace ZMT::CORE
