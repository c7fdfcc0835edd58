#include "geotransformationcoordtransformiterator.h"

#include <zmt/core/terrain/frame/geotransformation.h>

namespace ZMT::CORE {

namespace {

/// As many transformations of transformations may be read. Each takes a call on the stack.
constexpr unsigned s_maxStoredDepth = 64;

} // namespace

GeoTransformation_CoordTransformIterator::GeoTransformation_CoordTransformIterator(NBX::SO<Points> master,
                                                                                   bool geo2nbx)
    : master_(std::move(master)), geo2nbx_(geo2nbx) {}

unsigned GeoTransformation_CoordTransformIterator::size() const {
    return master_ ? master_->size() : 0;
}

NBX::Vector3Base<double> GeoTransformation_CoordTransformIterator::get(unsigned i) const {
    const NBX::Vector3Base<double> p = master_->get(i);
    return geo2nbx_ ? GeoTransformation::geo2nbxTf(p) : GeoTransformation::nbx2geoTf(p);
}

const NBX::SharedObj * GeoTransformation_CoordTransformIterator::container() const {
    return master_ ? master_->container() : nullptr;
}

void GeoTransformation_CoordTransformIterator::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<Points>(m, this);
    m.attribute("master", master_);
    m.attribute("geo2nbx", geo2nbx_);
    if (m.isReading() && isTooDeep()) {
        master_ = nullptr;
        throw NBX::IOError(L"stored points are transformed too often, or are their own master");
    }
}

bool GeoTransformation_CoordTransformIterator::isTooDeep() const {
    unsigned depth = 0;
    const GeoTransformation_CoordTransformIterator * iterator = this;
    while (iterator && ++depth <= s_maxStoredDepth)
        iterator = dynamic_cast<const GeoTransformation_CoordTransformIterator *>(iterator->master_.get());
    return iterator;
}

NBX_STORED_CLASS_IMPL(GeoTransformation_CoordTransformIterator, Points)

} // namespace ZMT::CORE
