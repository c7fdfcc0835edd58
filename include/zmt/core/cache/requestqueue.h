#pragma once

#include <cstddef>
#include <functional>
#include <iterator>
#include <list>
#include <unordered_map>
#include <utility>

#include <nbx/object/so.h>

namespace ZMT::CORE {

/// What is wanted of a cache and is not there yet: keys, each with what prepares it, by priority. Wishes are
/// repeated each frame: the priorities of equal ones add up, and fade from frame to frame. One thread at a
/// time. What is taken out goes to lists of the caller, who decides where it is released.
template <class K, class Preparer> class RequestQueue {
public:
    struct Request {
        NBX::SO<K> key;
        double priority;
        unsigned frame; ///< in which it was last made
        NBX::SO<Preparer> preparer;
    };
    using Requests = std::list<Request>;

    bool isEmpty() const { return requests_.empty(); }
    std::size_t size() const { return requests_.size(); }
    /// In the order of their first request.
    auto begin() const { return requests_.begin(); }
    auto end() const { return requests_.end(); }

    /// Adds `priority` to the request for this key and preparer, which is made where there is none.
    void add(const NBX::SO<K> & key, const NBX::SO<Preparer> & preparer, double priority, unsigned frame) {
        const auto found = index_.find({key.get(), preparer.get()});
        if (found != index_.end()) {
            found->second->priority += priority;
            found->second->frame = frame;
            return;
        }
        requests_.push_back(Request{key, priority, frame, preparer});
        index_.emplace(nameOf(requests_.back()), std::prev(requests_.end()));
    }

    /// Multiplies all priorities by `factor`, and takes what was last made more than `ageLimit` frames ago.
    void fade(double factor, unsigned frame, unsigned ageLimit, Requests & taken) {
        for (auto i = requests_.begin(); i != requests_.end();) {
            if (i->frame + ageLimit < frame) {
                i = take(i, taken);
                continue;
            }
            i->priority *= factor;
            ++i;
        }
    }

    /// Takes the request of the highest priority, the first one made among equals. False when there is none.
    bool takeMostWanted(Requests & taken) {
        if (requests_.empty()) return false;
        auto best = requests_.begin();
        for (auto i = std::next(best); i != requests_.end(); ++i)
            if (i->priority > best->priority) best = i;
        take(best, taken);
        return true;
    }
    /// Takes the first request for `key`.
    void takeOneFor(const K * key, Requests & taken) {
        for (auto i = requests_.begin(); i != requests_.end(); ++i)
            if (i->key.get() == key) {
                take(i, taken);
                return;
            }
    }
    void clear() {
        index_.clear();
        requests_.clear();
    }

private:
    using Position = typename Requests::iterator;
    using Name = std::pair<const K *, const Preparer *>;
    struct Hash {
        std::size_t operator()(const Name & name) const {
            return std::hash<const void *>()(name.first) * 31 + std::hash<const void *>()(name.second);
        }
    };

    static Name nameOf(const Request & request) { return {request.key.get(), request.preparer.get()}; }

    Position take(Position request, Requests & taken) {
        const Position next = std::next(request);
        index_.erase(nameOf(*request));
        taken.splice(taken.end(), requests_, request);
        return next;
    }

    Requests requests_;
    std::unordered_map<Name, Position, Hash> index_;
};

} // namespace ZMT::CORE
