#pragma once

#include <cstddef>
#include <map>
#include <tuple>
#include <vector>

#include <nbx/math/area.h>

namespace ZMT::CORE {

/// One rectangle of a tree, with its share of the progress scale.
struct TreePart {
    NBX::Area domain;   ///< in cells
    unsigned level = 0; ///< 0 at the root
    double progressOffset = 0.0;
    double progressScale = 1.0;
};

/// The shape of a tree of levels of detail, which follows from the size of its grid and the budget alone.
class TreePlan {
public:
    explicit TreePlan(unsigned maxVertices) : maxVertices_(maxVertices) {}

    unsigned maxVertices() const { return maxVertices_; }
    bool isLeaf(const TreePart & part) const;
    /// Two or four, in the order of the children.
    static std::vector<TreePart> cut(const TreePart & part);
    /// Number of patches with children in the tree over `part`, itself included.
    std::size_t innerNodes(const TreePart & part);

private:
    unsigned maxVertices_;
    /// By width, height and level, since most rectangles of a level have the same size.
    std::map<std::tuple<unsigned, unsigned, unsigned>, std::size_t> innerNodes_;
};

} // namespace ZMT::CORE
