#pragma once

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

/// Streaming terrains whose tiles do as they are told and note what is asked of them.
namespace ScriptedTiles {

using namespace ZMT::CORE::GRID;
using Bounds = NBX::Bounds;
using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;
using Log = std::vector<std::string>;

/// What happened, in its order.
inline Log s_log;

/// Grid x, y, z are x, z and height of the map.
inline const Matrix & gridToGeo() {
    static const Matrix matrix({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1});
    return matrix;
}

/// A flat tile of two by two cells.
class FlatData : public GridTerrainTileData {
    NBX_TEMPLATE_CLASS(FlatData, GridTerrainTileData)
public:
    unsigned tileLevel() const override { return 1; }
    unsigned step() const override { return 1; }
    unsigned tileX() const override { return 0; }
    unsigned tileY() const override { return 0; }
    unsigned cells() const override { return 3; }
    std::uint16_t value(unsigned, unsigned) const override { return 1; }
    unsigned borderLODs() const override { return 1; }
    unsigned borderLODValues(unsigned) const override { return 3; }
    std::uint16_t borderValue(unsigned, unsigned, unsigned) const override { return 1; }
};

/// Draws the square of its box at the box's lowest height.
class Tile : public GridTerrainTile {
    NBX_TEMPLATE_CLASS(Tile, GridTerrainTile)
public:
    Tile(std::string name, const Bounds & box, int level) : name(std::move(name)), box(box), level_(level) {}

    /// Four children with one letter more each, "a" at the low corner, in the quarters of this tile's box.
    Tile & split(bool isLoaded = true) {
        for (unsigned i = 0; i < 4; ++i)
            addChild(i)->isLoaded = isLoaded;
        splits = true;
        return *this;
    }
    Tile * addChild(unsigned i) {
        const Point low = box.point((i & 1U) / 2.0, (i >> 1U) / 2.0, 0), size = box.diagonal();
        const Bounds quarter(low, low + Point(size.x / 2, size.y / 2, size.z));
        children[i] = NBX::SO<Tile>(new Tile(name + char('a' + i), quarter, level_ - 1));
        children[i]->parent_ = NBX::SO<GridTerrainTile>(this);
        return children[i].get();
    }
    Tile & operator[](unsigned i) { return *children[i]; }
    static Tile & of(GridTerrainTile & tile) { return dynamic_cast<Tile &>(tile); }

    NBX::SO<GridTerrainTile> parent() const override { return parent_.lock(); }
    unsigned gridLevel() const override { return 1; }
    int level() const override { return level_; }
    int detailLevel() const override { return detail ? *detail : level_; }
    bool hasChildren(bool) const override { return children[0] || children[1] || children[2] || children[3]; }
    NBX::SO<GridTerrainTile> child(unsigned index, bool) override { return children[index]; }
    ChildIndex childIndex(const NBX::SO<GridTerrainTile> & tile) const override {
        for (unsigned i = 0; i < 4; ++i)
            if (children[i].get() == tile.get()) return static_cast<ChildIndex>(i);
        return CI_LowXLowY;
    }
    Matrix grid2geoTf() const override { return gridToGeo(); }
    Matrix grid2visTf() const override { return gridToGeo(); }
    Matrix geo2gridTf() const override { return gridToGeo().inverse(); }
    Matrix vis2gridTf() const override { return gridToGeo().inverse(); }
    const Bounds & gridBoundingBox() const override { return box; }
    bool shouldBeRefined(const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
                         double threshold) const override {
        if (s_onRefine) s_onRefine(*this, viewInfo, width, height, threshold);
        return splits;
    }
    NBX::SO<GridTerrainTileData> tileData() const override {
        ++touches;
        return isLoaded ? data_ : nullptr;
    }
    NBX::SO<GridTerrainTileData> requestTileData(double priority, bool blocking, bool *) override {
        requests.push_back(priority);
        s_log.push_back((blocking ? "load " : "request ") + name);
        if (blocking && isReadable) isLoaded = true;
        return tileData();
    }
    void unloadChildren() override { children = {}; }
    void unloadChild(unsigned i) override { children[i] = nullptr; }
    void unloadData() override { isLoaded = false; }
    unsigned renderGeometry(NBX::EngineGL * engine, bool colors) const override {
        s_log.push_back((colors ? "depth " : "color ") + name);
        if (s_onRender) s_onRender(engine, *this, colors);
        if (colors) glColor4d(0.5, 0.5, 0.5, alpha);
        const Point &low = box.getLLF(), &high = box.getURB();
        glBegin(GL_TRIANGLE_STRIP);
        for (const Point & p : {Point(low.x, low.y, 0), Point(high.x, low.y, 0), Point(low.x, high.y, 0),
                                Point(high.x, high.y, 0)})
            glVertex3d(p.x, p.y, low.z);
        glEnd();
        return 2;
    }
    bool hasUndefValues() const override { return hasVoids; }
    NBX::SO<GridTerrainTileIndexBuffer> indexBuffer() const override { return nullptr; }
    NBX::SO<GridTerrainTileVertexBuffer> vertexBuffer() override {
        if (!isLoaded || buffersLeft == 0) return nullptr;
        if (buffersLeft > 0) --buffersLeft;
        if (!buffer_) buffer_ = new GridTerrainTileVertexBuffer(data_);
        return buffer_;
    }

    static inline std::function<void(const Tile &, const NBX::ViewInfo *, unsigned, unsigned, double)>
        s_onRefine;
    static inline std::function<void(NBX::EngineGL *, const Tile &, bool)> s_onRender;

    std::string name;
    Bounds box;
    bool isLoaded = true, isReadable = true, splits = false, hasVoids = false;
    double alpha = 1.0;           ///< of its vertices
    int buffersLeft = -1;         ///< how often there is a vertex buffer yet; -1 for ever
    const int * detail = nullptr; ///< null for that of its level
    std::array<NBX::SO<Tile>, 4> children;
    std::vector<double> requests; ///< their priorities
    mutable unsigned touches = 0;

private:
    int level_;
    NBX::WO<GridTerrainTile> parent_;
    NBX::SO<GridTerrainTileData> data_{new FlatData};
    NBX::SO<GridTerrainTileVertexBuffer> buffer_;
};

class ScriptedTerrain : public GridTerrain {
    NBX_TEMPLATE_CLASS(ScriptedTerrain, GridTerrain)
public:
    explicit ScriptedTerrain(const NBX::SO<Tile> & root) : root(root) {
        if (root) gridBox_ = root->box;
        geoBox_ = gridBox_.transform(gridToGeo());
    }

    unsigned gridLevel() const override { return 1; }
    NBX::SO<GridTerrainTile> rootTile() const override { return root; }
    const Matrix & grid2geoTf() const override { return gridToGeo(); }
    const Matrix & geo2gridTf() const override {
        static const Matrix inverse = gridToGeo().inverse();
        return inverse;
    }
    const Bounds & gridBoundingBox() const override { return gridBox_; }
    const Bounds & geoBoundingBox() const override { return geoBox_; }
    void preRender(NBX::EngineGL *, bool colors) const override {
        s_log.emplace_back(colors ? "open depth" : "open color");
    }
    void postRender(NBX::EngineGL *, bool colors) const override {
        s_log.emplace_back(colors ? "close depth" : "close color");
        if (colors && s_finishesDepth) glFinish();
    }

    /// Whether counts of fragments are there behind the depth pass.
    static inline bool s_finishesDepth = true;

    NBX::SO<Tile> root;

private:
    Bounds gridBox_, geoBox_;
};

} // namespace ScriptedTiles
