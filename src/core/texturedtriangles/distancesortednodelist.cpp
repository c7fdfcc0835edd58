// References are sorted by what they are worth, and found by what they are; textures by their block, which
// several references may share, and which counts once.

#include <zmt/core/texturedtriangles/distancesortednodelist.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <tuple>
#include <unordered_set>
#include <utility>

#include <nbx/object/errorhandler.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(DistanceSortedNodeList, NBX::SharedObj)

namespace {

using NodeRef = DistanceSortedNodeList::NodeRef;

/// In whose paging file it lies.
int layerOf(const NodeRef & ref) {
    return ref.original ? 0 : ref.textureNumber;
}

bool isEnabled(const NodeRef & ref) {
    const int layer = layerOf(ref);
    return ref.tree && layer < ref.tree->getNumberOfLayers() && ref.tree->getLayerEnabled(layer);
}

/// What a reference is sorted by; those that are wanted alike stay in their order.
struct Worth {
    bool isDisabled;
    int urgency, pixelCount;
    double distance;
    unsigned depth, index;

    bool operator<(const Worth & other) const {
        if (isDisabled != other.isDisabled) return other.isDisabled;
        if (urgency != other.urgency) return urgency < other.urgency;
        if (pixelCount != other.pixelCount) return pixelCount > other.pixelCount;
        if (distance != other.distance) return distance < other.distance;
        if (depth != other.depth) return depth < other.depth;
        return index < other.index;
    }
};

Worth worthOf(const NodeRef & ref, unsigned index = 0) {
    return {!isEnabled(ref), ref.urgency, ref.pixelCount, ref.distance, ref.depth, index};
}

NodeRef withoutData(NodeRef ref) {
    ref.data = nullptr;
    return ref;
}

/// The element of an array that may be shorter; 0 beyond.
std::uint64_t elementOf(const std::vector<std::uint64_t> & values, std::size_t i) {
    return i < values.size() ? values[i] : 0;
}

} // namespace

bool NodeRef::operator<(const NodeRef & other) const {
    const std::less<const void *> before;
    const void *const own = node.operator->(), *const others = other.node.operator->();
    if (own != others) return before(own, others);
    if (tree != other.tree) return before(tree, other.tree);
    return std::tie(original, textureNumber) < std::tie(other.original, other.textureNumber);
}

DistanceSortedNodeList::DistanceSortedNodeList(int budget) : budget_(budget) {}

DistanceSortedNodeList::~DistanceSortedNodeList() = default;

bool DistanceSortedNodeList::isWantedMore(const NodeRef & a, const NodeRef & b) {
    return worthOf(a) < worthOf(b);
}

/// By numbers that are found once for each, since there are thousands in every frame.
void DistanceSortedNodeList::sort(std::vector<NodeRef> & refs) {
    std::vector<Worth> worths;
    worths.reserve(refs.size());
    for (const NodeRef & ref : refs)
        worths.push_back(worthOf(ref, static_cast<unsigned>(worths.size())));
    if (std::is_sorted(worths.begin(), worths.end())) return;
    std::sort(worths.begin(), worths.end());
    std::vector<NodeRef> sorted;
    sorted.reserve(refs.size());
    for (const Worth & worth : worths)
        sorted.push_back(std::move(refs[worth.index]));
    refs.swap(sorted);
}

auto DistanceSortedNodeList::blockOf(const NodeRef & ref) -> Block {
    if (!ref.node.isDefined()) {
        NBX_FAILURE(L"invalid node pointer");
        return {};
    }
    const RenderNode & content = ref.node->content;
    const auto i = static_cast<std::size_t>(std::max(0, ref.textureNumber));
    if (!ref.original)
        return {ref.tree, ref.textureNumber, false, elementOf(content.blockPositions, i),
                elementOf(content.blockSizes, i)};
    if (content.originalTexturesBlockSizes.size() <= i)
        NBX_REPORT(0, L"node->content.originalTexturesBlockSizes.size()>textureNumber",
                   L"invalid texture number");
    return {ref.tree, 0, true, elementOf(content.originalTexturesBlockPositions, i),
            elementOf(content.originalTexturesBlockSizes, i)};
}

int DistanceSortedNodeList::bytesUsed() const {
    return static_cast<int>(std::min<std::uint64_t>(bytes_, std::numeric_limits<int>::max()));
}

NBX::SO<NBX::SharedObj> DistanceSortedNodeList::find(const Block & block) const {
    const auto found = blocks_.find(block);
    return found == blocks_.end() ? nullptr : NBX::SO<NBX::SharedObj>(found->second);
}

std::vector<NodeRef> DistanceSortedNodeList::sharing(const NBX::SharedObj * data) const {
    const auto found = shared_.find(data);
    return found == shared_.end() ? std::vector<NodeRef>() : found->second.refs;
}

/// Where the node has no place for it, the texture is held all the same, for other nodes.
void DistanceSortedNodeList::putInto(const NodeRef & ref, const NBX::SO<NBX::SharedObj> & data) {
    RenderNode & content = ref.node->content;
    const auto i = static_cast<std::size_t>(ref.textureNumber);
    if (!ref.original) {
        if (content.textures.size() <= i) content.textures.resize(i + 1);
        if (content.texture(static_cast<unsigned>(i)) != data) content.textures[i] = data;
    } else if (content.originalTextures && i < content.originalTextures->size()) {
        content.originalTextures->set(static_cast<unsigned>(i), data);
    }
}

/// Another tree may share the nodes, and have put a texture of its own there.
void DistanceSortedNodeList::takeOut(const NodeRef & ref) {
    RenderNode & content = ref.node->content;
    const auto i = static_cast<std::size_t>(ref.textureNumber);
    if (!ref.original) {
        if (content.texture(static_cast<unsigned>(i)) == ref.data) content.textures[i] = nullptr;
        return;
    }
    if (!content.originalTextures || i >= content.originalTextures->size()) return;
    if (content.originalTextures->get(static_cast<unsigned>(i)) != ref.data) return;
    content.originalTextures->set(static_cast<unsigned>(i), nullptr);
    if (i < content.textureStates.size()) content.textureStates[i] = false;
}

void DistanceSortedNodeList::add(const NodeRef & ref, const Block & block) {
    if (contains(ref)) remove(ref);
    Shared & shared = shared_[ref.data.get()];
    if (shared.refs.empty()) {
        shared.block = block;
        bytes_ += block.size;
        blocks_[block] = ref.data.get();
    }
    shared.refs.push_back(withoutData(ref));
    textures_[withoutData(ref)] = ref.data;
    entries_.insert(std::upper_bound(entries_.begin(), entries_.end(), ref, isWantedMore), ref);
    putInto(ref, ref.data);
    const std::uint64_t budget = static_cast<std::uint64_t>(std::max(0, budget_));
    while (bytes_ > budget)
        removeLast();
}

bool DistanceSortedNodeList::link(const NodeRef & ref) const {
    const auto found = textures_.find(ref);
    if (found == textures_.end()) return false;
    putInto(ref, found->second);
    return true;
}

void DistanceSortedNodeList::removeAt(std::size_t index) {
    const NodeRef ref = std::move(entries_[index]);
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
    takeOut(ref);
    textures_.erase(ref);
    removeShared(ref.data.get(), [&ref](const NodeRef & other) { return other.isSame(ref); });
}

/// Of those that share a texture.
template <class Goes> void DistanceSortedNodeList::removeShared(const NBX::SharedObj * data, Goes goes) {
    const auto found = shared_.find(data);
    std::vector<NodeRef> & refs = found->second.refs;
    std::erase_if(refs, goes);
    if (!refs.empty()) return;
    bytes_ -= found->second.block.size;
    const auto block = blocks_.find(found->second.block);
    if (block != blocks_.end() && block->second == data) blocks_.erase(block);
    shared_.erase(found);
}

/// Each list is gone through once, since there may be thousands.
template <class Goes> void DistanceSortedNodeList::removeAll(Goes goes) {
    std::unordered_set<const NBX::SharedObj *> textures;
    for (const NodeRef & entry : entries_) {
        if (!goes(entry)) continue;
        takeOut(entry);
        textures_.erase(entry);
        textures.insert(entry.data.get());
    }
    for (const NBX::SharedObj * texture : textures)
        removeShared(texture, goes);
    std::erase_if(entries_, goes);
}

bool DistanceSortedNodeList::removeLast() {
    if (entries_.empty()) return false;
    removeAt(entries_.size() - 1);
    return true;
}

void DistanceSortedNodeList::remove(const NodeRef & ref) {
    for (std::size_t i = 0; i < entries_.size(); ++i)
        if (entries_[i].isSame(ref)) return removeAt(i);
}

void DistanceSortedNodeList::removeTree(const TexturedTriangleTree * tree) {
    removeAll([tree](const NodeRef & ref) { return ref.tree == tree; });
}

void DistanceSortedNodeList::removeLayer(const TexturedTriangleTree * tree, int layer) {
    removeAll([=](const NodeRef & ref) { return ref.tree == tree && layerOf(ref) == layer; });
}

} // namespace ZMT::CORE
