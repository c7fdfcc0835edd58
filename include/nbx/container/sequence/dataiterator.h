#pragma once

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// Sequence over values that lie elsewhere in memory.
template <class T> class DataIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(DataIterator, Base)
public:
    /// `owner`, which may be null, holds the values and is kept alive; without one they must outlive the
    /// sequence. Null with a size above 0 is reported and gives an empty sequence.
    DataIterator(const T * values, unsigned size, const SharedObj * owner = nullptr)
        : owner_(owner), values_(values), size_(values ? size : 0) {
        NBX_CHECK(values || size == 0, L"no values");
    }

    unsigned size() const override { return size_; }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size_ ? values_[i] : T();
    }
    const T * pointer() const override { return values_; }
    const SharedObj * container() const override { return owner_.get(); }

private:
    SO<const SharedObj> owner_;
    const T * values_;
    unsigned size_;
};

} // namespace NBX
