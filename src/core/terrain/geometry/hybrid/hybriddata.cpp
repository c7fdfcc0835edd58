#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>

#include <algorithm>
#include <cstdint>

#include <nbx/container/sequence/iterator2d.h>
#include <nbx/container/sequence/serializevalues.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::CORE {

HybridData::HybridData() = default;

HybridData::HybridData(const RASTER::RasterData * raster, const std::vector<Point> & nonGridVertices,
                       MicroIndices * microIndices)
    : GridData(raster), microIndices_(microIndices) {
    nonGridVertices_.reserve(nonGridVertices.size());
    for (const Point & geo : nonGridVertices) {
        nonGridVertices_.push_back(LocalFrame(origin()).fromGeo(geo));
        nonGridBox_ += nonGridVertices_.back();
    }
    countVertices();
}

HybridData::~HybridData() = default;

void HybridData::countVertices() {
    gridVertices_ = GridData::vertices();
    totalVertices_ = gridVertices_ + static_cast<unsigned>(nonGridVertices_.size());
}

NBX::Bounds HybridData::boundingBox() const {
    NBX::Bounds box = GridData::boundingBox();
    box += nonGridBox_;
    return box;
}

HybridData::Point HybridData::vertex(unsigned v) const {
    if (isGridVertex(v)) return GridData::vertex(v);
    NBX_CHECK(v < vertices(), L"v out of range");
    return v < vertices() ? nonGridVertices_[v - gridVertices_] : Point();
}

HybridData::Point HybridData::normal(unsigned v) const {
    if (isGridVertex(v)) return GridData::normal(v);
    NBX_CHECK(v < vertices(), L"v out of range");
    return {0.0, 1.0, 0.0};
}

NBX::SO<MicroTrianglesData> HybridData::microData(unsigned x, unsigned y) const {
    std::vector<unsigned> corners = cellCorners(x, y);
    if (corners.empty()) return nullptr;
    return new MicroTrianglesData(this, std::move(corners));
}

NBX::SO<NBX::Shape> HybridData::cellShape(unsigned x, unsigned y) const {
    return microData(x, y);
}

std::vector<unsigned> HybridData::cellCorners(unsigned x, unsigned y) const {
    return microIndices_ ? microIndices_->get(x, y) : std::vector<unsigned>();
}

void HybridData::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<GridData>(m, this);
    NBX::serializeValue(m, "nonGridVertices", nonGridVertices_);
    m.attribute("microIndices", microIndices_);
    m.attribute("bbox", nonGridBox_);
    if (!m.isReading()) return;
    countVertices();
    checkMicroIndices();
}

void HybridData::checkMicroIndices() const {
    if (std::uint64_t(gridVertices_) + nonGridVertices_.size() > UINT32_MAX)
        throw NBX::IOError(L"stored hybrid grid has too many vertices");
    if (!microIndices_) return;
    if (microIndices_->sizeX() != sizeX() || microIndices_->sizeY() != sizeY())
        throw NBX::IOError(L"stored micro-structures are those of another grid");
    for (unsigned i = 0; i < gridVertices_; ++i) {
        const std::vector<unsigned> indices = microIndices_->get(i);
        const bool isInRange =
            std::all_of(indices.begin(), indices.end(), [this](unsigned v) { return v < totalVertices_; });
        if (indices.size() % 3 != 0 || !isInRange)
            throw NBX::IOError(L"stored micro-structure names vertices that are not there");
    }
}

NBX_STORED_CLASS_IMPL(HybridData, GridData)

} // namespace ZMT::CORE
