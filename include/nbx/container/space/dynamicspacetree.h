#pragma once

#include <deque>

#include <nbx/container/sequence/serializevalues.h>
#include <nbx/container/space/spacetree.h>

namespace NBX {

/// Space tree that grows: at first it is its root alone, and leaves are given children. Can be stored when
/// its content can.
template <class T, unsigned D> class DynamicSpaceTree : public SpaceTree<T, D> {
    using Base = SpaceTree<T, D>;
    using Self = DynamicSpaceTree;
    NBX_STORED_TEMPLATE_CLASS(Self, Base)
public:
    using typename Base::Node;
    using typename Base::NodePointer;

    DynamicSpaceTree() : nodes_(1) {}
    DynamicSpaceTree(const std::array<double, D> & minimum, const std::array<double, D> & maximum,
                     const std::array<unsigned, D> & axes)
        : Base(minimum, maximum, axes), nodes_(1) {}

    NodePointer root() override { return pointer(1); }
    unsigned numberOfNodes() const override { return static_cast<unsigned>(nodes_.size()); }
    NodePointer parent(const NodePointer & node) override {
        return isOwn(node) ? pointer(entry(node).parent) : NodePointer();
    }
    bool hasChildren(const NodePointer & node) const override {
        return isOwn(node) && entry(node).firstChild != 0;
    }
    NodePointer child(const NodePointer & node, unsigned i) override {
        NBX_CHECK(i < Base::s_childrenOfNode, L"i out of range");
        return hasChildren(node) && i < Base::s_childrenOfNode ? pointer(entry(node).firstChild + i)
                                                               : NodePointer();
    }
    unsigned depth(const NodePointer & node) const override {
        unsigned depth = 0;
        if (!isOwn(node)) return depth;
        for (std::uint64_t id = entry(node).parent; id != 0; id = nodes_[id - 1].parent)
            ++depth;
        return depth;
    }

    /// Gives a leaf its children, with default content. A node that has some is reported and left alone.
    void createChildren(const NodePointer & node) {
        if (!isOwn(node)) return;
        NBX_CHECK(!hasChildren(node), L"the node has children");
        if (!hasChildren(node)) createChildren(node.identifier());
    }

    /// Attributes "minimum", "maximum" and "axes" as raw blocks, then the nodes level by level in a
    /// container "nodes": for each "hasChildren" and "content". Throws `IOError` when one is missing.
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
        m.rawAttribute("minimum", this->minimum_.data(), sizeof this->minimum_);
        m.rawAttribute("maximum", this->maximum_.data(), sizeof this->maximum_);
        m.rawAttribute("axes", this->axes_.data(), sizeof this->axes_);
        if (m.isReading()) nodes_ = std::deque<Entry>(1);
        if (!m.beginContainer(typeid(T).name(), "nodes")) return;
        serializeNodes(m);
        m.endContainer(typeid(T).name(), "nodes");
    }

private:
    struct Entry : Node {
        std::uint64_t parent = 0;
        std::uint64_t firstChild = 0; ///< its siblings follow; 0 for a leaf
    };

    bool isOwn(const NodePointer & node) const {
        NBX_CHECK(node.tree() == this, L"not a node of this tree");
        return node.tree() == this;
    }
    const Entry & entry(const NodePointer & node) const { return nodes_[node.identifier() - 1]; }
    NodePointer pointer(std::uint64_t identifier) {
        return identifier == 0 ? NodePointer() : NodePointer(identifier, &nodes_[identifier - 1], this);
    }
    void createChildren(std::uint64_t identifier) {
        nodes_[identifier - 1].firstChild = nodes_.size() + 1;
        for (unsigned i = 0; i < Base::s_childrenOfNode; ++i)
            nodes_.emplace_back().parent = identifier;
    }

    /// The identifiers of the nodes level by level, so far as they exist: reading adds some on the way.
    void serializeNodes(SerializationManager & m) {
        std::deque<std::uint64_t> waiting{1};
        for (; !waiting.empty(); waiting.pop_front()) {
            const std::uint64_t id = waiting.front();
            bool hasChildren = nodes_[id - 1].firstChild != 0;
            const bool hasFlag = m.attribute("hasChildren", hasChildren);
            const bool hasContent = serializeValue(m, "content", nodes_[id - 1].content);
            if (m.isReading() && !(hasFlag && hasContent)) throw IOError(L"stored tree is cut short");
            if (m.isReading() && hasChildren) {
                // Each node that waits for its turn still needs bytes of its own.
                if (waiting.size() > m.bytesLeft()) throw IOError(L"stored tree is cut short");
                createChildren(id);
            }
            for (unsigned i = 0; hasChildren && i < Base::s_childrenOfNode; ++i)
                waiting.push_back(nodes_[id - 1].firstChild + i);
        }
    }

    /// Node `n` has the identifier `n + 1`. A deque, so that nodes stay where they are.
    std::deque<Entry> nodes_;
};

} // namespace NBX
