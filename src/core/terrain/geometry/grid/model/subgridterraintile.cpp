// The triangles of a tile lie in Z-order, so that a part of it is a stretch of them: where the stretch begins
// says which cells these are. The box is that of the defined heights of these cells.

#include <zmt/core/terrain/geometry/grid/model/subgridterraintile.h>

#include <algorithm>
#include <utility>

#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

namespace ZMT::CORE::GRID {

namespace {

constexpr std::uint32_t s_indicesOfCell = 6;

/// Every second bit of `code`, from bit 0 on.
unsigned everySecondBit(std::uint32_t code) {
    unsigned result = 0;
    for (unsigned bit = 0; bit < 16; ++bit)
        result |= (code >> (2 * bit) & 1U) << bit;
    return result;
}

/// The box of the defined samples of `size` by `size` cells from (x, y) on, one sample wider in the plane.
NBX::Bounds boxOf(const GridTerrainTileData & data, unsigned x, unsigned y, unsigned size) {
    unsigned minX = x + size, maxX = x, minY = y + size, maxY = y;
    std::uint16_t low = 65535, high = 0;
    for (unsigned row = y; row <= y + size; ++row)
        for (unsigned column = x; column <= x + size; ++column) {
            const std::uint16_t value = data.value(column, row);
            if (value == 0) continue;
            minX = std::min(minX, column), maxX = std::max(maxX, column);
            minY = std::min(minY, row), maxY = std::max(maxY, row);
            low = std::min(low, value), high = std::max(high, value);
        }
    if (high == 0) return {};
    const auto inGrid = [&](unsigned column, unsigned row, double height) {
        const double step = data.step();
        return NBX::Vector3Base<double>((double(data.tileX()) + column) * step,
                                        (double(data.tileY()) + row) * step, height);
    };
    return NBX::Bounds(inGrid(std::max(minX, x + 1) - 1, std::max(minY, y + 1) - 1, low),
                       inGrid(std::min(maxX + 1, x + size), std::min(maxY + 1, y + size), high));
}

} // namespace

NBX_CLASS_IMPL(SubGridTerrainTile, GridTerrainTile)

SubGridTerrainTile::SubGridTerrainTile(NBX::SO<GridTerrainTile> master, NBX::SO<GridTerrainTile> parent,
                                       ChildIndex index, IndexRange range)
    : master_(master), parent_(parent), index_(index), range_(range) {
    NBX_CHECK(master, L"no master");
    NBX_CHECK(parent, L"no parent");
    const std::uint32_t first = range.start / s_indicesOfCell, count = range.count / s_indicesOfCell;
    cells_.x = everySecondBit(first);
    cells_.y = everySecondBit(first >> 1U);
    cells_.size = count > 0 ? 1 : 0;
    while (count > cells_.size * cells_.size)
        cells_.size *= 2;
}

SubGridTerrainTile::~SubGridTerrainTile() = default;

NBX::SO<GridTerrainTile> SubGridTerrainTile::checkedMaster() const {
    NBX::SO<GridTerrainTile> master = master_.lock();
    NBX_CHECK(master, L"no master");
    return master;
}

NBX::SO<GridTerrainTile> SubGridTerrainTile::parent() const {
    return parent_.lock();
}

unsigned SubGridTerrainTile::gridLevel() const {
    const NBX::SO<GridTerrainTile> parent = parent_.lock();
    NBX_CHECK(parent, L"no parent");
    return parent ? parent->gridLevel() : 0;
}

int SubGridTerrainTile::level() const {
    const NBX::SO<GridTerrainTile> parent = parent_.lock();
    NBX_CHECK(parent, L"no parent");
    return parent ? parent->level() - 1 : 0;
}

int SubGridTerrainTile::detailLevel() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->level() : 0;
}

// A single cell has no quarters.
bool SubGridTerrainTile::hasChildren(bool loadedOnly) const {
    return !loadedOnly && cells_.size > 1;
}

NBX::SO<GridTerrainTile> SubGridTerrainTile::child(unsigned index, bool onlyExisting) {
    NBX_CHECK_RANGE(0, int(index), 4);
    if (index >= 4 || !hasChildren(onlyExisting)) return nullptr;
    areWalked_[index] = true;
    if (!children_[index]) {
        const std::uint32_t quarter = range_.count / 4;
        children_[index] = new SubGridTerrainTile(checkedMaster(), this, static_cast<ChildIndex>(index),
                                                  {range_.mode, range_.start + index * quarter, quarter});
    }
    return children_[index];
}

GridTerrainTile::ChildIndex SubGridTerrainTile::childIndex(const NBX::SO<GridTerrainTile> & tile) const {
    const auto found = tile ? std::find(children_.begin(), children_.end(), tile) : children_.end();
    return found == children_.end() ? CI_LowXLowY : static_cast<ChildIndex>(found - children_.begin());
}

GridTerrainTile::Matrix SubGridTerrainTile::grid2geoTf() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->grid2geoTf() : Matrix();
}

GridTerrainTile::Matrix SubGridTerrainTile::grid2visTf() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->grid2visTf() : Matrix();
}

GridTerrainTile::Matrix SubGridTerrainTile::geo2gridTf() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->geo2gridTf() : Matrix();
}

GridTerrainTile::Matrix SubGridTerrainTile::vis2gridTf() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->vis2gridTf() : Matrix();
}

// Until the heights have been in memory, the box of the parent, which holds this one.
const NBX::Bounds & SubGridTerrainTile::gridBoundingBox() const {
    if (boundsAreKnown_) return bounds_;
    if (const NBX::SO<GridTerrainTileData> data = tileData()) {
        bounds_ = boxOf(*data, cells_.x, cells_.y, cells_.size);
        boundsAreKnown_ = true;
    } else if (const NBX::SO<GridTerrainTile> parent = parent_.lock()) {
        bounds_ = parent->gridBoundingBox();
    }
    return bounds_;
}

NBX::SO<GridTerrainTileData> SubGridTerrainTile::tileData() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->tileData() : nullptr;
}

NBX::SO<GridTerrainTileData> SubGridTerrainTile::requestTileData(double priority, bool blocking,
                                                                 bool * failed) {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->requestTileData(priority, blocking, failed) : nullptr;
}

void SubGridTerrainTile::unloadChildren() {
    children_.fill(nullptr);
}

void SubGridTerrainTile::unloadChild(unsigned index) {
    NBX_CHECK_RANGE(0, int(index), 4);
    if (index < 4) children_[index] = nullptr;
}

// A terrain that is flown over for long would end up with every part of what was near once.
void SubGridTerrainTile::dropUnwalked(double time, double now) {
    for (unsigned i = 0; i < children_.size(); ++i) {
        if (std::exchange(areWalked_[i], false)) walkTimes_[i] = now;
        if (walkTimes_[i] < time)
            children_[i] = nullptr;
        else if (const auto part = NBX::soCast<SubGridTerrainTile>(children_[i]))
            part->dropUnwalked(time, now);
    }
}

// The heights and the buffer are the master's.
void SubGridTerrainTile::unloadData() {}

// Of the master's borders only what lies along this part: the whole range would draw fins beside other parts,
// which have neighbours of their own. Inside of the master there is nothing to close, since what lies there
// is as fine or finer.
unsigned SubGridTerrainTile::renderGeometry(NBX::EngineGL * engine, bool colors) const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    const auto vertices = master ? master->vertexBuffer() : nullptr;
    const auto indices = master ? master->indexBuffer() : nullptr;
    if (!vertices || !indices) return 0;
    vertices->bind(engine, colors);
    unsigned triangles = indices->drawElements(range_);
    for (const NeighborIndex border : {NI_LowX, NI_LowY, NI_HighX, NI_HighY})
        if (const unsigned row = isAtBorder(border) ? borderRow(border) : 0) {
            const bool isAlongY = border == NI_LowX || border == NI_HighX;
            triangles += indices->drawBorder(border, row, isAlongY ? cells_.y : cells_.x, cells_.size);
        }
    return triangles;
}

bool SubGridTerrainTile::isAtBorder(NeighborIndex border) const {
    const unsigned last = (1U << gridLevel()) - cells_.size;
    const bool isAlongY = border == NI_LowX || border == NI_HighX;
    const bool isHigh = border == NI_HighX || border == NI_HighY;
    return (isAlongY ? cells_.x : cells_.y) == (isHigh ? last : 0);
}

bool SubGridTerrainTile::hasUndefValues() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master && master->hasUndefValues();
}

NBX::SO<GridTerrainTileIndexBuffer> SubGridTerrainTile::indexBuffer() const {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->indexBuffer() : nullptr;
}

NBX::SO<GridTerrainTileVertexBuffer> SubGridTerrainTile::vertexBuffer() {
    const NBX::SO<GridTerrainTile> master = checkedMaster();
    return master ? master->vertexBuffer() : nullptr;
}

} // namespace ZMT::CORE::GRID
