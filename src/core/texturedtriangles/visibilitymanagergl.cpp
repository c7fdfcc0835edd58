#include "visibilitymanagergl.h"

#include <nbx/engine/engine.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(VisibilityManager, NBX::SharedObj)

VisibilityManager::VisibilityManager() = default;

VisibilityManager::~VisibilityManager() = default;

void VisibilityManager::beginFrame() {
    lastSeen_.clear();
}

void VisibilityManager::beginQuery(std::uint64_t key, NBX::Engine * engine) {
    lastSeen_.insert(key);
    if (pendingQueries_.contains(key)) return;
    NBX_CHECK(!currentQuery_, L"a query is counting already");
    if (currentQuery_) return;
    Query query;
    if (freeQueries_.empty()) {
        query = new NBX::OcclusionQueryGL(NBX::OcclusionQueryGL::QM_CountFragments);
    } else {
        query = freeQueries_.back();
        freeQueries_.pop_back();
    }
    pendingQueries_.emplace(key, query);
    engine->push(query.get());
    currentQuery_ = query;
}

void VisibilityManager::endQuery(NBX::Engine * engine) {
    if (!currentQuery_) return;
    engine->pop(currentQuery_.get());
    currentQuery_ = nullptr;
}

void VisibilityManager::estimate(std::uint64_t key, unsigned count) {
    if (!lastSeen_.insert(key).second) return;
    counts_[key] = count;
}

void VisibilityManager::update() {
    std::erase_if(counts_, [&](const auto & entry) { return !lastSeen_.contains(entry.first); });
    for (auto entry = pendingQueries_.begin(); entry != pendingQueries_.end();) {
        if (!entry->second->isAvailable()) {
            ++entry;
            continue;
        }
        counts_[entry->first] = entry->second->fragmentCount();
        freeQueries_.push_back(entry->second);
        entry = pendingQueries_.erase(entry);
    }
}

unsigned VisibilityManager::fragmentCount(std::uint64_t key) const {
    const auto found = counts_.find(key);
    return found == counts_.end() ? 0 : found->second;
}

} // namespace ZMT::CORE
