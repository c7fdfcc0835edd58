#pragma once

#include <nbx/object/wo.h>

namespace NBX {
class Engine;
}

namespace ZMT::CORE {

/// How terrains are painted. Values of the process, without locks: set them on the render thread, or between
/// frames.
class TerrainPainterGLSettings {
public:
    /// At start true. False: the surface and the walls are left out, only triangles draped on a terrain show.
    static void enableRendering(bool enable);
    static bool renderingEnabled();
    /// At start false. True: nothing may come later, so all textures are fetched at once.
    static void enableSnapshotMode(bool enable);
    static bool snapshotModeEnabled();
    /// At start true.
    static void enableOcclusionQueries(bool enable);
    static bool occlusionQueriesEnabled();
    /// Allowed error of the geometry on the screen, in pixels; at start 3.0.
    static void setGeometryError(double pixels);
    static double getGeometryError();
    /// Allowed size of a texel on the screen, in pixels; at start 2.0.
    static void setTextureError(double pixels);
    static double getTextureError();

    /// The engine whose occlusion queries are pooled.
    static NBX::WO<NBX::Engine> & engineForOcclusionQueryPool();
};

} // namespace ZMT::CORE
