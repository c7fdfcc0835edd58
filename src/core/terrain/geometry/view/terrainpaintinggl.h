#pragma once

#include <functional>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace NBX {
class Engine;
class EngineGL;
class GLCanvas;
class SceneThing;
} // namespace NBX

namespace ZMT::CORE {

class GeometryPatch;

/// What the painters of all kinds of terrains have in common while they paint one terrain: the canvas and
/// when it is to be drawn again, the view, and what the stacks of the engine hold for terrains. Lives for one
/// painting, on the rendering thread.
class TerrainPaintingGL {
public:
    using Point = NBX::Vector3Base<double>;

    /// Reads all of it from `engine`; the view is that in the frame of the present model matrix.
    explicit TerrainPaintingGL(NBX::Engine * engine);

    NBX::Engine * engine() const { return engine_; }
    NBX::EngineGL * engineGL() const { return engineGL_; }
    const NBX::ViewInfo * viewInfo() const { return viewInfo_.get(); }
    unsigned viewportWidth() const { return viewportWidth_; }
    unsigned viewportHeight() const { return viewportHeight_; }
    /// Where the line of sight meets the near plane of a view.
    static Point nearPoint(const NBX::ViewInfo & viewInfo);
    const Point & nearPoint() const { return nearPoint_; }
    /// The view is being navigated. Never in a flight that is being recorded, which must not lose detail, nor
    /// where there is no canvas that can be drawn again.
    bool isInMotion() const { return isInMotion_; }
    /// What is missing may come later, since the picture is drawn again then.
    bool isAsynchronous() const { return isAsynchronous_; }
    /// Whether there is anything to draw at all.
    bool isIdle() const;

    /// At first that of the settings.
    double textureError() const { return textureError_; }
    void setTextureError(double pixels) { textureError_ = pixels; }
    /// Draws this picture as if nothing moved.
    void setStill() { isInMotion_ = false; }

    /// Whether an effect wants finer textures than those of `patch`; the walk begins at the top of the stack
    /// and ends at an effect that ignores the others. `eye` is the point of the patch nearest to the viewer.
    bool wantsDetail(const GeometryPatch & patch, const Point & eye) const;
    bool hasEffects() const { return !effects_.empty(); }
    /// Appends what the effects give for `patch`, by the same walk.
    void appendEffects(NBX::SceneThing & thing, const GeometryPatch & patch, double priority,
                       const Point & eye);

    using TexturedGeometries = std::vector<NBX::SO<TerrainTexturedGeometry>>;
    const TexturedGeometries & texturedGeometries() const { return texturedGeometries_; }
    /// The box of them all.
    const NBX::Bounds & texturedBox() const { return texturedBox_; }
    /// Of an engine outside of a painting.
    static NBX::Bounds boxOfTexturedGeometries(const NBX::Engine & engine);
    /// Appends the draped triangles inside `box`; false when there are none.
    bool appendTexturedGeometries(NBX::SceneThing & thing, const NBX::Bounds & box) const;

    /// Calls `paint` between the callbacks that begin and end a frame, with no box of rendered patches at
    /// first. The frame ends where `paint` throws as well.
    void paintFrame(const std::function<void()> & paint) const;

    bool isIncomplete() const { return isIncomplete_; }
    /// Notes that something wanted is not there yet.
    void setIncomplete() { isIncomplete_ = true; }
    /// Asks for another picture when the view moves or something was missing.
    void postForRedisplay() const;

private:
    void readEffects();
    static TexturedGeometries texturedGeometriesOf(const NBX::Engine & engine);
    bool ignoresPrevious(const TerrainTexturingEffect & effect, const GeometryPatch & patch,
                         const Point & eye) const;

    NBX::Engine * engine_;
    NBX::EngineGL * engineGL_;
    NBX::GLCanvas * canvas_; ///< null when the picture is not drawn again
    double textureError_;
    bool isInMotion_;
    bool isAsynchronous_;
    bool isIncomplete_ = false;
    unsigned viewportWidth_, viewportHeight_;
    NBX::SO<const NBX::ViewInfo> viewInfo_;
    Point nearPoint_;
    std::vector<NBX::SO<TerrainTexturingEffect>> effects_; ///< from the top of the stack downwards
    TexturedGeometries texturedGeometries_;
    NBX::Bounds texturedBox_;
};

} // namespace ZMT::CORE
