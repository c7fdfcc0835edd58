#include <zmt/core/terrain/geometry/base/geometrydata.h>

#include "geometrydataindexiterator.h"
#include "geometrydatamappingiterator.h"
#include <nbx/container/sequence/array.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(GeometryData, NBX::Shape)

NBX::Bounds GeometryData::boundingBox() const {
    NBX_CHECK(vertices() > 0, L"no vertices");
    NBX::Bounds box;
    for (unsigned v = 0; v < vertices(); ++v)
        box += vertex(v);
    return box;
}

GeometryData::Point GeometryData::origin() const {
    return {};
}

GeometryData::Indices * GeometryData::newIndexIterator(const NBX::Bounds & bbox) const {
    NBX_CHECK(bbox.isDefined(), L"bounding-box not defined");
    auto * indices = new NBX::Array<unsigned>;
    if (!bbox.intersects(boundingBox())) return indices;
    for (unsigned v = 0; v < vertices(); ++v)
        if (bbox.containsPoint(vertex(v))) indices->append(v);
    return indices;
}

GeometryData::Indices * GeometryData::newIndexIterator() const {
    return new GeometryData_IndexIterator(vertices());
}

GeometryData::Points * GeometryData::newVertexIterator() const {
    return newIndexToVertexIterator(newIndexIterator());
}

GeometryData::Points * GeometryData::newNormalIterator() const {
    return newIndexToNormalIterator(newIndexIterator());
}

GeometryData::Points * GeometryData::newVertexIterator(const NBX::Bounds & box) const {
    return newIndexToVertexIterator(newIndexIterator(box));
}

GeometryData::Points * GeometryData::newNormalIterator(const NBX::Bounds & box) const {
    return newIndexToNormalIterator(newIndexIterator(box));
}

GeometryData::Points * GeometryData::newIndexToVertexIterator(Indices * indices) const {
    NBX_CHECK(indices, L"no indices");
    return new GeometryData_MappingIterator(this, indices, false);
}

GeometryData::Points * GeometryData::newIndexToNormalIterator(Indices * indices) const {
    NBX_CHECK(indices, L"no indices");
    return new GeometryData_MappingIterator(this, indices, true);
}

} // namespace ZMT::CORE
