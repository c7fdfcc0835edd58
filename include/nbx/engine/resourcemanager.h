#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <unordered_map>

#include <nbx/container/map/useorder.h>
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
    std::uint64_t total() const { return entries_.total(); }

    /// Counts `size` units that others keep, on any thread: the resources have to do with what is left.
    void addOthers(std::int64_t size) { others_ += size; }
    /// By how much resources and others together exceed the budget.
    std::uint64_t excess() const {
        const std::uint64_t all = total() + std::uint64_t(others_.load());
        return all > budget_ ? all - budget_ : 0;
    }
    std::size_t count() const { return entries_.count(); }
    bool contains(const Resource * resource) const { return index_.count(resource) != 0; }

    /// Keeps `resource`, of `size` units, as the one used last. One that is known already gets the new size.
    /// A null one is reported under "resource" with "no resource".
    void add(Resource * resource, Size size) {
        NBX_CHECK(resource, L"no resource");
        if (!resource) return;
        const SO<Resource> held(resource);
        const auto found = index_.find(resource);
        if (found == index_.end()) {
            index_.emplace(resource, entries_.add(Entry{held, size}, isInFrame()));
        } else {
            entries_.resize(found->second, size);
            found->second->removed = false;
            entries_.use(found->second, isInFrame());
        }
        evict();
    }

    /// Notes a use. True when the resource was known.
    bool touch(const Resource * resource) {
        const auto found = index_.find(resource);
        if (found == index_.end() || found->second->removed) return false;
        entries_.use(found->second, isInFrame());
        evict();
        return true;
    }

    /// Drops the resource; during a frame that is postponed to its end. False when it was not known.
    bool remove(const Resource * resource) {
        const auto found = index_.find(resource);
        if (found == index_.end() || found->second->removed) return false;
        if (isInFrame()) {
            found->second->removed = true;
            return true;
        }
        Taken dropped;
        take(found->second, dropped);
        return true;
    }

    /// Brackets a frame. Brackets nest; only the outermost counts.
    void beginFrame() { ++frames_; }
    void endFrame() {
        NBX_CHECK(frames_ > 0, L"endFrame without beginFrame");
        if (frames_ == 0 || --frames_ > 0) return;
        entries_.forgetFrame();
        dropRemoved();
        evict();
    }

    /// Drops everything, also during a frame.
    void clear() {
        Taken dropped;
        index_.clear();
        entries_.takeAll(dropped);
    }

private:
    struct Entry {
        SO<Resource> resource;
        Size size;
        bool removed = false;
    };
    using Entries = UseOrder<Entry, std::atomic<std::uint64_t>>;
    using Position = typename Entries::Position;
    using Taken = typename Entries::Entries;

    bool isInFrame() const { return frames_ > 0; }

    /// The caller lets go of what was taken once the tables are consistent again.
    void take(Position entry, Taken & taken) {
        index_.erase(entry->resource.get());
        entries_.take(entry, taken);
    }

    void evict() {
        while (excess() > 0) {
            const Position oldest = entries_.oldest();
            if (oldest == entries_.end()) return;
            Taken dropped;
            take(oldest, dropped);
        }
    }

    void dropRemoved() {
        Taken dropped;
        for (Position entry = entries_.begin(); entry != entries_.end();) {
            const Position next = std::next(entry);
            if (entry->removed) take(entry, dropped);
            entry = next;
        }
    }

    std::atomic<Size> budget_;
    std::atomic<std::int64_t> others_ = 0;
    Entries entries_;
    std::unordered_map<const Resource *, Position> index_;
    unsigned frames_ = 0; ///< open brackets
};

} // namespace NBX
