#pragma once

#include <vector>

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

/// Moves the models of trees up and down, each by itself. The heights that vertices and boxes have of
/// themselves are kept beside as long as any model is moved, so that nothing adds up.
///
/// What several trees share is moved once. Copies of a tree have its meshes, but boxes of their own: those
/// that are drawn are to be among the trees. Belongs to the render thread, like the trees.
class ModelLift {
public:
    explicit ModelLift(std::vector<NBX::SO<TexturedTriangleTree>> trees) : trees_(std::move(trees)) {}

    /// Every vertex stands at its own height plus that of its model in `lifts`, by number; those whose model
    /// has none there, by `rest`. Zero everywhere is how the trees were made, to the bit.
    void set(const std::vector<double> & lifts, double rest);

private:
    using Mesh = NBX::MappedVertexAttributeShapeGL;

    struct Heights {
        NBX::SO<Mesh::Buffer> positions;
        NBX::SO<Mesh::Buffer> models; ///< null where no vertex has a model
        std::vector<float> own;
    };
    struct Box {
        RenderTree * tree;
        RenderTree::NodePointer node;
        NBX::Bounds own;
        NBX::SO<Mesh::Buffer> positions; ///< of a leaf; null without any
    };

    void keep();
    void keepNodes(RenderTree & nodes);
    void keepHeights(const NBX::SO<Mesh::Data> & data);
    void moveBoxes(double rest);
    void putBack();

    std::vector<NBX::SO<TexturedTriangleTree>> trees_;
    std::vector<Heights> heights_; ///< both empty while nothing is moved
    std::vector<Box> boxes_;       ///< parents first
};

} // namespace ZMT::CORE
