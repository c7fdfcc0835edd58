#pragma once

#include <algorithm>
#include <initializer_list>
#include <memory>

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// Sequence over a block of its own, which never changes.
template <class T> class FixedSizeIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(FixedSizeIterator, Base)
public:
    /// Copies `size` values.
    FixedSizeIterator(const T * values, unsigned size) : values_(new T[size]), size_(size) {
        std::copy(values, values + size, values_.get());
    }
    FixedSizeIterator(std::initializer_list<T> values)
        : FixedSizeIterator(values.begin(), static_cast<unsigned>(values.size())) {}

    unsigned size() const override { return size_; }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size_ ? values_[i] : T();
    }
    const T * pointer() const override { return values_.get(); }
    const SharedObj * container() const override { return this; }

private:
    std::unique_ptr<T[]> values_;
    unsigned size_;
};

} // namespace NBX
