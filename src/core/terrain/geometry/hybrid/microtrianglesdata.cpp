#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

#include <limits>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>

namespace ZMT::CORE {

using Point = MicroTrianglesData::Point;

MicroTrianglesData::MicroTrianglesData(const HybridData * container, std::vector<unsigned> indices)
    : MicroData(container), indices_(std::move(indices)) {}

MicroTrianglesData::~MicroTrianglesData() = default;

bool MicroTrianglesData::isVertex(unsigned v) const {
    NBX_CHECK(v < vertices(), L"v out of range");
    return v < vertices() && container();
}

NBX::Bounds MicroTrianglesData::boundingBox() const {
    if (!bbox_.isDefined())
        for (unsigned v = 0; v < vertices(); ++v)
            bbox_ += vertex(v);
    return bbox_;
}

Point MicroTrianglesData::vertex(unsigned v) const {
    return isVertex(v) ? container()->vertex(indices_[v]) : Point();
}

Point MicroTrianglesData::normal(unsigned v) const {
    return isVertex(v) ? container()->normal(indices_[v]) : Point();
}

bool MicroTrianglesData::isGridVertex(unsigned v) const {
    return isVertex(v) && container()->isGridVertex(indices_[v]);
}

unsigned MicroTrianglesData::convertToContainerIndex(unsigned v) const {
    return isVertex(v) ? indices_[v] : 0;
}

double MicroTrianglesData::calculateHeight(const Point &) const {
    NBX_NOT_IMPLEMENTED(L"MicroTrianglesData::calculateHeight()");
    return -std::numeric_limits<double>::infinity();
}

bool MicroTrianglesData::hasUndefinedHeight(const Point &) const {
    NBX_NOT_IMPLEMENTED(L"MicroTrianglesData::hasUndefinedHeight()");
    return true;
}

bool MicroTrianglesData::isUndefinedHeightValue(double) const {
    NBX_NOT_IMPLEMENTED(L"MicroTrianglesData::isUndefinedHeightValue()");
    return true;
}

std::pair<double, double> MicroTrianglesData::getCellSize() const {
    NBX_NOT_IMPLEMENTED(L"MicroTrianglesData::getCellSize()");
    return {0.0, 0.0};
}

bool MicroTrianglesData::resampleRasterData(RASTER::SimpleRasterData<float> *) const {
    NBX_NOT_IMPLEMENTED(L"MicroTrianglesData::resampleRasterData()");
    return false;
}

NBX::SO<NBX::PolygonSet> MicroTrianglesData::extractMesh(const NBX::Bounds &, NBX::Progress *) const {
    NBX_NOT_IMPLEMENTED(L"MicroTrianglesData::extractMesh()");
    return nullptr;
}

NBX_CLASS_IMPL(MicroTrianglesData, MicroData)

} // namespace ZMT::CORE
