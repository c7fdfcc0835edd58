// A block whose read failed, or which is damaged, is not asked for in every frame (`BlockRetry`). The last
// block of the root stays, so that there is always something to draw. Whoever lets a tree go unloads its
// children.

#include "asyncgridterraintile.h"

#include <algorithm>
#include <cstring>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/subgridterraintile.h>

#include "asyncgridterrainrequests.h"
#include "asyncgridterraintiledata.h"
#include "core/terrain/geometry/grid/model/tileblock.h"

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(AsyncGridTerrainFile, NBX::SharedObj)
NBX_CLASS_IMPL(AsyncGridTerrainTile, GridTerrainTile)

using Requests = AsyncGridTerrainRequests;

namespace {

IndexRange quarter(const IndexRange & range, unsigned index) {
    return {range.mode, range.start + index * (range.count / 4), range.count / 4};
}

} // namespace

AsyncGridTerrainFile::AsyncGridTerrainFile(const NBX::SO<AsyncFile> & source,
                                           const TerrainFileFormat::FileHeader & fileHeader)
    : file(source), header(fileHeader), grid2geo(fileHeader.gridToGeo()), geo2grid(grid2geo.inverse()),
      indexBuffer(new GridTerrainTileIndexBuffer(fileHeader.tileLevel)) {}

AsyncGridTerrainFile::~AsyncGridTerrainFile() = default;

AsyncGridTerrainTile::AsyncGridTerrainTile(const NBX::SO<AsyncGridTerrainFile> & terrain,
                                           const NBX::SO<GridTerrainTile> & parent,
                                           const TerrainFileFormat::TilePlace & place, const TileRef & ref,
                                           const TerrainFileFormat::GridBox & limits)
    : terrain_(terrain), parent_(parent), place_(place), ref_(ref), limits_(limits), isRoot_(!parent) {}

AsyncGridTerrainTile::~AsyncGridTerrainTile() {
    AsyncGridTerrainTile::unloadData();
    Requests::instance().noteNotFailed(this);
}

NBX::SO<GridTerrainTile> AsyncGridTerrainTile::parent() const {
    return parent_.lock();
}

unsigned AsyncGridTerrainTile::gridLevel() const {
    return place_.tileLevel;
}

int AsyncGridTerrainTile::level() const {
    return static_cast<int>(place_.depth);
}

int AsyncGridTerrainTile::detailLevel() const {
    return level();
}

bool AsyncGridTerrainTile::hasChildren(bool loadedOnly) const {
    if (loadedOnly)
        return std::any_of(childRefs_.begin(), childRefs_.end(),
                           [](const TileRef & r) { return r.isBlock(); });
    if (place_.depth == 0) return place_.tileLevel > 0;
    return std::any_of(childRefs_.begin(), childRefs_.end(), [](const TileRef & r) { return r.rawSize > 0; });
}

NBX::SO<GridTerrainTile> AsyncGridTerrainTile::child(unsigned index, bool onlyExisting) {
    NBX_CHECK_RANGE(0, int(index), 4);
    if (index >= 4 || (onlyExisting && !childRefs_[index].isBlock())) return nullptr;
    walkTimes_[index] = terrain_->walkTime;
    if (isRoot_) terrain_->isWalked = true;
    if (!children_[index]) children_[index] = newChild(index);
    return children_[index];
}

NBX::SO<GridTerrainTile> AsyncGridTerrainTile::newChild(unsigned index) {
    if (place_.depth == 0 || childRefs_[index].rawSize == 1) {
        // A single cell has no parts.
        if (place_.tileLevel == 0) return nullptr;
        return new SubGridTerrainTile(this, this, static_cast<ChildIndex>(index),
                                      quarter(terrain_->indexBuffer->tileIndices(), index));
    }
    if (!childRefs_[index].isBlock()) return nullptr;
    return new AsyncGridTerrainTile(terrain_, this, place_.child(index), childRefs_[index], box_);
}

GridTerrainTile::ChildIndex AsyncGridTerrainTile::childIndex(const NBX::SO<GridTerrainTile> & tile) const {
    const auto found = std::find(children_.begin(), children_.end(), tile);
    return found == children_.end() || !tile ? CI_LowXLowY
                                             : static_cast<ChildIndex>(found - children_.begin());
}

GridTerrainTile::Matrix AsyncGridTerrainTile::grid2geoTf() const {
    return terrain_->grid2geo;
}

GridTerrainTile::Matrix AsyncGridTerrainTile::grid2visTf() const {
    return Matrix::translation(GeoTransformation::geo2nbxOffset()) * terrain_->grid2geo;
}

GridTerrainTile::Matrix AsyncGridTerrainTile::geo2gridTf() const {
    return terrain_->geo2grid;
}

GridTerrainTile::Matrix AsyncGridTerrainTile::vis2gridTf() const {
    return terrain_->geo2grid * Matrix::translation(GeoTransformation::nbx2geoOffset());
}

const NBX::Bounds & AsyncGridTerrainTile::gridBoundingBox() const {
    return bounds_;
}

NBX::SO<GridTerrainTileData> AsyncGridTerrainTile::tileData() const {
    if (const NBX::SO<AsyncGridTerrainTileData> data = usedData()) return data;
    take(false);
    return data_.lock();
}

NBX::SO<GridTerrainTileData> AsyncGridTerrainTile::requestTileData(double priority, bool blocking,
                                                                   bool * failed) {
    if (const NBX::SO<AsyncGridTerrainTileData> data = usedData()) return data;
    NBX::SO<AsyncFile::Request> request = request_.lock();
    const double before = request ? request->priority() : BlockRetry::rankOfGivenUp(priority);
    if (!request) {
        request = ask(blocking ? AsyncFile::topPriority : priority);
    } else if (request->state() == AsyncFile::RS_Queued) {
        request->setPriority(std::max(request->priority(), priority));
        Requests::instance().want(request, this);
    } else {
        Requests::instance().wantStarted(request);
    }
    if (request && blocking && !request->wait()) request->setPriority(before);
    // What is taken may be more than the memory manager keeps.
    NBX::SO<AsyncGridTerrainTileData> data = take(blocking);
    if (failed && retry_.hasFailed()) *failed = true;
    return data;
}

/// The heights, if they are alive, as the ones used last.
NBX::SO<AsyncGridTerrainTileData> AsyncGridTerrainTile::usedData() const {
    const NBX::SO<AsyncGridTerrainTileData> data = data_.lock();
    // Others may have kept alive what the manager let go.
    if (data && !NBX::MainMemoryManager::instance()->touch(data.get()))
        NBX::MainMemoryManager::instance()->add(data.get(), ref_.rawSize);
    return data;
}

/// A new request; null while it is too early to try again.
NBX::SO<AsyncFile::Request> AsyncGridTerrainTile::ask(double priority) const {
    if (retry_.hasFailed() && Requests::now() < retryTime_) return nullptr;
    if (!TerrainFileFormat::isPossibleTile(ref_, place_.tileLevel, terrain_->header.dataSize)) {
        failBlock(L"the file refers to a block that it cannot hold; get it anew");
        return nullptr;
    }
    NBX::SO<AsyncFile::Request> request = terrain_->file->request(ref_.offset, ref_.storedSize, priority);
    if (!request) {
        failRead(L"the file is not open");
        return nullptr;
    }
    request_ = request;
    Requests::instance().want(request, this);
    return request;
}

/// The block of a request that is ready; null while none is, and when enough were taken in this frame.
NBX::SO<AsyncGridTerrainTileData> AsyncGridTerrainTile::take(bool blocking) const {
    const NBX::SO<AsyncFile::Request> request = request_.lock();
    if (!request) return nullptr;
    const AsyncFile::RequestState state = request->state();
    if (state == AsyncFile::RS_Failed) {
        release(request);
        failRead(request->errorText());
        return nullptr;
    }
    if (state != AsyncFile::RS_Ready || !Requests::instance().mayTake(blocking)) return nullptr;
    const NBX::SO<NBX::DataResource> stored = request->data();
    release(request);
    const NBX::SO<AsyncGridTerrainTileData> data = use(TileBlock::inflated(ref_, stored));
    if (!data) failBlock(L"the block is damaged; get the file anew");
    return data;
}

/// The heights of `block`; null where it is none of this tile.
NBX::SO<AsyncGridTerrainTileData> AsyncGridTerrainTile::use(const NBX::SO<NBX::DataResource> & block) const {
    TerrainFileFormat::TileHeader header;
    if (!block || block->size() != TerrainFileFormat::blockSize(place_.tileLevel)) return nullptr;
    std::memcpy(static_cast<void *>(&header), block->pointer(), sizeof header);
    if (!header.isSound(place_, limits_)) return nullptr;
    box_ = header.box;
    bounds_ = header.box.bounds();
    childRefs_ = header.children;
    const NBX::SO<AsyncGridTerrainTileData> data(new AsyncGridTerrainTileData(place_, block));
    data_ = data;
    if (isRoot_) kept_ = data;
    retry_.succeeded();
    failure_.clear();
    Requests::instance().noteNotFailed(this);
    NBX::MainMemoryManager::instance()->add(data.get(), ref_.rawSize);
    return data;
}

void AsyncGridTerrainTile::failRead(const std::wstring & reason) const {
    fail(reason, retry_.readFailed());
}

void AsyncGridTerrainTile::failBlock(const std::wstring & reason) const {
    fail(reason, retry_.blockFailed());
}

void AsyncGridTerrainTile::fail(const std::wstring & reason, double pause) const {
    failure_ = reason;
    retryTime_ = Requests::now() + pause;
    Requests::instance().noteFailed(this);
}

bool AsyncGridTerrainTile::isStillFailing() const {
    return BlockRetry::isStillFailing(request_.lock(), Requests::now() - retryTime_);
}

void AsyncGridTerrainTile::release(const NBX::SO<AsyncFile::Request> & request) const {
    request_ = nullptr;
    request->cancel();
    Requests::instance().forget(request);
}

void AsyncGridTerrainTile::requestEnded(const NBX::SO<AsyncFile::Request> & request, bool hasFailed) const {
    if (request_.lock() != request) return;
    request_ = nullptr;
    if (hasFailed) failRead(request->errorText());
}

void AsyncGridTerrainTile::unloadChildren() {
    for (unsigned i = 0; i < children_.size(); ++i)
        unloadChild(i);
}

void AsyncGridTerrainTile::unloadChild(unsigned index) {
    NBX_CHECK_RANGE(0, int(index), 4);
    if (index >= 4 || !children_[index]) return;
    const NBX::SO<GridTerrainTile> child = children_[index];
    children_[index] = nullptr;
    child->unloadChildren();
}

void AsyncGridTerrainTile::unloadData() {
    for (const NBX::SO<GridTerrainTile> & child : children_)
        if (child) child->unloadData();
    if (const NBX::SO<GridTerrainTileVertexBuffer> buffer = vertexBuffer_.lock())
        NBX::GraphicsMemoryManager::instance()->remove(buffer.get());
    vertexBuffer_ = nullptr;
    if (const NBX::SO<AsyncGridTerrainTileData> data = data_.lock())
        NBX::MainMemoryManager::instance()->remove(data.get());
    data_ = nullptr;
    kept_ = nullptr;
    if (const NBX::SO<AsyncFile::Request> request = request_.lock()) release(request);
}

bool AsyncGridTerrainTile::hasUndefValues() const {
    if (undefFlag_ < 0) {
        const NBX::SO<AsyncGridTerrainTileData> data = data_.lock();
        // What is not known may be so.
        if (!data) return true;
        undefFlag_ = data->hasUndefValues() ? 1 : 0;
    }
    return undefFlag_ == 1;
}

NBX::SO<GridTerrainTileIndexBuffer> AsyncGridTerrainTile::indexBuffer() const {
    return terrain_->indexBuffer;
}

NBX::SO<GridTerrainTileVertexBuffer> AsyncGridTerrainTile::vertexBuffer() {
    NBX::SO<GridTerrainTileVertexBuffer> buffer = vertexBuffer_.lock();
    if (buffer) {
        NBX::GraphicsMemoryManager::instance()->touch(buffer.get());
        return buffer;
    }
    const NBX::SO<AsyncGridTerrainTileData> data = usedData();
    if (!data) return nullptr;
    buffer = new GridTerrainTileVertexBuffer(data);
    vertexBuffer_ = buffer;
    return buffer;
}

void AsyncGridTerrainTile::dropUnwalked(double time) {
    for (unsigned i = 0; i < children_.size(); ++i) {
        if (!children_[i]) continue;
        if (walkTimes_[i] < time) {
            children_[i]->unloadData();
            unloadChild(i);
        } else if (const auto tile = NBX::soCast<AsyncGridTerrainTile>(children_[i])) {
            tile->dropUnwalked(time);
        } else if (const auto part = NBX::soCast<SubGridTerrainTile>(children_[i])) {
            part->dropUnwalked(time, terrain_->walkTime);
        }
    }
}

} // namespace ZMT::CORE::GRID
