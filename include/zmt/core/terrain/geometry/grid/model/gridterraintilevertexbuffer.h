#pragma once

#include <nbx/math/bounds.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {
class BufferObjectGL;
class EngineGL;
} // namespace NBX

namespace ZMT::CORE::GRID {

class GridTerrainTileData;

/// The samples and the border tables of one tile as vertices on the card, in grid space: 16 bytes each, three
/// floats and four bytes of colour, whose alpha is 0 where the sample is undefined. Enters the
/// `GraphicsMemoryManager` when it is made. Render thread.
class GridTerrainTileVertexBuffer : public NBX::SharedObj {
    NBX_CLASS(GridTerrainTileVertexBuffer, NBX::SharedObj)
public:
    explicit GridTerrainTileVertexBuffer(NBX::SO<GridTerrainTileData> data);
    ~GridTerrainTileVertexBuffer() override;

    /// Switches the arrays on and off that `bind` points to, with the colours or without.
    static void enable(bool colors);
    static void disable(bool colors);
    virtual void bind(NBX::EngineGL * engine, bool colors) const;
    /// Of the defined samples.
    virtual NBX::Bounds bbox() const;
    virtual bool hasUndefValues() const;

    NBX::SO<NBX::BufferObjectGL> vertexArray() const;
    NBX::SO<GridTerrainTileData> tileData() const;
    /// In grid space.
    NBX::Vector3Base<double> lowestPoint() const { return lowestPoint_; }
    NBX::Vector3Base<double> highestPoint() const { return highestPoint_; }

private:
    NBX::SO<NBX::BufferObjectGL> buffer_;
    NBX::SO<GridTerrainTileData> data_;
    NBX::Bounds bbox_;
    NBX::Vector3Base<double> lowestPoint_, highestPoint_;
    bool hasUndefValues_ = false;
};

} // namespace ZMT::CORE::GRID
