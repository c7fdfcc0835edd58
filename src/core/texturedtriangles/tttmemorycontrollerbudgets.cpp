// Budgets. Memory is reserved when a read begins, for the most that its block takes on its way: the block,
// what it is decoded to, and the texels on the card. So reading never makes the sum larger than the budget.
// What JPEG is decoded to is known for atlases, and for source textures once they were read: before, it is
// guessed, and a block whose head says more is let go again unless there is room. Wishes were cut so that
// room for the largest read stays free; what nobody wants makes room for what is wanted, and never the other
// way.

#include <algorithm>
#include <limits>

#include <nbx/object/errorhandler.h>

#include "tttmemorycontrollerparts.h"

namespace ZMT::CORE {

namespace {

/// The most bytes of blocks of DXT1 that a byte of JPEG is taken for before its size is known.
constexpr std::uint64_t s_guessedRatio = 4;

} // namespace

/// The block of a texture; of size 0 where there is none, and for the root, whose atlases are the tree's own.
/// Nodes that do not fit together are told of once.
auto TTTMemoryController::blockToRead(const NodeRef & ref) -> Block {
    if (ref.depth == 0 && !ref.original) return {};
    const RenderNode & content = ref.node->content;
    const auto i = static_cast<std::size_t>(ref.textureNumber);
    const std::size_t places = ref.original
                                   ? std::min(content.originalTexturesBlockSizes.size(),
                                              content.originalTexturesBlockPositions.size())
                                   : std::min(content.blockSizes.size(), content.blockPositions.size());
    if (i < places) return DistanceSortedNodeList::blockOf(ref);
    TreeFiles * files = filesOf(ref.tree);
    if (ref.original && files && !files->areNodesDamaged) {
        files->areNodesDamaged = true;
        NBX_REPORT(0, L"node->content.originalTexturesBlockSizes.size()>ref.textureNumber",
                   L"invalid texture number or incomplete block size array");
    }
    return {};
}

/// Bytes that a block takes once it is on the card.
std::uint64_t TTTMemoryController::loadedBytes(const Block & block) const {
    switch (formatOf(block)) {
    case TexturedTriangleTree::TextureFormatRGBA5551:
        return 2 * block.size;
    case TexturedTriangleTree::TextureFormatJPEG:
        if (!block.original)
            return StreamTexture::textureBytes(block.tree->getAtlasSize(), block.tree->getAtlasSize(),
                                               TexturedTriangleTree::TextureFormatDXT1);
        if (const auto known = knownBytes_.find(block); known != knownBytes_.end())
            return known->second.texture;
        return s_guessedRatio * block.size;
    default:
        return block.size;
    }
}

/// Bytes of the picture that the largest level of a block of JPEG is before it becomes blocks of DXT1.
std::uint64_t TTTMemoryController::pictureBytes(const Block & block) const {
    if (formatOf(block) != TexturedTriangleTree::TextureFormatJPEG) return 0;
    if (!block.original) {
        const auto side = static_cast<std::uint64_t>(std::max(0, block.tree->getAtlasSize()));
        return s_pictureTexelBytes * side * side;
    }
    if (const auto known = knownBytes_.find(block); known != knownBytes_.end()) return known->second.picture;
    // Two texels a byte, in three quarters of all levels.
    return s_pictureTexelBytes * 2 * (loadedBytes(block) / 4 * 3);
}

/// The most bytes that it takes on the way: what was read, what that is decoded to, and the texels.
std::uint64_t TTTMemoryController::peakBytes(const Block & block) const {
    const bool isDecoded = formatOf(block) == TexturedTriangleTree::TextureFormatJPEG;
    return block.size + (isDecoded ? 2 : 1) * loadedBytes(block) + pictureBytes(block);
}

std::uint64_t TTTMemoryController::textureMemory() const {
    std::uint64_t bytes = 0;
    for (const auto & [request, pending] : pendingRequests_)
        bytes += pending.reserved;
    loadedNodes_->forEachTexture([&bytes](const NBX::SharedObj * texture) { bytes += bytesOf(texture); });
    return bytes;
}

/// Textures that went to the card have let go of their blocks since.
void TTTMemoryController::countLoadedMemory() {
    loadedMemory_ = 0;
    loadedNodes_->forEachTexture(
        [this](const NBX::SharedObj * texture) { loadedMemory_ += bytesOf(texture); });
}

/// What a reference that has been made is worth by now.
void TTTMemoryController::judge(NodeRef & ref) const {
    const auto found = active_.find(ref);
    ref.urgency = 2;
    if (found == active_.end()) return;
    const NodeRef & now = wanted_[found->second];
    ref.distance = now.distance;
    ref.pixelCount = now.pixelCount;
    ref.urgency = now.urgency;
}

void TTTMemoryController::judgeAll() {
    loadedNodes_->judge([this](NodeRef & ref) { judge(ref); });
    loadedNodes_->sort();
    for (NodeRef & ref : uploadQueue_)
        judge(ref);
}

/// Whether so many bytes fit; what is wanted least goes for that, as far as it `mayGo`, and nothing at all
/// where that were not enough.
bool TTTMemoryController::makeRoom(std::uint64_t bytes, const std::function<bool(const NodeRef &)> & mayGo) {
    if (bytes > s_maxTextureMemory) return false;
    std::uint64_t taken = loadedMemory_;
    for (const auto & [request, pending] : pendingRequests_)
        taken += pending.reserved;
    const std::uint64_t most = s_maxTextureMemory - bytes;
    if (taken <= most) return true;
    std::uint64_t free = 0;
    loadedNodes_->forEachTexture([&](const NBX::SharedObj * texture) {
        const std::vector<NodeRef> refs = loadedNodes_->sharing(texture);
        if (std::all_of(refs.begin(), refs.end(), mayGo)) free += bytesOf(texture);
    });
    if (taken - std::min(taken, free) > most) return false;
    while (taken > most) {
        const std::vector<NodeRef> & entries = loadedNodes_->entries();
        if (entries.empty() || !mayGo(entries.back())) return false;
        const NBX::SO<NBX::SharedObj> last = entries.back().data;
        loadedNodes_->removeLast();
        if (!loadedNodes_->sharing(last.get()).empty()) continue;
        const std::uint64_t gone = bytesOf(last.get());
        loadedMemory_ -= gone;
        taken -= gone;
    }
    return true;
}

/// For a block that is wanted. Textures that are kept only in case of need never go to the card, and so keep
/// their blocks beside their texels: those that are wanted less than this one go, however they were counted.
/// Urgent ones soon let go of their blocks.
bool TTTMemoryController::makeRoomFor(const Block & block, std::uint64_t bytes) {
    const NodeRef & wanted = wanted_[wantedBlocks_[block].front()];
    return makeRoom(bytes, [&](const NodeRef & ref) {
        const auto found = active_.find(ref);
        if (found == active_.end()) return true;
        const NodeRef & other = wanted_[found->second];
        return other.urgency > 0 && DistanceSortedNodeList::isWantedMore(wanted, other);
    });
}

/// Where the budget has become smaller, or what was loaded is larger than what was told of it, what is under
/// way goes first, to be asked for again as far as it fits.
void TTTMemoryController::keepToBudget() {
    if (makeRoom(0, [this](const NodeRef & ref) { return active_.count(ref) == 0; })) return;
    const std::map<Request, Pending> pending = pendingRequests_;
    for (const auto & entry : pending)
        drop(entry.first);
    makeRoom(0, [](const NodeRef &) { return true; });
    redisplayRequired_ = redisplayRequired_ || !pending.empty();
}

} // namespace ZMT::CORE
