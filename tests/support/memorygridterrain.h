#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include <nbx/gl/context/enginegl.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/subgridterraintile.h>

/// What a `MemoryGridTerrain` is made of. All positions are finest cells.
struct MemoryGrid {
    /// A tile by its depth number and the position of its first sample, in steps of its own.
    struct Key {
        unsigned depth, x, y;
        auto operator<=>(const Key &) const = default;
    };
    /// The heights that tiles of a depth have at a position; 0 is none.
    using Sample = std::function<std::uint16_t(unsigned depth, unsigned x, unsigned y)>;
    /// As in files: 0 for nothing, 1 for a part of the parent, 2 for heights of its own.
    using Kind = std::function<unsigned(const Key & tile)>;
    using Matrix = NBX::Matrix4x4Base<double>;

    unsigned level = 3; ///< L: 2^L cells along a tile
    unsigned depth = 2; ///< of the root
    Sample sample = [](unsigned, unsigned, unsigned) -> std::uint16_t { return 1; };
    Kind kind = [](const Key &) { return 2U; };
    Matrix grid2geo = toGeo(1.0, 1.0, 1.0, 0.0, 0.0, 0.0);

    /// Cells along the root.
    unsigned cells() const { return 1U << (level + depth); }

    static Matrix toGeo(double cellX, double cellY, double heightScale, double originX, double originY,
                        double minHeight) {
        return Matrix({cellX, 0, 0, originX, 0, 0, heightScale, minHeight - heightScale, 0, cellY, 0, originY,
                       0, 0, 0, 1});
    }
};

/// The heights of one of its tiles.
class MemoryGridTileData : public ZMT::CORE::GRID::GridTerrainTileData {
    NBX_TEMPLATE_CLASS(MemoryGridTileData, ZMT::CORE::GRID::GridTerrainTileData)
public:
    MemoryGridTileData(const MemoryGrid & grid, const MemoryGrid::Key & key)
        : level_(grid.level), rootDepth_(grid.depth), key_(key) {
        for (unsigned y = 0; y < cells(); ++y)
            for (unsigned x = 0; x < cells(); ++x)
                samples_.push_back(
                    grid.sample(key.depth, (key.x + x) << key.depth, (key.y + y) << key.depth));
        for (unsigned border = 0; border < 4; ++border)
            for (unsigned k = 0; k < level_; ++k)
                for (unsigned i = 0; i < borderLODValues(k); ++i)
                    samples_.push_back(borderSample(grid, border, k, i));
    }

    unsigned tileLevel() const override { return level_; }
    unsigned step() const override { return 1U << key_.depth; }
    unsigned tileX() const override { return key_.x; }
    unsigned tileY() const override { return key_.y; }
    unsigned cells() const override { return (1U << level_) + 1; }
    std::uint16_t value(unsigned x, unsigned y) const override { return samples_.at(x + y * cells()); }
    unsigned borderLODs() const override { return level_; }
    unsigned borderLODValues(unsigned k) const override { return (1U << (level_ - k)) + 1; }
    std::uint16_t borderValue(unsigned border, unsigned k, unsigned i) const override {
        std::size_t at =
            std::size_t(cells()) * cells() + std::size_t(border) * ((2U << level_) + level_ - 2) + i;
        for (unsigned j = 0; j < k; ++j)
            at += borderLODValues(j);
        return samples_.at(at);
    }
    const std::uint16_t * samples() const override { return isInOnePiece ? samples_.data() : nullptr; }

    /// Whether `samples` gives them.
    bool isInOnePiece = true;

private:
    std::uint16_t borderSample(const MemoryGrid & grid, unsigned border, unsigned k, unsigned i) const {
        if (key_.depth + k > rootDepth_) return 0;
        const unsigned last = cells() - 1, along = i << k;
        const unsigned x = border == 0 ? 0 : border == 2 ? last : along;
        const unsigned y = border == 1 ? 0 : border == 3 ? last : along;
        return grid.sample(key_.depth + k, (key_.x + x) << key_.depth, (key_.y + y) << key_.depth);
    }

    unsigned level_, rootDepth_;
    MemoryGrid::Key key_;
    std::vector<std::uint16_t> samples_;
};

/// What all tiles of a `MemoryGridTerrain` share, and what a test steers and counts.
class MemoryGridState : public NBX::SharedObj {
    NBX_TEMPLATE_CLASS(MemoryGridState, NBX::SharedObj)
public:
    using Key = MemoryGrid::Key;

    explicit MemoryGridState(MemoryGrid madeOf)
        : grid(std::move(madeOf)), geo2grid(grid.grid2geo.inverse()),
          indexBuffer(new ZMT::CORE::GRID::GridTerrainTileIndexBuffer(grid.level)) {}

    const MemoryGrid grid;
    const MemoryGrid::Matrix geo2grid;
    const NBX::SO<ZMT::CORE::GRID::GridTerrainTileIndexBuffer> indexBuffer;

    /// Reads of these fail.
    std::set<Key> failing;
    /// Requests without waiting that have not been answered; the priority is the highest one.
    std::map<Key, double> waiting;
    /// Blocks that have arrived; the next look at the tile takes them.
    std::set<Key> arrived;
    /// How often each tile was loaded.
    std::map<Key, unsigned> loads;
    unsigned blockingRequests = 0, requests = 0;

    /// What waits arrives, but for those that fail.
    void deliver() {
        for (const auto & [key, priority] : waiting)
            if (!failing.count(key)) arrived.insert(key);
        waiting.clear();
    }
    unsigned totalLoads() const {
        unsigned total = 0;
        for (const auto & [key, count] : loads)
            total += count;
        return total;
    }

    /// Of the defined heights of a tile and all below it.
    NBX::Bounds boundsOf(const Key & key) {
        const auto known = bounds_.find(key);
        if (known != bounds_.end()) return known->second;
        NBX::Bounds box = ownBounds(key);
        if (key.depth > 0)
            for (unsigned i = 0; i < 4; ++i)
                if (const Key child = childOf(key, i); kindOf(child) >= 2) box += boundsOf(child);
        return bounds_[key] = box;
    }
    Key childOf(const Key & key, unsigned i) const {
        return {key.depth - 1, key.x * 2 + ((i & 1U) << grid.level), key.y * 2 + ((i >> 1U) << grid.level)};
    }
    unsigned kindOf(const Key & key) {
        const unsigned kind = grid.kind(key);
        return kind >= 2 && !ownBounds(key).isDefined() ? 0 : kind;
    }

private:
    /// One sample wider than what is defined, as the writer has it.
    NBX::Bounds ownBounds(const Key & key) const {
        const unsigned last = 1U << grid.level;
        NBX::Bounds box;
        for (unsigned y = 0; y <= last; ++y)
            for (unsigned x = 0; x <= last; ++x) {
                const double z = grid.sample(key.depth, (key.x + x) << key.depth, (key.y + y) << key.depth);
                if (z == 0.0) continue;
                const double step = 1U << key.depth;
                const auto at = [&](unsigned column, unsigned row) {
                    return NBX::Vector3Base<double>((key.x + column) * step, (key.y + row) * step, z);
                };
                box += at(std::max(x, 1U) - 1, std::max(y, 1U) - 1);
                box += at(std::min(x + 1, last), std::min(y + 1, last));
            }
        return box;
    }

    std::map<Key, NBX::Bounds> bounds_;
};

/// A tile with heights of its own.
class MemoryGridTile : public ZMT::CORE::GRID::GridTerrainTile {
    NBX_TEMPLATE_CLASS(MemoryGridTile, ZMT::CORE::GRID::GridTerrainTile)
public:
    using Tile = ZMT::CORE::GRID::GridTerrainTile;
    using Data = ZMT::CORE::GRID::GridTerrainTileData;

    MemoryGridTile(MemoryGridState * state, const MemoryGrid::Key & key, Tile * parent)
        : state_(state), key_(key), parent_(parent) {}

    const MemoryGrid::Key & key() const { return key_; }

    NBX::SO<Tile> parent() const override { return parent_.lock(); }
    unsigned gridLevel() const override { return state_->grid.level; }
    int level() const override { return int(key_.depth); }
    int detailLevel() const override { return level(); }
    bool hasChildren(bool loadedOnly) const override {
        const bool isAny = std::any_of(kinds_.begin(), kinds_.end(),
                                       [&](unsigned kind) { return kind >= (loadedOnly ? 2U : 1U); });
        return isAny || (!loadedOnly && key_.depth == 0);
    }
    NBX::SO<Tile> child(unsigned i, bool onlyExisting) override {
        const unsigned kind = kinds_[i];
        if (onlyExisting && kind < 2) return nullptr;
        if (children_[i]) return children_[i];
        if (key_.depth == 0 || kind == 1) {
            const auto & whole = state_->indexBuffer->tileIndices();
            const std::uint32_t quarter = whole.count / 4;
            children_[i] = new ZMT::CORE::GRID::SubGridTerrainTile(
                this, this, ChildIndex(i), {whole.mode, whole.start + i * quarter, quarter});
        } else if (kind >= 2) {
            children_[i] = new MemoryGridTile(state_.get(), state_->childOf(key_, i), this);
        }
        return children_[i];
    }
    ChildIndex childIndex(const NBX::SO<Tile> & tile) const override {
        for (unsigned i = 0; i < 4; ++i)
            if (children_[i] && children_[i] == tile) return ChildIndex(i);
        return CI_LowXLowY;
    }
    Matrix grid2geoTf() const override { return state_->grid.grid2geo; }
    Matrix grid2visTf() const override {
        return Matrix::translation(ZMT::CORE::GeoTransformation::geo2nbxOffset()) * grid2geoTf();
    }
    Matrix geo2gridTf() const override { return state_->geo2grid; }
    Matrix vis2gridTf() const override {
        return geo2gridTf() * Matrix::translation(ZMT::CORE::GeoTransformation::nbx2geoOffset());
    }
    const NBX::Bounds & gridBoundingBox() const override { return bounds_; }
    NBX::SO<Data> tileData() const override {
        if (!data_ && state_->arrived.erase(key_) > 0) const_cast<MemoryGridTile *>(this)->load();
        return data_;
    }
    NBX::SO<Data> requestTileData(double priority, bool blocking, bool * failed) override {
        if (tileData()) return data_;
        const bool fails = state_->failing.count(key_) > 0;
        if (failed) *failed = fails;
        ++(blocking ? state_->blockingRequests : state_->requests);
        if (blocking) {
            if (!fails) load();
        } else {
            double & known = state_->waiting[key_];
            known = std::max(known, priority);
        }
        return data_;
    }
    void unloadChildren() override { children_.fill(nullptr); }
    void unloadChild(unsigned i) override { children_.at(i) = nullptr; }
    void unloadData() override {
        for (const auto & child : children_)
            if (child) child->unloadData();
        unloadOwnData();
    }
    /// As when a memory manager drops it.
    void unloadOwnData() {
        data_ = nullptr;
        vertices_ = nullptr;
        state_->waiting.erase(key_);
    }
    bool hasUndefValues() const override {
        const auto vertices = const_cast<MemoryGridTile *>(this)->vertexBuffer();
        return vertices && vertices->hasUndefValues();
    }
    NBX::SO<ZMT::CORE::GRID::GridTerrainTileIndexBuffer> indexBuffer() const override {
        return state_->indexBuffer;
    }
    NBX::SO<ZMT::CORE::GRID::GridTerrainTileVertexBuffer> vertexBuffer() override {
        if (!vertices_ && tileData()) vertices_ = new ZMT::CORE::GRID::GridTerrainTileVertexBuffer(data_);
        return vertices_;
    }

private:
    void load() {
        ++state_->loads[key_];
        state_->waiting.erase(key_);
        data_ = new MemoryGridTileData(state_->grid, key_);
        bounds_ = state_->boundsOf(key_);
        for (unsigned i = 0; i < 4 && key_.depth > 0; ++i)
            kinds_[i] = state_->kindOf(state_->childOf(key_, i));
    }

    NBX::SO<MemoryGridState> state_;
    MemoryGrid::Key key_;
    NBX::WO<Tile> parent_;
    std::array<unsigned, 4> kinds_{0, 0, 0, 0}; ///< of the children; nothing before the tile was read
    std::array<NBX::SO<Tile>, 4> children_;
    NBX::Bounds bounds_;
    NBX::SO<Data> data_;
    NBX::SO<ZMT::CORE::GRID::GridTerrainTileVertexBuffer> vertices_;
};

/// A terrain of tiles whose blocks are computed from a function when they are read: at once for those who
/// wait, and by `state().deliver()` for others. The root is read when it is made. Scene coordinates are geo
/// coordinates while the scene's origin is 0.
class MemoryGridTerrain : public ZMT::CORE::GRID::GridTerrain {
    NBX_TEMPLATE_CLASS(MemoryGridTerrain, ZMT::CORE::GRID::GridTerrain)
public:
    explicit MemoryGridTerrain(MemoryGrid grid) : state_(new MemoryGridState(std::move(grid))) {
        const double cells = state_->grid.cells();
        gridBox_ = NBX::Bounds({0.0, 0.0, 1.0}, {cells, cells, 65535.0});
        geoBox_ = superGeoBoundingBox();
        root_ = new MemoryGridTile(state_.get(), {state_->grid.depth, 0, 0}, nullptr);
        root_->requestTileData(1e42, true, nullptr);
        state_->blockingRequests = 0;
    }

    MemoryGridState & state() const { return *state_; }

    unsigned gridLevel() const override { return state_->grid.level; }
    NBX::SO<ZMT::CORE::GRID::GridTerrainTile> rootTile() const override { return root_; }
    const Matrix & grid2geoTf() const override { return state_->grid.grid2geo; }
    const Matrix & geo2gridTf() const override { return state_->geo2grid; }
    const NBX::Bounds & gridBoundingBox() const override { return gridBox_; }
    const NBX::Bounds & geoBoundingBox() const override { return geoBox_; }
    void preRender(NBX::EngineGL * engine, bool colors) const override {
        state_->indexBuffer->bind(engine);
        ZMT::CORE::GRID::GridTerrainTileVertexBuffer::enable(colors);
    }
    void postRender(NBX::EngineGL * engine, bool colors) const override {
        ZMT::CORE::GRID::GridTerrainTileVertexBuffer::disable(colors);
        state_->indexBuffer->unbind(engine);
    }

    /// The tile at a place, read with all above it; null where none is.
    NBX::SO<ZMT::CORE::GRID::GridTerrainTile> tile(const MemoryGrid::Key & key) const {
        NBX::SO<ZMT::CORE::GRID::GridTerrainTile> at = root_;
        for (unsigned depth = state_->grid.depth; at && depth > key.depth; --depth) {
            const unsigned bit = state_->grid.level + (depth - 1 - key.depth);
            at = at->child((key.x >> bit & 1U) + (key.y >> bit & 1U) * 2, false);
            if (at) at->requestTileData(1e42, true, nullptr);
        }
        return at;
    }
    /// Reads everything.
    void loadAll() const { loadBelow(*root_); }

private:
    static void loadBelow(ZMT::CORE::GRID::GridTerrainTile & tile) {
        tile.requestTileData(1e42, true, nullptr);
        for (unsigned i = 0; tile.hasChildren(true) && i < 4; ++i)
            if (const auto child = tile.child(i, true)) loadBelow(*child);
    }

    NBX::SO<MemoryGridState> state_;
    NBX::SO<ZMT::CORE::GRID::GridTerrainTile> root_;
    NBX::Bounds gridBox_, geoBox_;
};
