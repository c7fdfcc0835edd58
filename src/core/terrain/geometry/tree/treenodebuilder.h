#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h>
#include <zmt/core/terrain/geometry/tree/mytinpointaccessor.h>

#include "surfacescan.h"
#include "treeplan.h"

namespace ZMT::CORE {

/// What all nodes of a tree have in common. Read by all threads that build it.
struct TreeFrame {
    NBX::SO<GridData> grid;
    double wall;
    unsigned maxVertices;
    /// A random number for each node with children, in the order in which the recursion completes them.
    std::vector<unsigned> draws;
};

/// What the parent of a node needs of it.
struct KeptVertices {
    std::vector<unsigned> numbers; ///< of the grid
    /// Those of the leaves below that are not on the grid.
    std::vector<NBX::Vector3Base<double>> microVertices;

    void append(const KeptVertices & other);
};

/// Builds nodes of one tree: leaves as they are, and what lies above them by greedy refinement. Used by one
/// thread at a time. The working memory is kept from node to node.
class TreeNodeBuilder {
public:
    using Point = MyTinPointAccessor::Point;
    using Children = NBX::Array<NBX::SO<GeometryPatch>>;
    /// Told where on the progress scale a node begins. False stops the construction.
    using GoOn = std::function<bool(double progress)>;

    TreeNodeBuilder(const TreeFrame & frame, GoOn goOn);

    /// A node with all that lies below it. Draw `firstDraw` is that of the first node with children among
    /// them. Appends to `kept` what the node uses. Null when stopped.
    NBX::SO<GeometryPatch> build(const TreePart & part, std::size_t firstDraw, KeptVertices & kept);

    /// What comes first at a node: its domain is checked, and `GoOn` asked.
    bool enter(const TreePart & part) const;

    /// A node over its children and what they kept, with its own draw.
    NBX::SO<GeometryPatch> buildTin(const NBX::Area & domain, const NBX::SO<Children> & children,
                                    KeptVertices && below, std::size_t draw, KeptVertices & kept);

    /// Where the strips of the latest node converge.
    const Point & centre() const { return centre_; }

private:
    using Accessor = MyTinPointAccessor;

    NBX::SO<GeometryPatch> buildNode(const TreePart & part, KeptVertices & kept);
    NBX::SO<GeometryPatch> buildLeaf(const NBX::Area & domain, KeptVertices & kept) const;
    void appendMicroVertices(const NBX::Area & domain, NBX::Bounds & box, KeptVertices & kept) const;
    void refine(const NBX::Area & domain, std::vector<unsigned> & candidates);
    void appendBorder(const NBX::Area & domain, std::vector<unsigned> & candidates) const;
    double microDistance(const NBX::Area & domain, const std::vector<Point> & microVertices) const;
    NBX::SO<NBX::Array<unsigned>> rankNodes();
    NBX::SO<NBX::Array<unsigned short>> localNumbers(const std::vector<TinNode> & nodes) const;
    NBX::SO<NBX::Array<unsigned short>> borderNumbers(unsigned startCorner, unsigned endCorner) const;
    void setParentHeights(GeometryPatch * child) const;

    const TreeFrame & frame_;
    const GridData & grid_;
    TreePlan plan_;
    GoOn goOn_;
    std::size_t nextDraw_ = 0;
    Tin<Accessor> tin_;
    TinAlgorithmPointsToTin<Accessor> refinement_;
    SurfaceScan surface_;
    std::vector<std::uint64_t> order_;  ///< number and place of each node, ascending
    std::vector<unsigned short> ranks_; ///< of each node
    Point centre_;
};

} // namespace ZMT::CORE
