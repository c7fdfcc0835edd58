#pragma once

#include <optional>
#include <vector>

#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/terrain/texture/terraintexture.h>

#include "rasterpatches.h"
#include "trapezoidpass.h"

namespace ZMT::CORE {

/// A texture of a terrain as a shape: drawn into the trapezoid of the pass in force, else where it lies at
/// height 0, patch by patch, as fine as the view needs it.
class RenderRasterTexture : public NBX::Shape {
    NBX_CLASS(RenderRasterTexture, NBX::Shape)
public:
    /// A null texture is reported.
    explicit RenderRasterTexture(const NBX::SO<TerrainTexture> & texture);

    const NBX::SO<TerrainTexture> & texture() const { return texture_; }
    NBX::Bounds boundingBox() const override;
    /// The state of OpenGL stays as it is found.
    void draw(NBX::EngineGL * engine) const;
    /// A shape that draws what the texture gives for `pass`, for which it is asked now: vector textures give
    /// nothing on the canvas of another texture. Null without a texture.
    NBX::SO<NBX::Shape> asked(TrapezoidPass & pass) const;

private:
    /// What was given for a patch.
    struct Piece {
        NBX::Bounds box;
        NBX::SO<NBX::TextureGL> texture;
    };
    using Pieces = std::vector<Piece>;

    Pieces request(TrapezoidPass & pass) const;
    NBX::Bounds area(const NBX::Bounds & terrain) const;
    static void drawInto(const TrapezoidPass & pass, NBX::EngineGL & engine, const Pieces & pieces);
    static void drawFlat(NBX::EngineGL & engine, const Pieces & pieces);

    NBX::SO<TerrainTexture> texture_;
    std::optional<Pieces> asked_;
    mutable RasterPatches patches_;
};

class RenderRasterTexturePainterGL : public NBX::ShapePainter {
    NBX_CLASS(RenderRasterTexturePainterGL, NBX::ShapePainter)
public:
    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
