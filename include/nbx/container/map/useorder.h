#pragma once

#include <cstddef>
#include <iterator>
#include <list>
#include <utility>

namespace NBX {

/// What a cache knows of its entries: the order of their last use, what they take together, and which of them
/// were used in the present frame. An `Entry` has a member `size`; `Total` adds up sizes. Positions are valid
/// until their entry is taken. All operations take constant time; one thread at a time calls them.
template <class Entry, class Total> class UseOrder {
public:
    using Entries = std::list<Entry>;
    using Position = typename Entries::iterator;
    using Size = decltype(Entry::size);

    UseOrder() = default;
    UseOrder(const UseOrder &) = delete;
    UseOrder & operator=(const UseOrder &) = delete;

    bool isEmpty() const { return entries_.empty(); }
    std::size_t count() const { return entries_.size(); }
    /// The sizes of all entries.
    const Total & total() const { return total_; }

    /// From the one used last to the one that has not been used for longest.
    Position begin() { return entries_.begin(); }
    Position end() { return entries_.end(); }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }

    /// The new entry is the one used last, in this frame where that is said.
    Position add(Entry entry, bool inFrame) {
        total_ += entry.size;
        entries_.push_front(std::move(entry));
        if (inFrame) mark();
        return entries_.begin();
    }
    void use(Position entry, bool inFrame) {
        if (entry == mark_ && entry != entries_.begin()) mark_ = std::prev(entry);
        entries_.splice(entries_.begin(), entries_, entry);
        if (inFrame) mark();
    }
    void resize(Position entry, Size size) {
        total_ += size;
        total_ -= entry->size;
        entry->size = size;
    }
    /// Nothing counts as used in the present frame any more.
    void forgetFrame() { mark_ = entries_.end(); }

    /// The entry that has not been used for longest; the end where all were used in this frame.
    Position oldest() {
        if (entries_.empty()) return entries_.end();
        const Position last = std::prev(entries_.end());
        return last == mark_ ? entries_.end() : last;
    }
    /// Moves the entry to the end of `taken`: the caller lets go of it when its own tables are whole again,
    /// since the end of what it holds may lead back here.
    void take(Position entry, Entries & taken) {
        if (entry == mark_) mark_ = entry == entries_.begin() ? entries_.end() : std::prev(entry);
        total_ -= entry->size;
        taken.splice(taken.end(), entries_, entry);
    }
    void takeAll(Entries & taken) {
        mark_ = entries_.end();
        total_ = 0;
        taken.splice(taken.end(), entries_);
    }

private:
    void mark() {
        if (mark_ == entries_.end()) mark_ = entries_.begin();
    }

    Entries entries_;
    /// Of those used in this frame the one whose use lies back the farthest; all before it were used in the
    /// frame as well. When it is used again, it leaves that place to its neighbour.
    Position mark_ = entries_.end();
    Total total_{};
};

} // namespace NBX
