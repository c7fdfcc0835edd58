#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

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
    /// As it lies on the card.
    struct Vertex {
        float x, y, z;
        std::array<std::uint8_t, 4> color;
    };

    /// The grid row by row, then the tables of the four borders, row by row each. Null data are reported.
    explicit GridTerrainTileVertexBuffer(NBX::SO<GridTerrainTileData> data);
    ~GridTerrainTileVertexBuffer() override;

    /// Switches the arrays on and off that `bind` points to, with the colours or without.
    static void enable(bool colors);
    static void disable(bool colors);
    /// The vertices go to the card at the first call. Notes the use.
    virtual void bind(NBX::EngineGL * engine, bool colors) const;
    /// Of the defined samples.
    virtual NBX::Bounds bbox() const;
    virtual bool hasUndefValues() const;
    /// Of the heights that coarser tiles have along a border, 0 to 3: how far beyond `bbox()` that may reach
    /// which closes the border towards them. Undefined where there are none.
    const NBX::Bounds & borderBox(unsigned border) const { return borderBoxes_[border]; }

    /// Null before the first `bind`.
    NBX::SO<NBX::BufferObjectGL> vertexArray() const;
    NBX::SO<GridTerrainTileData> tileData() const;
    /// Of the vertices.
    unsigned bytes() const { return bytes_; }
    /// Those that wait for the card: all, or none.
    std::span<const Vertex> waitingVertices() const {
        return {vertices_.get(), vertices_ ? bytes_ / sizeof(Vertex) : 0};
    }
    /// In grid space.
    NBX::Vector3Base<double> lowestPoint() const { return lowestPoint_; }
    NBX::Vector3Base<double> highestPoint() const { return highestPoint_; }

private:
    void build();
    void upload(NBX::EngineGL * engine) const;

    mutable NBX::SO<NBX::BufferObjectGL> buffer_;
    mutable std::unique_ptr<Vertex[]> vertices_; ///< null once they are on the card
    NBX::SO<GridTerrainTileData> data_;
    unsigned bytes_ = 0;
    NBX::Bounds bbox_;
    std::array<NBX::Bounds, 4> borderBoxes_;
    NBX::Vector3Base<double> lowestPoint_, highestPoint_;
    bool hasUndefValues_ = false;
};

} // namespace ZMT::CORE::GRID
