#pragma once

#include <memory>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/math/bounds.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

class GridData;

/// A terrain that is drawn from heights which the graphics card gathers anew for each picture: they are drawn
/// into the trapezoid of what is seen, and become a mesh that is regular there, without passing through main
/// memory. A coarse mesh measures which part of the trapezoid is seen, a fine one is drawn, with what lies on
/// it in one texture.
///
/// Heights are counted from `heightLevel()`, as 0, and -500 and what lies below, stand for no data, which is
/// where the mesh has holes. `HeightLevel::mostRange` limits their range; a terrain beyond it is reported
/// once and not drawn, and `VectorTexture` is the way to drape over it.
///
/// What gives heights, and what lies on the terrain besides the effects in force, is appended to two graphs
/// by the caller. In both a vertex has x and z of the terrain in its first two coordinates and the height in
/// the third one; a program is in force that draws it so, and others may be put into force below.
///
/// Needs OpenGL 3, with targets of floats; without it nothing is drawn, which is reported once. What it keeps
/// on the card, about 95 MB, belongs to one canvas, and is made anew when it is drawn on another one. Render
/// thread.
class DynamicHeightTextureRendering : public NBX::Shape {
    NBX_CLASS(DynamicHeightTextureRendering, NBX::Shape)
public:
    using Point = NBX::Vector3Base<double>;
    /// Vertices of a side of the meshes.
    static constexpr unsigned measuringSize = 128, drawingSize = 1024;

    /// Of what was last drawn. Heights are from `heightLevel()`.
    struct Statistics {
        float low = 9999.0F, high = -9999.0F, mean = -9999.0F; ///< of the ground in the first trapezoid
        /// Of the part of it that is seen: along the view, of the unit square, and the heights.
        float near = 9999.0F, far = -9999.0F, seenLow = 9999.0F, seenHigh = -9999.0F;

        bool seesGround() const { return near <= far && seenLow <= seenHigh; }
    };

    /// `terrain` is the box of the terrain, in the frame in which the shape is placed.
    explicit DynamicHeightTextureRendering(const NBX::Bounds & terrain);
    ~DynamicHeightTextureRendering() override;

    /// Asks for a shape that draws a texture of heights in the height graph: from `heightLevel()`, as floats
    /// in the luminance or in all of red, green and blue. A null texture is reported.
    static NBX::SO<NBX::Shape> CreateRasterHeightShape(const NBX::SO<TerrainTexture> & texture);
    /// A texture of the heights of a grid, with the height `level` as 0, in the local coordinates of the
    /// grid. Null for a null grid, which is reported. Undefined heights are -9999. Grids of more than 4096
    /// columns or rows are thinned out there, but keep their borders.
    static NBX::SO<TerrainTexture> CreateHeightTexture(const GridData * grid, double level);

    /// Programs for what stands in the graphs, which draw into the trapezoid of the pass that goes on.
    static NBX::SO<NBX::GL2::ProgramObject> shaderForTerrainHeightWithoutTexture();
    static NBX::SO<NBX::GL2::ProgramObject> shaderForTerrainTextureWithTexture();
    static NBX::SO<NBX::GL2::ProgramObject> shaderForTerrainTextureWithoutTexture();

    /// What gives heights, the later thing over the earlier one.
    NBX::SO<NBX::SceneThing> terrainHeightSceneGraph() const;
    /// What lies on the terrain, above the effects in force, by its alpha.
    NBX::SO<NBX::SceneThing> terrainTextureSceneGraph() const;

    double heightLevel() const;
    /// Where the light comes from, x, z and height; zero, as at first, for none.
    void setLightDirection(const Point & direction);
    const Point & getLightDirection() const { return lightDirection_; }
    /// Bands of the height in place of what lies on the terrain, for checking.
    void showTestPattern(bool show);
    bool showsTestPattern() const { return showsPattern_; }
    const Statistics & lastStatistics() const;

    /// That of the terrain.
    NBX::Bounds boundingBox() const override { return terrain_; }
    /// Draws it; false where that is not possible. The state of OpenGL stays as it is found.
    virtual bool render(const NBX::SO<NBX::EngineGL> & engine) const;

protected:
    /// With another number of vertices of a side of the mesh that is drawn, at least 2, for those who
    /// measure.
    DynamicHeightTextureRendering(const NBX::Bounds & terrain, unsigned drawnSize);

private:
    class Impl;

    bool isPossible(const NBX::EngineGL & engine) const;

    NBX::Bounds terrain_;
    Point lightDirection_;
    bool showsPattern_ = false;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::CORE
