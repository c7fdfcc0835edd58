#pragma once

#include <cstdint>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {
class ColorBufferGL;
}

namespace ZMT::CORE::GRID {

class GridTerrain;
class GridTerrainTile;

/// Tiles that are drawn together under one set of textures, in the bracket that their terrain has opened.
/// Lives for one picture.
class GeometryTileBagHACK : public NBX::Shape {
    NBX_CLASS(GeometryTileBagHACK, NBX::Shape)
public:
    /// `alphaTest` holds for tiles with undefined heights; null for one that lets everything pass. What is
    /// drawn is added to `triangles`, which outlives the bag.
    GeometryTileBagHACK(NBX::SO<GridTerrain> terrain, NBX::SO<NBX::ColorBufferGL> alphaTest,
                        std::uint64_t & triangles);
    ~GeometryTileBagHACK() override;

    void append(const NBX::SO<GridTerrainTile> & tile) { tiles_.push_back(tile); }
    const std::vector<NBX::SO<GridTerrainTile>> & tiles() const { return tiles_; }
    const NBX::SO<NBX::ColorBufferGL> & alphaTest() const { return alphaTest_; }
    void addTriangles(std::uint64_t count) const { triangles_ += count; }
    /// In grid space.
    NBX::Bounds boundingBox() const override;

private:
    NBX::SO<GridTerrain> terrain_;
    std::vector<NBX::SO<GridTerrainTile>> tiles_; ///< in the order of drawing
    NBX::SO<NBX::ColorBufferGL> alphaTest_;
    std::uint64_t & triangles_;
};

} // namespace ZMT::CORE::GRID
