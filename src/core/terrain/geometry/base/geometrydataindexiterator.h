#pragma once

#include <nbx/container/sequence/iterator.h>

namespace ZMT::CORE {

/// The numbers from 0 to n-1, without storage.
class GeometryData_IndexIterator : public NBX::Iterator<unsigned> {
    NBX_CLASS(GeometryData_IndexIterator, NBX::Iterator<unsigned>)
public:
    explicit GeometryData_IndexIterator(unsigned n) : size_(n) {}

    unsigned size() const override { return size_; }
    unsigned get(unsigned i) const override { return i; }

private:
    unsigned size_;
};

} // namespace ZMT::CORE
