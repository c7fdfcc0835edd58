// Wishes: what painters report belongs to the view whose `update` came last, since they report behind it, and
// stands for it until its next one. All views' together are wanted.

#include <algorithm>
#include <cmath>
#include <limits>

#include <nbx/engine/canvas.h>
#include <nbx/engine/engine.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "visibilitymanagergl.h"

namespace ZMT::CORE {

namespace {

int pixelCountOf(const VisibilityManager & manager, std::uint64_t key) {
    constexpr unsigned most = std::numeric_limits<int>::max();
    return static_cast<int>(std::min(manager.fragmentCount(key), most));
}

} // namespace

bool TTTMemoryController::Sight::operator==(const Sight & other) const {
    return modelView == other.modelView && projection == other.projection &&
           qualityFactor == other.qualityFactor && maxDistance == other.maxDistance;
}

void TTTMemoryController::wish(NodeRef ref, VisibilityManager * manager, std::uint64_t key) {
    ref.pixelCount = manager ? pixelCountOf(*manager, key) : 0;
    if (!neededSet_.emplace(ref, ref).second) return;
    neededNodes_.push_back(ref);
    const auto view = std::find_if(views_.begin(), views_.end(),
                                   [this](const View & v) { return v.address == reporting_; });
    if (view != views_.end()) {
        const auto before = view->wished.find(ref);
        if (before != view->wished.end() && before->second.distance == ref.distance &&
            before->second.urgency == ref.urgency)
            return;
    }
    requireUpdate();
}

/// Wishes are served by the next frame.
void TTTMemoryController::requireUpdate() {
    if (!hasNewWishes_) NBX::Canvas::postAllForRedisplay(0.0);
    hasNewWishes_ = true;
}

void TTTMemoryController::reportNeededNode(NBX::SO<TexturedTriangleTree> tree, const NodePointer & node,
                                           double distance, bool original, bool urgent,
                                           NBX::SO<VisibilityManager> manager) {
    NBX_CHECK(tree, L"no tree");
    if (!node.isDefined()) NBX_FAILURE(L"invalid node pointer");
    if (!tree || !node.isDefined()) return;
    if (!filesOf(tree.get())) tree->setMemoryController(this); // it has to take its references back
    NodeRef ref;
    ref.tree = tree.get();
    ref.node = node;
    ref.distance = distance;
    ref.original = original;
    ref.urgency = urgent ? 0 : 1;
    ref.depth = node.tree()->depth(node);
    if (!original) {
        for (int layer = 0; layer < tree->getNumberOfLayers(); ++layer) {
            if (!tree->getLayerEnabled(layer)) continue;
            ref.textureNumber = layer;
            if (neededSet_.count(ref)) return;
            wish(ref, manager.get(), visibilityKey(node));
        }
        return;
    }
    const NBX::SO<RenderNode::Textures> textures = node->content.originalTextures;
    if (!textures) NBX_REPORT(0, L"node->content.originalTextures!=0", L"texture array must exist");
    for (unsigned i = 0; textures && i < textures->size(); ++i) {
        ref.textureNumber = static_cast<int>(i);
        wish(ref, manager.get(), visibilityKey(node, i));
    }
}

/// Who only turns has the same distances, and may have fewer wishes: what was left out may fit now. A tree
/// that is drawn several times in a picture has as many matrices, each held against that in the same place
/// of the picture before.
void TTTMemoryController::noteView(const TexturedTriangleTree & tree, const NBX::ViewInfo & viewInfo) {
    const Sight now{viewInfo.modelView(), viewInfo.projection(), tree.getQualityFactor(),
                    tree.maxDistanceEnabled() ? tree.maxDistance() : -1.0};
    for (View & view : views_) {
        if (view.address != reporting_) continue;
        Shown & shown = view.shown[&tree];
        const std::size_t place = shown.count++;
        if (place == shown.sights.size())
            shown.sights.push_back(now);
        else if (shown.sights[place] == now)
            return;
        else
            shown.sights[place] = now;
    }
    forgetRefused();
    requireUpdate();
}

void TTTMemoryController::recalculateNodeDistances(NBX::SO<TexturedTriangleTree> tree,
                                                   NBX::SO<const NBX::ViewInfo> viewInfo,
                                                   NBX::SO<VisibilityManager> manager) {
    if (!tree || !viewInfo) return;
    noteView(*tree, *viewInfo);
    const auto judgeNow = [&](NodeRef & ref) {
        if (ref.tree != tree.get()) return;
        const RenderNode & content = ref.node->content;
        if (content.bounds.isDefined()) ref.distance = std::sqrt(viewInfo->distance2(content.bounds));
        if (!manager) return;
        const std::uint64_t key =
            ref.original ? visibilityKey(ref.node, unsigned(ref.textureNumber)) : visibilityKey(ref.node);
        ref.pixelCount = pixelCountOf(*manager, key);
    };
    std::for_each(neededNodes_.begin(), neededNodes_.end(), judgeNow);
    std::for_each(uploadQueue_.begin(), uploadQueue_.end(), judgeNow);
    loadedNodes_->judge(judgeNow);
}

/// The wishes reported since the last time become those of the engine whose frame that was; all views'
/// together are wanted, each as much as where it is wanted most.
void TTTMemoryController::gatherWishes(const NBX::SO<NBX::Engine> & engine) {
    if (std::erase_if(views_, [](const View & view) { return view.address && !view.engine; }) > 0)
        forgetRefused();
    const auto viewOf = [this](const NBX::SO<NBX::Engine> & of, const NBX::Engine * address) -> View & {
        for (View & view : views_)
            if (view.address == address) return view;
        return views_.emplace_back(View{of, address, {}, {}, {}});
    };
    const bool isAlive = !reporting_ || std::any_of(views_.begin(), views_.end(), [this](const View & view) {
        return view.address == reporting_;
    });
    if (isAlive) {
        View & view = viewOf(nullptr, reporting_);
        view.wishes.swap(neededNodes_);
        view.wished.swap(neededSet_);
    }
    neededNodes_.clear();
    neededSet_.clear();
    hasNewWishes_ = false;
    reporting_ = engine.get();
    for (auto & [tree, shown] : viewOf(engine, reporting_).shown) {
        if (shown.sights.size() != shown.count) forgetRefused(); // what is not drawn leaves its room
        shown.sights.resize(shown.count);
        shown.count = 0;
    }
    wanted_.clear();
    for (const View & view : views_)
        wanted_.insert(wanted_.end(), view.wishes.begin(), view.wishes.end());
    DistanceSortedNodeList::sort(wanted_);
}

} // namespace ZMT::CORE
