#pragma once

#include <utility>

#include <nbx/container/sequence/array2d.h>

namespace NBX {

/// The elements of a two-dimensional array, which it keeps alive and whose changes it shows.
template <class T> class Array2DIterator2D : public Iterator2D<T> {
    using Base = Iterator2D<T>;
    NBX_TEMPLATE_CLASS(Array2DIterator2D, Base)
public:
    /// A null array is reported and gives an empty rectangle.
    explicit Array2DIterator2D(Array2D<T> * array) : array_(array) { NBX_CHECK(array, L"no array"); }

    unsigned sizeX() const override { return array_ ? array_->sizeX() : 0; }
    unsigned sizeY() const override { return array_ ? array_->sizeY() : 0; }
    using Iterator2D<T>::get;
    T get(unsigned x, unsigned y) const override { return array_ ? array_->get(x, y) : T(); }
    const T * pointer() const override { return array_ ? std::as_const(*array_).pointer() : nullptr; }
    const SharedObj * container() const override { return array_.get(); }

private:
    SO<Array2D<T>> array_;
};

} // namespace NBX
