#pragma once

#include <memory>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/tf.h>
#include <zmt/core/terrain/texture/dynamic/dynamicheighttexturerendering.h>

#include "rasterpatches.h"

namespace ZMT::CORE {

class FloatTargetGL;
class HeightReductionGL;
class TerrainPaintingGL;
class TrapezoidGridGL;

/// The passes of a height rendering, and what they keep on the graphics card. Render thread.
class HeightPassesGL {
public:
    using Matrix = NBX::Matrix4x4Base<double>;
    using Point = NBX::Vector3Base<double>;
    using Statistics = DynamicHeightTextureRendering::Statistics;

    struct Settings {
        NBX::Bounds terrain;
        double level;
        Point lightDirection; ///< zero for none
        bool showsPattern;
    };

    explicit HeightPassesGL(unsigned drawnSize);
    ~HeightPassesGL();
    HeightPassesGL(const HeightPassesGL &) = delete;
    HeightPassesGL & operator=(const HeightPassesGL &) = delete;

    /// What the passes need of the driver.
    static bool isSupported(const NBX::EngineGL & engine);

    const NBX::SO<NBX::SceneThing> & heightGraph() const { return heightGraph_; }
    const NBX::SO<NBX::SceneThing> & textureGraph() const { return textureGraph_; }
    const Statistics & statistics() const { return statistics_; }
    /// Within a picture. False where the targets cannot be made.
    bool render(NBX::EngineGL & engine, const Settings & settings);

private:
    struct Card;
    struct Pass;

    bool prepare(NBX::EngineGL & engine);
    void paint(NBX::EngineGL & engine, const Settings & settings, TerrainPaintingGL & painting);
    void fill(TrapezoidGridGL & grid, const Matrix & fit, const Pass & pass);
    void measure(const Matrix & fit, const Pass & pass);
    Matrix stretched(const Matrix & fit) const;
    void drawTexture(const Matrix & fit, const Pass & pass);
    static void drawEffects(const GeometryPatch & patch, const Point & eye, const Pass & pass);
    void drawLight(const Matrix & fit, const Pass & pass) const;
    void drawMesh(const Matrix & fit, const Pass & pass) const;

    unsigned drawnSize_;
    NBX::SO<NBX::SceneThing> heightGraph_, textureGraph_;
    NBX::SO<NBX::Tf> heightTf_, textureTf_; ///< of the graphs
    Statistics statistics_;
    NBX::WO<NBX::EngineGL> engine_; ///< to which `card_` belongs
    std::unique_ptr<Card> card_;
    RasterPatches patches_; ///< for which effects are asked
};

} // namespace ZMT::CORE
