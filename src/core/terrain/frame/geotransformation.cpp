#include <zmt/core/terrain/frame/geotransformation.h>

#include "geotransformationcoordtransformiterator.h"
#include "shiftedbounds.h"

namespace ZMT::CORE {

namespace {

GeoTransformation::Point s_origin;

} // namespace

void GeoTransformation::setNBXOrigin(const Point & origin) {
    s_origin = origin;
}

GeoTransformation::Point GeoTransformation::nbx2geoOffset() {
    return s_origin;
}

GeoTransformation::Point GeoTransformation::geo2nbxOffset() {
    return -s_origin;
}

GeoTransformation::Point GeoTransformation::geo2nbxTf(const Point & p) {
    return p - s_origin;
}

GeoTransformation::Point GeoTransformation::nbx2geoTf(const Point & p) {
    return p + s_origin;
}

NBX::Bounds GeoTransformation::geo2nbxTf(const NBX::Bounds & box) {
    return shifted(box, -s_origin);
}

NBX::Bounds GeoTransformation::nbx2geoTf(const NBX::Bounds & box) {
    return shifted(box, s_origin);
}

NBX::SO<GeoTransformation::Points> GeoTransformation::geo2nbxTf(const NBX::SO<Points> & points) {
    return new GeoTransformation_CoordTransformIterator(points, true);
}

NBX::SO<GeoTransformation::Points> GeoTransformation::nbx2geoTf(const NBX::SO<Points> & points) {
    return new GeoTransformation_CoordTransformIterator(points, false);
}

} // namespace ZMT::CORE
