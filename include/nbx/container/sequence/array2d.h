#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include <nbx/container/sequence/iterator2d.h>
#include <nbx/container/sequence/serializevalues.h>

namespace NBX {

/// Rectangle of values in contiguous memory, row by row; can be stored.
template <ArrayElement T> class Array2D : public Iterator2D<T> {
    using Base = Iterator2D<T>;
    NBX_STORED_TEMPLATE_CLASS(Array2D, Base)
public:
    /// Empty, for reading.
    Array2D() = default;
    /// More elements than an index can count are reported and give an empty array.
    Array2D(unsigned sizeX, unsigned sizeY, const T & value = T()) : sizeX_(sizeX), sizeY_(sizeY) {
        const bool isCountable = std::uint64_t(sizeX) * sizeY <= std::numeric_limits<unsigned>::max();
        NBX_CHECK(isCountable, L"too many elements");
        if (!isCountable) sizeX_ = sizeY_ = 0;
        values_.assign(std::size_t(sizeX_) * sizeY_, value);
    }

    unsigned sizeX() const override { return sizeX_; }
    unsigned sizeY() const override { return sizeY_; }
    using Iterator2D<T>::get;
    T get(unsigned x, unsigned y) const override {
        NBX_CHECK(isInside(x, y), L"place out of range");
        return isInside(x, y) ? values_[index(x, y)] : T();
    }
    void set(unsigned x, unsigned y, const T & value) {
        NBX_CHECK(isInside(x, y), L"place out of range");
        if (isInside(x, y)) values_[index(x, y)] = value;
    }
    const T * pointer() const override { return values_.data(); }
    T * pointer() { return values_.data(); }
    const SharedObj * container() const override { return this; }

    /// Attributes "sizeX" and "sizeY" in front of the values; throws `IOError` when they do not agree.
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
        m.attribute("sizeX", sizeX_);
        m.attribute("sizeY", sizeY_);
        serializeValues(m, typeid(T).name(), values_);
        if (m.isReading() && std::uint64_t(sizeX_) * sizeY_ != values_.size())
            throw IOError(L"stored rectangle of values has another size than its values");
    }

private:
    bool isInside(unsigned x, unsigned y) const { return x < sizeX_ && y < sizeY_; }
    std::size_t index(unsigned x, unsigned y) const { return std::size_t(y) * sizeX_ + x; }

    unsigned sizeX_ = 0, sizeY_ = 0;
    std::vector<T> values_;
};

} // namespace NBX
