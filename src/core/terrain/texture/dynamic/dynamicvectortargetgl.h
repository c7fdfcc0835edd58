#pragma once

#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/state/backgroundgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/scene/node/scenenode.h>
#include <nbx/scene/shape/shape.h>

namespace ZMT::CORE {

/// The canvas on which a scene is drawn in a trapezoid, and the texture of it. Render thread.
class DynamicVectorTargetGL {
public:
    /// In texels. `shared` may be null. Without a context there is no texture, which is reported.
    DynamicVectorTargetGL(unsigned size, NBX::GLCanvas * shared);
    DynamicVectorTargetGL(const DynamicVectorTargetGL &) = delete;
    DynamicVectorTargetGL & operator=(const DynamicVectorTargetGL &) = delete;

    /// Draws both, each of which may be null, the raster below; `fit` maps (x, z) to the unit square. False
    /// where nothing could be drawn. `engine` is that of the terrain. Canvas, scene and the engine's state
    /// are left as they are found.
    bool draw(NBX::EngineGL * engine, const NBX::Matrix4x4Base<double> & fit, NBX::Shape * raster,
              NBX::SceneNode * scene);
    /// With `fit` as its matrix. Null until something was drawn, and where the last drawing failed.
    const NBX::SO<NBX::Texture2DGL> & texture() const { return texture_; }

private:
    NBX::SO<NBX::GLCanvas> canvas_;
    NBX::SO<NBX::BackgroundGL> background_;
    NBX::SO<NBX::Texture2DGL> texture_;
};

} // namespace ZMT::CORE
