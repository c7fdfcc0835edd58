#pragma once

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// Abstract rectangle of `sizeX()` by `sizeY()` elements. As a sequence it runs row by row.
template <class T> class Iterator2D : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(Iterator2D, Base)
public:
    virtual unsigned sizeX() const = 0;
    virtual unsigned sizeY() const = 0;
    /// The element in column `x` of row `y`; a default value for a place outside, which is reported.
    virtual T get(unsigned x, unsigned y) const = 0;

    unsigned size() const override { return sizeX() * sizeY(); }
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size() ? get(i % sizeX(), i / sizeX()) : T();
    }
};

} // namespace NBX
