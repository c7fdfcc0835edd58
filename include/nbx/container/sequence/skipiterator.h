#pragma once

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// Every `stride`-th element of another sequence, which it keeps alive, from the element `first` on.
template <class T> class SkipIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(SkipIterator, Base)
public:
    /// A null sequence and a stride of 0 are reported; the first gives an empty range, the second is
    /// taken as 1.
    SkipIterator(const Iterator<T> * sequence, unsigned first, unsigned stride)
        : sequence_(sequence), first_(first), stride_(stride > 0 ? stride : 1) {
        NBX_CHECK(sequence, L"no sequence");
        NBX_CHECK(stride > 0, L"the stride is 0");
    }

    unsigned size() const override {
        const unsigned available = sequence_ ? sequence_->size() : 0;
        return first_ < available ? (available - first_ - 1) / stride_ + 1 : 0;
    }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size() ? sequence_->get(first_ + i * stride_) : T();
    }
    const T * pointer() const override {
        const T * start = sequence_ && stride_ == 1 ? sequence_->pointer() : nullptr;
        return start && first_ <= sequence_->size() ? start + first_ : nullptr;
    }
    const SharedObj * container() const override { return sequence_ ? sequence_->container() : nullptr; }

private:
    SO<const Iterator<T>> sequence_;
    unsigned first_;
    unsigned stride_;
};

} // namespace NBX
