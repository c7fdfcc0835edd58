#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

/// Tree over a box in `D` dimensions, each inner node of which has 2 to the power of `D` children: two
/// halves an axis. Nodes hold a content of type `T`. Node content and structure are the user's: how the
/// box is divided among children is not prescribed.
template <class T, unsigned D> class SpaceTree : public SharedObj {
    using Self = SpaceTree;
    NBX_TEMPLATE_CLASS(Self, SharedObj)
public:
    static constexpr unsigned s_childrenOfNode = 1U << D;

    struct Node {
        T content{};
    };

    /// Names one node of one tree and keeps the tree alive; so it must not be kept in a node's content. The
    /// default one is undefined.
    class NodePointer {
    public:
        NodePointer() = default;
        NodePointer(std::uint64_t identifier, Node * node, SpaceTree * tree)
            : identifier_(identifier), node_(node), tree_(tree) {}

        bool isDefined() const { return node_ != nullptr; }
        explicit operator bool() const { return isDefined(); }
        /// Counted from 1 for the root; unique in the tree; 0 when undefined.
        std::uint64_t identifier() const { return identifier_; }
        SpaceTree * tree() const { return tree_.get(); }
        Node * operator->() const { return node_; }
        Node & operator*() const { return *node_; }

        bool operator==(const NodePointer & other) const {
            return identifier_ == other.identifier_ && tree_ == other.tree_;
        }
        /// Order of the trees' addresses, then of the identifiers.
        bool operator<(const NodePointer & other) const {
            return tree_ == other.tree_ ? identifier_ < other.identifier_ : tree_ < other.tree_;
        }

    private:
        std::uint64_t identifier_ = 0;
        Node * node_ = nullptr;
        SO<SpaceTree> tree_;
    };

    /// The box: dimension `d` runs from `minimum[d]` to `maximum[d]` along the world axis `axes[d]` (0 to 2).
    SpaceTree(const std::array<double, D> & minimum, const std::array<double, D> & maximum,
              const std::array<unsigned, D> & axes)
        : minimum_(minimum), maximum_(maximum), axes_(axes) {}

    double minimum(unsigned d) const { return minimum_[d]; }
    double maximum(unsigned d) const { return maximum_[d]; }
    unsigned axis(unsigned d) const { return axes_[d]; }

    virtual NodePointer root() = 0;
    virtual unsigned numberOfNodes() const = 0;
    /// Undefined for the root.
    virtual NodePointer parent(const NodePointer & node) = 0;
    virtual bool hasChildren(const NodePointer & node) const = 0;
    /// Child `i` of an inner node; undefined for a leaf.
    virtual NodePointer child(const NodePointer & node, unsigned i) = 0;
    /// 0 for the root.
    virtual unsigned depth(const NodePointer & node) const = 0;

    /// Which child each node on the way from the root to `node` is, that of the root's child first; empty for
    /// the root.
    std::vector<unsigned> path(const NodePointer & node) {
        std::vector<unsigned> digits;
        for (NodePointer at = node, above; at; at = above) {
            above = parent(at);
            for (unsigned i = 0; above && i < s_childrenOfNode; ++i)
                if (child(above, i) == at) digits.push_back(i);
        }
        std::reverse(digits.begin(), digits.end());
        return digits;
    }

protected:
    SpaceTree() : minimum_{}, maximum_{}, axes_{} {}

    std::array<double, D> minimum_, maximum_;
    std::array<unsigned, D> axes_;
};

} // namespace NBX
