#pragma once

#include <list>
#include <unordered_map>
#include <utility>

#include <nbx/object/errorhandler.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// Map that keeps its entries in the order of their last use. It has no bound of its own: the user removes
/// the oldest entries. All operations take constant time.
template <class K, class V> class LRUMap : public SharedObj {
    using Self = LRUMap;
    NBX_TEMPLATE_CLASS(Self, SharedObj)
public:
    using Entry = std::pair<const K, V>;

    LRUMap() = default;
    LRUMap(const LRUMap &) = delete;
    LRUMap & operator=(const LRUMap &) = delete;

    unsigned size() const { return static_cast<unsigned>(entries_.size()); }
    bool isEmpty() const { return entries_.empty(); }
    bool contains(const K & key) const { return places_.contains(key); }

    /// Adds an entry, or gives the one that is there a new value; it becomes the newest.
    void insert(const K & key, const V & value) {
        if (V * present = find(key)) {
            *present = value;
            return;
        }
        entries_.emplace_back(key, value);
        places_.emplace(key, std::prev(entries_.end()));
    }
    /// The value, whose entry becomes the newest; null when there is none. Valid until it is removed.
    V * find(const K & key) {
        const auto place = places_.find(key);
        if (place == places_.end()) return nullptr;
        entries_.splice(entries_.end(), entries_, place->second);
        return &place->second->second;
    }
    /// The same without counting as a use.
    const V * peek(const K & key) const {
        const auto place = places_.find(key);
        return place == places_.end() ? nullptr : &place->second->second;
    }
    /// False when there was none.
    bool remove(const K & key) {
        const auto place = places_.find(key);
        if (place == places_.end()) return false;
        // The entry goes when the map is whole again: its end may lead back here.
        std::list<Entry> removed;
        removed.splice(removed.end(), entries_, place->second);
        places_.erase(place);
        return true;
    }
    /// The entry that has not been used for longest; null when the map is empty.
    const Entry * oldest() const { return entries_.empty() ? nullptr : &entries_.front(); }
    void removeOldest() {
        NBX_CHECK(!entries_.empty(), L"map is empty");
        if (!entries_.empty()) remove(K(entries_.front().first));
    }
    void clear() {
        places_.clear();
        [[maybe_unused]] const std::list<Entry> removed = std::exchange(entries_, {});
    }

    /// The entries, oldest first.
    const std::list<Entry> & entries() const { return entries_; }

private:
    std::list<Entry> entries_;
    std::unordered_map<K, typename std::list<Entry>::iterator> places_;
};

} // namespace NBX
