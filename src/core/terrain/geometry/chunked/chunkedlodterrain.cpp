// The heights become 16-bit steps of their range, the errors are computed from these, and the errors give the
// threshold of the root's mesh and the ratio of the worst error. Patches are made from that on demand.
// Undefined heights stay step 0, the lowest height.

#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "chunkedlodlightmap.h"
#include "chunkedlodmesh.h"
#include "chunkedlodterrainimpl.h"
#include "chunkedlodterrainpatch.h"
#include "chunkedlodworsterror.h"
#include <nbx/object/progress.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::CORE {

namespace {

constexpr double s_highestStep = 65534.0;
/// The root shows the vertices of the largest errors, of which it has just more than this many.
constexpr std::size_t s_rootVertices = 2999;

/// The step nearest to a height of the range; 0 for what no number of steps can express.
unsigned short stepOf(double height, double low, double scale) {
    const double step = (height - low) * scale + 0.5;
    return static_cast<unsigned short>(step >= 0.0 ? std::min(step, s_highestStep) : 0.0);
}

} // namespace

ChunkedLodTerrain::ChunkedLodTerrain() = default;

ChunkedLodTerrain::ChunkedLodTerrain(GridData * grid) : grid_(grid) {
    init();
}

ChunkedLodTerrain::~ChunkedLodTerrain() = default;

NBX::SO<GeometryData> ChunkedLodTerrain::data() const {
    return grid_;
}

NBX::SO<GeometryPatch> ChunkedLodTerrain::root() const {
    NBX::SO<Patch> root = root_.lock();
    if (!root && impl_) {
        root = new Patch(const_cast<ChunkedLodTerrain *>(this), 0, 0, impl_->paddedSize(), rootThreshold_,
                         wall_);
        root_ = root;
    }
    return root;
}

const ChunkedLodTerrain::Impl * ChunkedLodTerrain::impl() const {
    return impl_.get();
}

ChunkedLodTerrain::Point ChunkedLodTerrain::sceneOrigin() const {
    return GeoTransformation::geo2nbxOffset() + origin() + Point(0.0, minHeight_, 0.0);
}

void ChunkedLodTerrain::init() {
    impl_ = nullptr;
    root_ = nullptr;
    NBX_CHECK(grid_, L"no source grid");
    if (!grid_ || !grid_->rasterData()) return;
    const RASTER::RasterData & raster = *grid_->rasterData();
    impl_ = new Impl(raster.cellsX(), raster.cellsY());
    cellSizeX_ = static_cast<float>(raster.cellSizeX());
    cellSizeY_ = static_cast<float>(raster.cellSizeY());

    const auto [minHeight, maxHeight] = findHeightRange();
    const double scale = s_highestStep / (maxHeight - minHeight);
    convertHeights(minHeight, scale);
    minHeight_ = static_cast<float>(minHeight);
    heightScale_ = static_cast<float>(1.0 / scale);
    {
        constexpr double unknownLength = 0.0;
        const NBX::Progress progress("calculating LOD parameters", unknownLength, false);
        impl_->computeErrors();
    }
    rootThreshold_ = findRootThreshold();
    worstErrorRatio_ = ChunkedLodWorstError::ratio(*impl_, rootThreshold_);
    wall_ = static_cast<float>(minHeight * 1.2 - maxHeight * 0.2);
}

/// The defined and finite heights of the whole raster; a range without extent is widened.
ChunkedLodTerrain::HeightRange ChunkedLodTerrain::findHeightRange() const {
    const RASTER::RasterData & raster = *grid_->rasterData();
    double minHeight = std::numeric_limits<double>::infinity(), maxHeight = -minHeight;
    std::vector<double> row(raster.cellsX());
    for (unsigned y = 0; y < raster.cellsY(); ++y) {
        raster.valueRow(y, row.data());
        for (const double height : row)
            if (!raster.isUndefValue(height) && std::isfinite(height)) {
                minHeight = std::min(minHeight, height);
                maxHeight = std::max(maxHeight, height);
            }
    }
    // Undefined cells of flat ground are filled with its height and so hide it; the box has kept it.
    if (minHeight > maxHeight) minHeight = maxHeight = grid_->GridData::boundingBox().getLLF().y;
    if (maxHeight <= minHeight) {
        if (minHeight == 0.0)
            maxHeight = 1.0;
        else
            maxHeight = minHeight * (minHeight > 0.0 ? 1.01 : 0.99);
    }
    NBX_CHECK(minHeight < maxHeight, L"internal error");
    // Without a height, or with some whose difference is no number.
    if (!(minHeight < maxHeight) || !std::isfinite(maxHeight - minHeight)) return {0.0, 1.0};
    return {minHeight, maxHeight};
}

void ChunkedLodTerrain::convertHeights(double low, double scale) {
    const RASTER::RasterData & raster = *grid_->rasterData();
    const unsigned columns = std::min(impl_->sizeX(), raster.cellsX());
    const unsigned rows = std::min(impl_->sizeY(), raster.cellsY());
    NBX::Progress progress("converting height values", rows, false);
    std::vector<double> values(raster.cellsX());
    for (unsigned y = 0; y < rows; ++y) {
        raster.valueRow(y, values.data());
        unsigned short * steps = impl_->heights() + impl_->heightIndex(0, y);
        for (unsigned x = 0; x < columns; ++x)
            if (!raster.isUndefValue(values[x])) steps[x] = stepOf(values[x], low, scale);
        progress.update(y + 1);
    }
}

unsigned short ChunkedLodTerrain::findRootThreshold() const {
    NBX::Progress progress("calculating LOD parameters", 1.0, false);
    const std::size_t vertices = std::size_t(impl_->paddedSize()) * impl_->paddedSize();
    // Neighbours often have one error: two tables, so that the counts need not wait for each other.
    std::vector<std::array<unsigned, 2>> counts(65536);
    for (std::size_t i = 0; i < vertices; ++i)
        ++counts[impl_->errors()[i]][i % 2];
    std::size_t sum = 0;
    for (unsigned error = 65535; error > 0; --error) {
        sum += counts[error][0] + counts[error][1];
        if (sum > s_rootVertices) return static_cast<unsigned short>(error);
    }
    return 0;
}

NBX::Bounds ChunkedLodTerrain::calculateBoundingBox(unsigned x, unsigned y, unsigned size,
                                                    unsigned short threshold, double) const {
    const auto [low, high] = ChunkedLodMesh::heightRange(*impl_, x, y, size, threshold);
    const Point origin = sceneOrigin();
    const double dx = cellSizeX_, dy = heightScale_, dz = cellSizeY_;
    return NBX::Bounds(origin + Point(dx * x, dy * low, dz * y),
                       origin + Point(dx * (x + size - 1), dy * high, dz * (y + size - 1)));
}

NBX::SO<TerrainTexture> ChunkedLodTerrain::createStaticLightMap(double ambient, const Point & direction) {
    if (!impl_) return nullptr;
    return ChunkedLodLightMap::createLightMap(*grid_->rasterData(), *impl_, false, ambient, direction);
}

NBX::SO<TerrainTexture> ChunkedLodTerrain::createDynamicLightMap() {
    if (!impl_) return nullptr;
    constexpr double ambient = 0.3;
    return ChunkedLodLightMap::createLightMap(*grid_->rasterData(), *impl_, true, ambient, {-1.0, 2.5, 1.0});
}

void ChunkedLodTerrain::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    Terrain::acceptChildren(children);
    children.push_back(grid_.get());
}

void ChunkedLodTerrain::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<Terrain>(m, this);
    m.attribute("grid", grid_);
    if (m.isReading()) init();
}

NBX_STORED_CLASS_IMPL(ChunkedLodTerrain, Terrain)

} // namespace ZMT::CORE
