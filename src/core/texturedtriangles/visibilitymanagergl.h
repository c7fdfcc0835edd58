#pragma once

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <nbx/gl/state/occlusionquerygl.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {
class Engine;
}

namespace ZMT::CORE {

/// How many fragments of what a tree drew were seen in one view, by key (`visibilityKey`). Results come some
/// frames after they were asked for, and are never waited for; they decide only what is read first.
///
/// One for each tree and engine: its queries are known to one context alone. Belongs to the render thread.
class VisibilityManager : public NBX::SharedObj {
    NBX_CLASS(VisibilityManager, NBX::SharedObj)
public:
    VisibilityManager();
    ~VisibilityManager() override;

    /// Forgets which keys were seen.
    void beginFrame();
    /// What is drawn up to `endQuery` counts for `key`, unless the result of an earlier query for it has not
    /// come yet. Either way the key was seen.
    void beginQuery(std::uint64_t key, NBX::Engine * engine);
    void endQuery(NBX::Engine * engine);
    /// Assumes `count` for a key that has none of its own in this frame, such as what is not drawn since it
    /// is missing; the key was seen.
    void estimate(std::uint64_t key, unsigned count);
    /// Forgets the counts of keys that were not seen in this frame, and takes in the results that have come.
    void update();

    /// The latest result; 0 for an unknown key.
    unsigned fragmentCount(std::uint64_t key) const;
    /// Queries whose result has not come, and those that can be used again.
    std::size_t pendingQueries() const { return pendingQueries_.size(); }
    std::size_t freeQueries() const { return freeQueries_.size(); }

private:
    using Query = NBX::SO<NBX::OcclusionQueryGL>;

    std::unordered_map<std::uint64_t, unsigned> counts_;
    std::unordered_map<std::uint64_t, Query> pendingQueries_;
    std::unordered_set<std::uint64_t> lastSeen_;
    Query currentQuery_;
    std::vector<Query> freeQueries_;
};

} // namespace ZMT::CORE
