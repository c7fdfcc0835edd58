#include "geometrydatamappingiterator.h"

#include <zmt/core/terrain/geometry/base/geometrydata.h>

namespace ZMT::CORE {

GeometryData_MappingIterator::GeometryData_MappingIterator() = default;

GeometryData_MappingIterator::GeometryData_MappingIterator(const GeometryData * data,
                                                           const NBX::Iterator<unsigned> * indices,
                                                           bool normals)
    : data_(data), indices_(indices), normals_(normals) {}

GeometryData_MappingIterator::~GeometryData_MappingIterator() = default;

unsigned GeometryData_MappingIterator::size() const {
    return indices_ ? indices_->size() : 0;
}

NBX::Vector3Base<double> GeometryData_MappingIterator::get(unsigned i) const {
    const unsigned v = indices_->get(i);
    return normals_ ? data_->normal(v) : data_->vertex(v);
}

const NBX::SharedObj * GeometryData_MappingIterator::container() const {
    return data_.get();
}

void GeometryData_MappingIterator::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<Points>(m, this);
    m.attribute("data", data_);
    m.attribute("indices", indices_);
    m.attribute("normals", normals_);
    if (m.isReading() && !data_) indices_ = nullptr;
}

NBX_STORED_CLASS_IMPL(GeometryData_MappingIterator, Points)

} // namespace ZMT::CORE
