#pragma once

#include <algorithm>

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// A range of another sequence, which it keeps alive.
template <class T> class SubIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(SubIterator, Base)
public:
    /// A range that reaches beyond the end is reported and cut; a null sequence is reported and gives an
    /// empty range.
    SubIterator(const Iterator<T> * sequence, unsigned first, unsigned size)
        : sequence_(sequence), first_(first), size_(size) {
        NBX_CHECK(sequence, L"no sequence");
        const unsigned available = sequence ? sequence->size() : 0;
        NBX_CHECK(!sequence || (first <= available && size <= available - first),
                  L"range of " << size << L" at " << first << L" reaches beyond the end at " << available);
        first_ = std::min(first_, available);
        size_ = std::min(size_, available - first_);
    }

    unsigned size() const override { return size_; }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size_ ? sequence_->get(first_ + i) : T();
    }
    const T * pointer() const override {
        const T * start = sequence_ ? sequence_->pointer() : nullptr;
        return start ? start + first_ : nullptr;
    }
    const SharedObj * container() const override { return sequence_ ? sequence_->container() : nullptr; }

private:
    SO<const Iterator<T>> sequence_;
    unsigned first_;
    unsigned size_;
};

} // namespace NBX
