#pragma once

#include <memory>

#include <nbx/gl/context/enginegl.h>
#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>
#include <nbx/scene/node/scenenode.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

/// Drapes a scene that changes with each picture over a terrain, by one texture for a picture: it covers what
/// the camera sees of the terrain, by a trapezoid in plan that is mapped to it, so that texels lie densely
/// near the viewer and sparsely far away. For a scene that stays as it is, `VectorTexture` costs less.
///
/// The scene lies in the frame of the terrain, x to the east and z to the north. What stands above or below
/// the ground shows where it stands in plan; of two things the later one is drawn over the earlier one,
/// whatever their heights. Shapes are blended by their alpha, unless they say otherwise. Lines have their
/// width in texels.
///
/// The texture is drawn at the first request of each picture, and again only for a terrain of which the
/// camera sees another area. It may be laid on several terrains, and shown in several windows.
///
/// Render thread only. It does without heights: see `DynamicHeightTextureRendering`, which has their limits.
///
/// Stored attributes: those of `TerrainTexture`, then "scene" (default null).
class DynamicVectorTexture : public TerrainTexture {
    NBX_STORED_CLASS(DynamicVectorTexture, TerrainTexture)
public:
    using Matrix = NBX::Matrix4x4Base<double>;

    /// Side of the texture, in texels.
    static constexpr unsigned usualTextureSize = 2048;

    /// Without a scene, and without a raster texture, there is no texture.
    explicit DynamicVectorTexture(const NBX::SO<NBX::SceneNode> & scene);
    ~DynamicVectorTexture() override;

    /// Never: its texels are as fine as the view needs them.
    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    /// That of the scene, unbounded in height; undefined without one.
    NBX::Bounds boundingBox() const override;

    const NBX::SO<NBX::SceneNode> & scene() const { return scene_; }
    void setScene(const NBX::SO<NBX::SceneNode> & scene);
    /// For pictures from now on; from 2 to 8192, other sizes are reported and ignored.
    void setTextureSize(unsigned size);
    unsigned getTextureSize() const { return size_; }
    /// From (x, z) of the terrain to the unit square, as last drawn; at first the identity.
    const Matrix & textureMatrix() const { return textureMatrix_; }
    /// Number of textures that this object has drawn.
    unsigned long renderCount() const { return renders_; }

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

    // Of all objects together.

    /// The map from (x, z), as the first two coordinates, to the unit square, for the camera and in the frame
    /// that are in force. The identity where nothing between the two heights is seen.
    static Matrix calculateTrapezoidProjection(const NBX::SO<NBX::EngineGL> & engine, double minHeight,
                                               double maxHeight);
    /// Appends a node to the canvas of the engine that draws the texture flat, patch by patch, where it lies:
    /// of a terrain's height in a texture's canvas, else at height 0 of the scene.
    static void renderTerrainTexture(const NBX::SO<NBX::EngineGL> & engine,
                                     const NBX::SO<TerrainTexture> & texture);
    /// Draws `texture`, which is kept, below the vectors of all objects from now on; null for none, as at
    /// first.
    static void setRasterTexture(TerrainTexture * texture);
    static NBX::SO<TerrainTexture> rasterTexture();
    /// Draws what was last seen by the engine over its pictures, or ends that: in the lower left corner a map
    /// of the trapezoid, of the hull of what is seen, and of lines at every 2048 units, and its area and the
    /// angle between its legs in words.
    static void renderInHUD(const NBX::SO<NBX::EngineGL> & engine, bool enabled);
    /// Called when the painting of a terrain begins.
    static void beginFrame(const TerrainPainterFrameManager::Info & info);

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override;

private:
    class Target;
    struct Request;

    /// For reading.
    DynamicVectorTexture();

    /// What was drawn does not count any more.
    void forgetPicture();
    bool isOfThisPicture(const NBX::EngineGL * engine) const;
    void draw(const Request & request) const;
    /// False where there is no terrain.
    bool drawFor(const Request & request, const GeometryPatch & patch) const;

    NBX::SO<NBX::SceneNode> scene_;
    unsigned size_ = usualTextureSize;
    /// Null until the first request.
    mutable std::unique_ptr<Target> target_;
    mutable Matrix textureMatrix_;
    mutable unsigned long renders_ = 0;
    // What was last drawn for.
    mutable unsigned long frame_ = 0; ///< number of the painting of a terrain; 0 for none
    mutable NBX::WO<const NBX::EngineGL> engine_;
    mutable NBX::WO<const NBX::MonoAttribute> picture_; ///< which the canvas pushes for each picture
    mutable NBX::Bounds terrains_;                      ///< of the picture, as far as they were met
    mutable bool isIncomplete_ = false;
};

} // namespace ZMT::CORE
