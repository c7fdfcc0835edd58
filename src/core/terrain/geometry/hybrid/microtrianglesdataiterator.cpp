#include "microtrianglesdataiterator.h"

#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

namespace ZMT::CORE {

MicroTrianglesData_Iterator::MicroTrianglesData_Iterator(MicroTrianglesData * data, int mode)
    : data_(data), container_(data ? data->container() : nullptr), mode_(mode) {
    NBX_CHECK(data, L"no data");
}

MicroTrianglesData_Iterator::~MicroTrianglesData_Iterator() = default;

unsigned MicroTrianglesData_Iterator::size() const {
    return data_ ? data_->vertices() : 0;
}

NBX::Vector3Base<double> MicroTrianglesData_Iterator::get(unsigned i) const {
    return mode_ == IM_Vertices ? data_->vertex(i) : data_->normal(i);
}

const NBX::SharedObj * MicroTrianglesData_Iterator::container() const {
    return data_.get();
}

NBX_CLASS_IMPL(MicroTrianglesData_Iterator, MicroTrianglesData_Iterator::Points)

} // namespace ZMT::CORE
