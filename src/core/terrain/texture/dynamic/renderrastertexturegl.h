#pragma once

#include <array>

#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/texture/terraintexture.h>

#include "trapezoidpass.h"

namespace ZMT::CORE {

/// A node of a quadtree of boxes, without data: that for which a texture is asked. Its children are made when
/// they are asked for, and live as long as it does.
class RenderRasterTexture_GeometryPatch : public GeometryPatch {
    NBX_CLASS(RenderRasterTexture_GeometryPatch, GeometryPatch)
public:
    /// No patch lies deeper.
    static constexpr unsigned maxDepth = 24;

    explicit RenderRasterTexture_GeometryPatch(const NBX::Bounds & box, unsigned depth = 0);

    NBX::SO<GeometryData> data() const override;
    unsigned children() const override { return depth_ < maxDepth ? 4 : 0; }
    NBX::SO<GeometryPatch> child(unsigned i) const override;

private:
    unsigned depth_;
    mutable std::array<NBX::SO<RenderRasterTexture_GeometryPatch>, 4> children_;
};

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

private:
    void draw(const GeometryPatch & patch, TrapezoidPass & pass, NBX::EngineGL & engine) const;
    NBX::SO<RenderRasterTexture_GeometryPatch> root(const NBX::Bounds & terrain) const;

    NBX::SO<TerrainTexture> texture_;
    mutable NBX::SO<RenderRasterTexture_GeometryPatch> root_;
};

class RenderRasterTexturePainterGL : public NBX::ShapePainter {
    NBX_CLASS(RenderRasterTexturePainterGL, NBX::ShapePainter)
public:
    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
