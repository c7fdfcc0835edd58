#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <nbx/object/so.h>

namespace NBX {

/// Keeps resources alive within a budget, those used last the longest. Users watch a resource by a weak
/// pointer, which turns null when the manager has dropped it, and `touch` it at each use.
///
/// (1) Outside a frame the total never exceeds the budget. (2) What was added or touched in the present frame
/// is not dropped for the budget's sake. (3) What goes first is what was used the longest time ago.
/// Belongs to the rendering thread, but for `getBudget`, `total`, `addOthers` and `excess`. The destructor of
/// a resource may call the manager.
template <class Resource, class Size> class ResourceManager {
public:
    explicit ResourceManager(Size budget) : budget_(budget) {}
    ResourceManager(const ResourceManager &) = delete;
    ResourceManager & operator=(const ResourceManager &) = delete;

    Size getBudget() const { return budget_; }
    void setBudget(Size budget) {
        budget_ = budget;
        evict();
    }
    /// The sizes of all resources held.
    std::uint64_t total() const { return total_; }

    /// Counts `size` units that others keep, on any thread: the resources have to do with what is left.
    void addOthers(std::int64_t size) { others_ += size; }
    /// By how much resources and others together exceed the budget.
    std::uint64_t excess() const {
        const std::uint64_t all = total_ + std::uint64_t(others_.load());
        return all > budget_ ? all - budget_ : 0;
    }
    std::size_t count() const { return entries_.size(); }
    bool contains(const Resource * resource) const { return index_.count(resource) != 0; }

    /// Keeps `resource`, of `size` units, as the one used last. One that is known already gets the new size.
    /// A null one is reported under "resource" with "no resource".
    void add(Resource * resource, Size size) {
        NBX_CHECK(resource, L"no resource");
        if (!resource) return;
        const SO<Resource> held(resource);
        const auto found = index_.find(resource);
        if (found == index_.end()) {
            entries_.push_front(Entry{held, size});
            index_.emplace(resource, entries_.begin());
            total_ += size;
        } else {
            total_ += size;
            total_ -= found->second->size;
            found->second->size = size;
            found->second->removed = false;
            moveToHead(found->second);
        }
        markBoundary();
        evict();
    }

    /// Notes a use. True when the resource was known.
    bool touch(const Resource * resource) {
        const auto found = index_.find(resource);
        if (found == index_.end() || found->second->removed) return false;
        moveToHead(found->second);
        markBoundary();
        evict();
        return true;
    }

    /// Drops the resource; during a frame that is postponed to its end. False when it was not known.
    bool remove(const Resource * resource) {
        const auto found = index_.find(resource);
        if (found == index_.end() || found->second->removed) return false;
        if (frames_ > 0) {
            found->second->removed = true;
            return true;
        }
        const SO<Resource> dropped = take(found->second);
        return true;
    }

    /// Brackets a frame. Brackets nest; only the outermost counts.
    void beginFrame() { ++frames_; }
    void endFrame() {
        NBX_CHECK(frames_ > 0, L"endFrame without beginFrame");
        if (frames_ == 0 || --frames_ > 0) return;
        hasBoundary_ = false;
        dropRemoved();
        evict();
    }

    /// Drops everything, also during a frame.
    void clear() {
        std::list<Entry> dropped;
        dropped.swap(entries_);
        index_.clear();
        total_ = 0;
        hasBoundary_ = false;
    }

private:
    struct Entry {
        SO<Resource> resource;
        Size size;
        bool removed = false;
    };
    using Position = typename std::list<Entry>::iterator;

    // The boundary is the resource used in this frame whose use lies back the farthest. When it is used
    // again it leaves that place to its neighbour.
    void moveToHead(Position entry) {
        if (hasBoundary_ && entry == boundary_ && entry != entries_.begin()) boundary_ = std::prev(entry);
        entries_.splice(entries_.begin(), entries_, entry);
    }
    void markBoundary() {
        if (frames_ == 0 || hasBoundary_) return;
        boundary_ = entries_.begin();
        hasBoundary_ = true;
    }

    /// The caller lets go of the resource once the tables are consistent again.
    SO<Resource> take(Position entry) {
        if (hasBoundary_ && entry == boundary_) {
            if (entry == entries_.begin())
                hasBoundary_ = false;
            else
                boundary_ = std::prev(entry);
        }
        SO<Resource> resource = entry->resource;
        total_ -= entry->size;
        index_.erase(resource.get());
        entries_.erase(entry);
        return resource;
    }

    void evict() {
        while (excess() > 0 && !entries_.empty()) {
            const Position tail = std::prev(entries_.end());
            if (hasBoundary_ && tail == boundary_) return;
            const SO<Resource> dropped = take(tail);
        }
    }

    void dropRemoved() {
        std::vector<SO<Resource>> dropped;
        for (Position entry = entries_.begin(); entry != entries_.end();) {
            const Position next = std::next(entry);
            if (entry->removed) dropped.push_back(take(entry));
            entry = next;
        }
    }

    std::atomic<Size> budget_;
    std::atomic<std::uint64_t> total_ = 0;
    std::atomic<std::int64_t> others_ = 0;
    std::list<Entry> entries_; ///< used last first
    std::unordered_map<const Resource *, Position> index_;
    Position boundary_{};
    bool hasBoundary_ = false;
    unsigned frames_ = 0;
};

} // namespace NBX
