#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"
#include "core/terrain/texture/streaming/oblongsource.h"
#include "writtenterrain.h"

/// Looks at everything there is of a terrain and a texture, frame by frame, as a painter does that never
/// waits. At the end nothing stays in memory.
class StreamedView {
public:
    /// `pause` passes the time of a frame.
    explicit StreamedView(std::function<void()> pause) : pause_(std::move(pause)) {}
    ~StreamedView() {
        terrain = nullptr;
        texture = nullptr;
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
    }
    StreamedView(const StreamedView &) = delete;
    StreamedView & operator=(const StreamedView &) = delete;

    /// By their paths or URLs.
    bool open(const std::wstring & terrainName, const std::wstring & textureName) {
        terrain = ZMT::CORE::GRID::AsyncGridTerrain::load(terrainName, false, &problem);
        texture = NBX::soCast<ZMT::CORE::AsyncQuadtreeTerrainTexture_Impl>(
            ZMT::CORE::AsyncQuadtreeTerrainTexture::load(textureName, 0));
        return terrain && texture;
    }

    /// True when nothing is missing. What was there stays there.
    bool frame() {
        pause_();
        ZMT::CORE::TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
        missing = 0;
        tiles = 0;
        look(*terrain->rootTile());
        look(*texture->root());
        EXPECT_LE(tilesBefore_, tiles) << "the picture keeps what it has";
        tilesBefore_ = tiles;
        return missing == 0;
    }

    std::wstring problem;
    unsigned missing = 0, tiles = 0; ///< of the last frame
    NBX::SO<ZMT::CORE::GRID::AsyncGridTerrain> terrain;
    NBX::SO<ZMT::CORE::AsyncQuadtreeTerrainTexture_Impl> texture;

private:
    void look(ZMT::CORE::GRID::GridTerrainTile & tile) {
        const NBX::SO<ZMT::CORE::GRID::GridTerrainTileData> data = tile.requestTileData(1.0, false, nullptr);
        ++(data ? tiles : missing);
        for (unsigned i = 0; data && i < 4; ++i)
            if (const NBX::SO<ZMT::CORE::GRID::GridTerrainTile> child = tile.child(i, true)) look(*child);
    }
    void look(ZMT::CORE::TexturePatchRequest & node) {
        const bool isThere = bool(node.get(1.0, false));
        ++(isThere ? tiles : missing);
        for (const NBX::SO<ZMT::CORE::TexturePatchRequest> & child : node.children())
            if (isThere && child) look(*child);
    }

    std::function<void()> pause_;
    unsigned tilesBefore_ = 0;
};

/// Seconds behind the end of a fault until all of the picture is there.
constexpr double s_healed = 15.0;

/// A terrain and a texture that lie on each other.
namespace StreamedFiles {

constexpr unsigned tiles = 21 + 5; ///< of both

/// On the ground of `OblongSource`.
inline std::vector<std::uint8_t> terrain() {
    using namespace OblongSource;
    const ZMT::RASTER::RasterGrid grid{33, 33, minX, minY, (maxX - minX) / 32, (maxY - minY) / 32};
    return writtenTerrain(
        new FunctionBand(grid,
                         [](unsigned x, unsigned y) { return FunctionBand::hills(x, y) + (x * y) % 113; }),
        3);
}

inline void writeTexture(const std::string & path) {
    EXPECT_TRUE(ZMT::CORE::AsyncQuadtreeTerrainTexture::create(NBX::StringUtils::Utf8String2WString(path),
                                                               OblongSource::patches(1),
                                                               OblongSource::pyramid(), 64, 0));
}

} // namespace StreamedFiles
