#pragma once

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// Sequence of one value, repeated.
template <class T> class ConstantIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(ConstantIterator, Base)
public:
    ConstantIterator(const T & value, unsigned size) : value_(value), size_(size) {}

    unsigned size() const override { return size_; }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size_ ? value_ : T();
    }

private:
    T value_;
    unsigned size_;
};

} // namespace NBX
