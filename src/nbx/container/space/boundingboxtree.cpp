#include <nbx/container/space/boundingboxtree.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(BoundingBoxTree, SharedObj)

struct BoundingBoxTree::Node {
    struct Entry {
        Bounds box;
        int number;
        bool operator==(const Entry &) const = default;
    };

    Bounds space;
    unsigned depth;
    std::vector<Entry> entries;
    std::unique_ptr<Node> halves[2];
};

namespace {

bool contains(const Bounds & outer, const Bounds & inner) {
    return outer.containsPoint(inner.getLLF()) && outer.containsPoint(inner.getURB());
}

Bounds half(const Bounds & space, bool upper) {
    const Vector3Base<double> size = space.diagonal();
    const unsigned axis = size.x >= size.y && size.x >= size.z ? 0 : size.y >= size.z ? 1 : 2;
    Vector3Base<double> low = space.getLLF(), high = space.getURB();
    (upper ? low : high)[axis] = space.center()[axis];
    return Bounds(low, high);
}

} // namespace

BoundingBoxTree::BoundingBoxTree(const Bounds & space, unsigned boxesPerNode, unsigned maxDepth)
    : root_(new Node{space, 0, {}, {}}), boxesPerNode_(boxesPerNode), maxDepth_(maxDepth) {}

BoundingBoxTree::~BoundingBoxTree() = default;

namespace {

/// The deepest existing node for the box.
template <class Node> Node & nodeFor(Node & root, const Bounds & box) {
    Node * node = &root;
    while (node->halves[0]) {
        const auto fitting = std::find_if(std::begin(node->halves), std::end(node->halves),
                                          [&](const auto & h) { return contains(h->space, box); });
        if (fitting == std::end(node->halves)) break;
        node = fitting->get();
    }
    return *node;
}

/// Makes the halves and hands them the boxes that fit into one.
template <class Node> void divide(Node & node) {
    for (const bool upper : {false, true})
        node.halves[upper].reset(new Node{half(node.space, upper), node.depth + 1, {}, {}});
    std::erase_if(node.entries, [&](const auto & entry) {
        for (const auto & h : node.halves)
            if (contains(h->space, entry.box)) {
                h->entries.push_back(entry);
                return true;
            }
        return false;
    });
}

} // namespace

void BoundingBoxTree::insert(const Bounds & box, int number) {
    NBX_CHECK(box.isDefined(), L"box is undefined");
    if (!box.isDefined()) return;
    Node & node = nodeFor(*root_, box);
    node.entries.push_back({box, number});
    ++size_;
    if (node.entries.size() > boxesPerNode_ && node.depth < maxDepth_ && !node.halves[0] &&
        node.space.isDefined())
        divide(node);
}

bool BoundingBoxTree::remove(const Bounds & box, int number) {
    if (!box.isDefined()) return false;
    std::vector<Node::Entry> & entries = nodeFor(*root_, box).entries;
    const auto found = std::find(entries.begin(), entries.end(), Node::Entry{box, number});
    if (found == entries.end()) return false;
    entries.erase(found);
    --size_;
    return true;
}

std::vector<int> BoundingBoxTree::findOverlappingBoxes(const Bounds & box) const {
    std::vector<int> result;
    std::vector<const Node *> open{root_.get()};
    while (!open.empty()) {
        const Node * node = open.back();
        open.pop_back();
        for (const Node::Entry & entry : node->entries)
            if (entry.box.intersects(box)) result.push_back(entry.number);
        for (const auto & h : node->halves)
            if (h && h->space.intersects(box)) open.push_back(h.get());
    }
    std::sort(result.begin(), result.end());
    return result;
}

} // namespace NBX
