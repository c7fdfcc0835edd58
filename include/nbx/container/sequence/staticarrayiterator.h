#pragma once

#include <nbx/container/sequence/nonpersistentstaticarray.h>

namespace NBX {

/// Sequence of the elements of a static array, which it keeps alive and whose changes it shows.
template <class T> class StaticArrayIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(StaticArrayIterator, Base)
public:
    /// A null array is reported and gives an empty sequence.
    explicit StaticArrayIterator(NonPersistentStaticArray<T> * array) : array_(array) {
        NBX_CHECK(array, L"no array");
    }

    unsigned size() const override { return array_ ? array_->size() : 0; }
    T get(unsigned i) const override { return array_ ? array_->get(i) : T(); }
    const T * pointer() const override { return array_ ? std::as_const(*array_).pointer() : nullptr; }
    const SharedObj * container() const override { return array_.get(); }

private:
    SO<NonPersistentStaticArray<T>> array_;
};

} // namespace NBX
