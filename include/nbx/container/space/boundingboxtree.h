#pragma once

#include <memory>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// Finds the boxes that overlap a given one. Boxes lie in the smallest node that contains them, and a node
/// that gets too many is halved along its longest axis.
class BoundingBoxTree : public SharedObj {
    NBX_CLASS(BoundingBoxTree, SharedObj)
public:
    /// A node is halved when it holds more than `boxesPerNode` boxes and lies less than `maxDepth` deep.
    /// Boxes outside of `space` are found as well, only not as fast.
    BoundingBoxTree(const Bounds & space, unsigned boxesPerNode, unsigned maxDepth);
    ~BoundingBoxTree() override;

    /// `number` is the caller's. An undefined box is reported and left out.
    void insert(const Bounds & box, int number);
    /// Takes one box out that was inserted with the same values; false when there is none.
    bool remove(const Bounds & box, int number);
    unsigned size() const { return size_; }

    /// The numbers of the boxes that overlap or touch `box`, in ascending order.
    std::vector<int> findOverlappingBoxes(const Bounds & box) const;

private:
    struct Node;

    std::unique_ptr<Node> root_;
    unsigned boxesPerNode_;
    unsigned maxDepth_;
    unsigned size_ = 0;
};

} // namespace NBX
