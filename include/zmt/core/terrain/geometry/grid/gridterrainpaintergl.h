#pragma once

#include <cstdint>

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE::GRID {

/// The render loop of a `GridTerrain`. It chooses tiles by their error on the screen, asks for those that are
/// missing, and draws them twice: their depth first, which counts what is seen of each and so orders the
/// loading, then their colours where they lie foremost.
///
/// Laws: (1) the tiles drawn cover the terrain without gap or overlap at every moment of the loading, since a
/// tile stands in for its children until all of them are there. (2) A picture that is not complete asks for
/// another one. (3) A canvas that is not drawn again waits for all that its picture needs; only what cannot
/// be read is then missing.
class GridTerrainPainterGL : public NBX::ShapePainter {
    NBX_CLASS(GridTerrainPainterGL, NBX::ShapePainter)
public:
    /// What was painted since the last `resetStatistics`, all terrains together. However often a tile was
    /// painted, chosen and missing ones and their triangles are counted once.
    struct Statistics {
        std::uint64_t paintings = 0;
        std::uint64_t frameNumber = 0;       ///< of the last one, counted since the process began
        unsigned tilesCounted = 0;           ///< chosen for drawing
        unsigned tilesDrawn = 0;             ///< of these, what the colours were drawn of: not hidden ones
        std::uint64_t triangles = 0;         ///< of the tiles chosen, borders included
        std::uint64_t trianglesDrawn = 0;    ///< in both passes
        unsigned missingTiles = 0;           ///< that were wanted but not there
        bool isIncomplete = false;           ///< tiles or textures were missing
        int minLevel = 256, maxLevel = -256; ///< of the tiles chosen

        void add(const Statistics & other);
    };
    static const Statistics & statistics();
    static void resetStatistics();

    GridTerrainPainterGL() = default;

    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE::GRID
