#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <tuple>
#include <unordered_map>
#include <vector>

#include <zmt/core/texturedtriangles/rendernode.h>

namespace ZMT::CORE {

class TexturedTriangleTree;

/// The textures of trees that are in memory, those wanted most first, within a budget of block bytes. It
/// holds the atlases, which nodes only watch, and takes what goes out of the nodes.
///
/// Several leaves may share the block of a source texture: it is one object then, and counts once. Belongs to
/// the render thread.
class DistanceSortedNodeList : public NBX::SharedObj {
    NBX_CLASS(DistanceSortedNodeList, NBX::SharedObj)
public:
    /// One texture of one node: wanted, under way or in memory.
    struct NodeRef {
        /// The texture; null before it is there.
        NBX::SO<NBX::SharedObj> data;
        /// Not held: a tree that is looked at would never die otherwise, since it is its destructor that has
        /// its references taken out, by `TTTMemoryController::notifyTreeDestruction`. That is also why the
        /// address stays good.
        TexturedTriangleTree * tree = nullptr;
        /// Keeps the nodes of the tree, not the tree.
        RenderTree::NodePointer node;
        /// From the eye to the bounds of the node, in units of the tree.
        double distance = 0.0;
        /// A source texture of a leaf, else an atlas.
        bool original = false;
        /// The layer of an atlas, the number of a source texture.
        int textureNumber = 0;
        /// That were last seen of the node.
        int pixelCount = 0;
        /// 0: to be drawn now, 1: wanted, 2: not asked for any more.
        int urgency = 2;
        /// Of the node in its tree.
        unsigned depth = 0;

        /// Who it is: by the address of the node, then that of the tree, atlases before source textures, then
        /// by number. Never by what it is worth.
        bool operator<(const NodeRef & other) const;
        bool isSame(const NodeRef & other) const {
            return node.operator->() == other.node.operator->() && tree == other.tree &&
                   original == other.original && textureNumber == other.textureNumber;
        }
    };

    /// For tables of references by what they are.
    struct RefHash {
        std::size_t operator()(const NodeRef & ref) const {
            return std::hash<const void *>()(ref.node.operator->()) * 31 +
                   std::hash<const void *>()(ref.tree) + 2 * static_cast<std::size_t>(ref.textureNumber) +
                   (ref.original ? 1 : 0);
        }
    };
    struct SameRef {
        bool operator()(const NodeRef & a, const NodeRef & b) const { return a.isSame(b); }
    };

    /// Where a texture lies: what is one block is one texture.
    struct Block {
        const TexturedTriangleTree * tree = nullptr;
        int layer = 0; ///< of the paging file
        bool original = false;
        std::uint64_t position = 0, size = 0;

        bool operator==(const Block &) const = default;
        bool operator<(const Block & other) const {
            const auto key = [](const Block & b) {
                return std::tie(b.tree, b.layer, b.original, b.position, b.size);
            };
            return key(*this) < key(other);
        }
    };
    struct BlockHash {
        std::size_t operator()(const Block & block) const {
            return std::hash<std::uint64_t>()(block.position * 31 + block.size) * 31 +
                   std::hash<const void *>()(block.tree) + 2 * static_cast<std::size_t>(block.layer) +
                   (block.original ? 1 : 0);
        }
    };

    explicit DistanceSortedNodeList(int budget);
    ~DistanceSortedNodeList() override;

    /// Whether `a` is wanted more than `b`: those of enabled layers first, then by urgency, pixels, distance
    /// and depth. Source textures count as layer 0.
    static bool isWantedMore(const NodeRef & a, const NodeRef & b);
    /// Sorts by it; those that are wanted alike stay as they are.
    static void sort(std::vector<NodeRef> & refs);
    /// Where the block of a texture lies; of size 0 where there is none. A node that is undefined, and a
    /// source texture beyond the list, is reported.
    static Block blockOf(const NodeRef & ref);

    int budget() const { return budget_; }
    /// Bytes of the blocks. Counted in 64 bits, since a block may be larger than 2 GiB; what is told is cut
    /// to the largest `int`.
    int bytesUsed() const;
    std::uint64_t bytes() const { return bytes_; }

    /// Those that are in memory, in sorted order.
    const std::vector<NodeRef> & entries() const { return entries_; }
    bool contains(const NodeRef & ref) const { return textures_.count(ref) != 0; }
    /// The texture of a block that is in memory; null otherwise.
    NBX::SO<NBX::SharedObj> find(const Block & block) const;
    /// All that share a texture.
    std::vector<NodeRef> sharing(const NBX::SharedObj * data) const;

    /// Puts a texture, `ref.data`, at its place in the order, and into its node, where nothing is put in if
    /// the node has no place for it. While there are more bytes than the budget the last one goes, this one
    /// perhaps.
    void add(const NodeRef & ref, const Block & block);
    /// Puts a texture that is here into its node again; false where it is not here.
    bool link(const NodeRef & ref) const;

    /// Takes over what the references are worth now from `judge`. The order is the old one until `sort`.
    template <class Judge> void judge(Judge judge) {
        for (NodeRef & entry : entries_)
            judge(entry);
    }
    void sort() { sort(entries_); }
    /// Calls `look` for each texture once.
    template <class Look> void forEachTexture(Look look) const {
        for (const auto & [data, shared] : shared_)
            look(data);
    }
    /// Takes the last one out of its node and of the list; false where there is none.
    bool removeLast();
    /// Takes one out.
    void remove(const NodeRef & ref);
    void removeTree(const TexturedTriangleTree * tree);
    /// Takes out what lies in the paging file of a layer.
    void removeLayer(const TexturedTriangleTree * tree, int layer);

private:
    struct Shared {
        Block block;
        std::vector<NodeRef> refs; ///< without data
    };
    void removeAt(std::size_t index);
    template <class Goes> void removeShared(const NBX::SharedObj * data, Goes goes);
    template <class Goes> void removeAll(Goes goes);
    static void putInto(const NodeRef & ref, const NBX::SO<NBX::SharedObj> & data);
    static void takeOut(const NodeRef & ref);

    int budget_;
    std::uint64_t bytes_ = 0;
    std::vector<NodeRef> entries_;
    std::unordered_map<NodeRef, NBX::SO<NBX::SharedObj>, RefHash, SameRef> textures_;
    std::unordered_map<const NBX::SharedObj *, Shared> shared_;
    std::unordered_map<Block, NBX::SharedObj *, BlockHash> blocks_;
};

} // namespace ZMT::CORE
