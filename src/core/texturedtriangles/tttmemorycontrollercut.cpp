// What is kept of the wishes. These are taken in their order until the next one would exceed a budget. Of a
// tree whose textures are of use in groups alone, a group is taken as a whole, with those above it that it
// needs, at the place of its best member; one that does not fit leaves its room to those behind it. So no
// room is held by parts that cannot be drawn.
//
// What is worth how much follows from what is drawn, and what is drawn from what is taken: two groups that
// compete for the same room could take turns for ever. So a group that was here, and has lost its room, stays
// away until a view or a budget changes, and one that has none when all has come stays away likewise. Each is
// read at most once more, and then the view has settled. Where less is wanted than ever since they went, or
// what is wanted turns out to be smaller, they are asked for again: that is less each time, so that it has an
// end. Nothing is decided for good before the pixels that are seen of each node have been counted.

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "tttmemorycontrollerparts.h"

namespace ZMT::CORE {

namespace {

/// Updates until what is seen has been counted: the picture, its queries' results, and the wishes by these.
constexpr int s_updatesUntilCounted = 4;

} // namespace

bool TTTMemoryController::GroupName::operator<(const GroupName & other) const {
    return std::tie(tree, node, layer) < std::tie(other.tree, other.node, other.layer);
}

class TTTMemoryController::Cut {
public:
    explicit Cut(TTTMemoryController & controller)
        : controller_(controller), wishes_(controller.wanted_), isKept_(wishes_.size(), false),
          // What the list of what is loaded cannot hold would be read, and thrown out again, for ever.
          mostBlocks_(static_cast<std::uint64_t>(
              std::max(0, std::min(s_maxMemoryUsage, controller.loadedNodes_->budget())))) {
        places_.reserve(wishes_.size());
        RefTable<bool> seen;
        for (const NodeRef & ref : wishes_)
            places_.push_back(seen.emplace(ref, true).second ? controller.blockToRead(ref) : Block{});
    }

    /// False where anything is left out.
    bool takeInOrder() {
        bool hasAll = true;
        for (std::size_t i = 0; i < wishes_.size(); ++i) {
            if (places_[i].size == 0) continue;
            const Fit fit = tryOne(i);
            hasAll = hasAll && fit == Fit::Yes;
            if (fit == Fit::No) break;
        }
        return hasAll;
    }
    void takeGroups();
    void keep();
    /// Bytes of memory for all that is wished, whether there is room or not.
    std::uint64_t demand() const;

private:
    enum class Fit { Yes, No, Never };
    enum class State { Open, Taken, Refused };
    struct Sums {
        std::uint64_t blocks = 0, memory = 0, headroom = 0;
    };
    struct Group {
        std::vector<std::size_t> members;
        State state = State::Open;
    };
    using Groups = std::map<GroupName, Group>;

    Fit add(Sums & sums, const Block & block) const;
    Fit tryOne(std::size_t i);
    bool isGrouped(const NodeRef & ref) const;
    static GroupName nameOf(const NodeRef & ref);
    static std::optional<GroupName> above(const NodeRef & ref);
    void tryGroup(Groups::value_type & group);
    std::vector<Groups::value_type *> withThoseAbove(Groups::value_type & group, bool & canBe);
    bool isHere(const Group & group) const;
    void refuse(Groups::value_type & group);

    TTTMemoryController & controller_;
    std::vector<NodeRef> & wishes_;
    std::vector<Block> places_; ///< of size 0 for what is not to be read
    std::vector<bool> isKept_;
    std::uint64_t mostBlocks_;
    BlockTable<bool> counted_; ///< blocks that several wishes share count once
    Sums sums_;
    Groups groups_;
};

std::uint64_t TTTMemoryController::Cut::demand() const {
    std::uint64_t bytes = 0;
    for (const Block & block : places_)
        if (block.size > 0) bytes += controller_.peakBytes(block);
    return bytes;
}

/// Room for the largest read stays free.
auto TTTMemoryController::Cut::add(Sums & sums, const Block & block) const -> Fit {
    const std::uint64_t loaded = controller_.loadedBytes(block), peak = controller_.peakBytes(block);
    if (block.size > mostBlocks_ || sums.blocks > mostBlocks_ - block.size) return Fit::No;
    if (peak < loaded || peak > s_maxTextureMemory) return Fit::Never;
    const std::uint64_t room = std::max(sums.headroom, peak - loaded);
    if (sums.memory + loaded + room > s_maxTextureMemory) return Fit::No;
    sums = {sums.blocks + block.size, sums.memory + loaded, room};
    return Fit::Yes;
}

auto TTTMemoryController::Cut::tryOne(std::size_t i) -> Fit {
    const Fit fit = counted_.count(places_[i]) != 0 ? Fit::Yes : add(sums_, places_[i]);
    if (fit != Fit::Yes) return fit;
    counted_[places_[i]] = true;
    isKept_[i] = true;
    return fit;
}

bool TTTMemoryController::Cut::isGrouped(const NodeRef & ref) const {
    const TreeFiles * files = controller_.filesOf(ref.tree);
    return files && files->isKeptTogether;
}

auto TTTMemoryController::Cut::nameOf(const NodeRef & ref) -> GroupName {
    if (ref.original) return {ref.tree, ref.node.identifier(), -1};
    return {ref.tree, ref.node.tree()->parent(ref.node).identifier(), ref.textureNumber};
}

/// The group without which that of `ref` is not drawn; those of the root's atlases are always there.
auto TTTMemoryController::Cut::above(const NodeRef & ref) -> std::optional<GroupName> {
    NodePointer node = ref.node;
    if (!ref.original) node = node.tree()->parent(node);
    if (!node || node.tree()->depth(node) == 0) return {};
    return GroupName{ref.tree, node.tree()->parent(node).identifier(), ref.original ? 0 : ref.textureNumber};
}

/// Those that are not taken yet. It cannot be where one of them is refused.
auto TTTMemoryController::Cut::withThoseAbove(Groups::value_type & group, bool & canBe)
    -> std::vector<Groups::value_type *> {
    std::vector<Groups::value_type *> chain;
    Groups::value_type * next = &group;
    while (next && next->second.state != State::Taken) {
        canBe = canBe && next->second.state != State::Refused && controller_.refused_.count(next->first) == 0;
        chain.push_back(next);
        const auto name = above(wishes_[next->second.members.front()]);
        const auto found = name ? groups_.find(*name) : groups_.end();
        next = found == groups_.end() ? nullptr : &*found;
    }
    return chain;
}

void TTTMemoryController::Cut::tryGroup(Groups::value_type & group) {
    bool fits = true;
    const auto chain = withThoseAbove(group, fits);
    Sums sums = sums_;
    std::vector<Block> added;
    for (std::size_t k = 0; fits && k < chain.size(); ++k)
        for (const std::size_t i : chain[k]->second.members) {
            if (!counted_.emplace(places_[i], true).second) continue;
            added.push_back(places_[i]);
            fits = fits && add(sums, places_[i]) == Fit::Yes;
        }
    if (!fits) {
        for (const Block & block : added)
            counted_.erase(block);
        return refuse(group);
    }
    sums_ = sums;
    for (Groups::value_type * taken : chain) {
        taken->second.state = State::Taken;
        for (const std::size_t i : taken->second.members)
            isKept_[i] = true;
    }
}

/// In memory or on its way there, be it in part.
bool TTTMemoryController::Cut::isHere(const Group & group) const {
    return std::any_of(group.members.begin(), group.members.end(), [this](std::size_t i) {
        return controller_.loadedNodes_->find(places_[i]) ||
               controller_.pendingBlocks_.count(places_[i]) != 0;
    });
}

void TTTMemoryController::Cut::refuse(Groups::value_type & group) {
    group.second.state = State::Refused;
    controller_.refusedNow_.push_back(group.first);
    if (controller_.updatesOfView_ > s_updatesUntilCounted && isHere(group.second))
        controller_.leaveAway({group.first});
}

void TTTMemoryController::Cut::takeGroups() {
    isKept_.assign(wishes_.size(), false);
    counted_.clear();
    sums_ = {};
    std::vector<Groups::value_type *> groupOf(wishes_.size(), nullptr);
    for (std::size_t i = 0; i < wishes_.size(); ++i) {
        if (places_[i].size == 0 || !isGrouped(wishes_[i])) continue;
        groupOf[i] = &*groups_.try_emplace(nameOf(wishes_[i])).first;
        groupOf[i]->second.members.push_back(i);
    }
    for (std::size_t i = 0; i < wishes_.size(); ++i) {
        if (places_[i].size == 0) continue;
        if (!groupOf[i]) {
            if (tryOne(i) == Fit::No) break;
        } else if (groupOf[i]->second.state == State::Open) {
            tryGroup(*groupOf[i]);
        }
    }
}

void TTTMemoryController::Cut::keep() {
    std::vector<NodeRef> kept;
    controller_.wantedPlaces_.clear();
    controller_.active_.clear();
    controller_.wantedBlocks_.clear();
    for (std::size_t i = 0; i < wishes_.size(); ++i) {
        if (!isKept_[i]) continue;
        controller_.active_[wishes_[i]] = kept.size();
        controller_.wantedBlocks_[places_[i]].push_back(kept.size());
        controller_.wantedPlaces_.push_back(places_[i]);
        kept.push_back(wishes_[i]);
    }
    wishes_.swap(kept);
}

void TTTMemoryController::keepTogether(const TexturedTriangleTree & tree) {
    if (TreeFiles * files = filesOf(&tree)) files->isKeptTogether = true;
}

void TTTMemoryController::cutToBudgets() {
    const std::pair<std::uint64_t, std::uint64_t> budgets(std::max(0, s_maxMemoryUsage), s_maxTextureMemory);
    if (budgets != budgets_) forgetRefused();
    budgets_ = budgets;
    refusedNow_.clear();
    ++updatesOfView_;
    Cut cut(*this);
    demand_ = cut.demand();
    if (!refused_.empty() && demand_ < refusedDemand_) {
        refused_.clear();
        // What comes now may want more, and what comes after that would want less again.
        refusedDemand_ = demand_;
        updatesOfView_ = 0;
    }
    const bool hasGroups = std::any_of(treeFiles_.begin(), treeFiles_.end(),
                                       [](const TreeFiles & files) { return files.isKeptTogether; });
    const bool isGroupAway = hasGroups && !refused_.empty();
    if (isGroupAway || (!cut.takeInOrder() && hasGroups)) cut.takeGroups();
    cut.keep();
}

void TTTMemoryController::leaveAway(const std::vector<GroupName> & groups) {
    refused_.insert(groups.begin(), groups.end());
    refusedDemand_ = std::min(refusedDemand_, demand_);
}

void TTTMemoryController::forgetRefused() {
    refused_.clear();
    refusedDemand_ = s_anyDemand;
    updatesOfView_ = 0;
}

/// Nothing is on its way that would change anything.
void TTTMemoryController::settleRefused() {
    if (refusedNow_.empty() || redisplayRequired_) return;
    if (updatesOfView_ > s_updatesUntilCounted)
        leaveAway(refusedNow_);
    else
        redisplayRequired_ = true;
}

} // namespace ZMT::CORE
