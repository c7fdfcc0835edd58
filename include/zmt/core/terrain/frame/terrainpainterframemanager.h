#pragma once

#include <nbx/math/bounds.h>
#include <nbx/object/callback.h>

namespace NBX {
class Engine;
}

namespace ZMT::CORE {

/// Tells whoever has registered when the painting of a terrain begins and ends. On the render thread; no
/// locks.
class TerrainPainterFrameManager {
public:
    struct Info {
        NBX::Engine * engine;
        bool inMotion; ///< the view is being navigated in this frame
    };
    using FrameCallback = NBX::Callback1<const Info &>;

    /// False for a null callback, and for one that is registered already.
    static bool RegisterBeginFrameCallback(const NBX::SO<FrameCallback> & callback);
    static bool RegisterEndFrameCallback(const NBX::SO<FrameCallback> & callback);
    /// False when the callback was not registered.
    static bool UnregisterBeginFrameCallback(const NBX::SO<FrameCallback> & callback);
    static bool UnregisterEndFrameCallback(const NBX::SO<FrameCallback> & callback);
    /// In the order of registration.
    static void CallBeginFrameCallbacks(const Info & info);
    static void CallEndFrameCallbacks(const Info & info);

    /// The box of the patches that the last frame drew, in local coordinates of the terrain.
    static NBX::Bounds & bboxOfLastRenderedGeometryPatches();
};

} // namespace ZMT::CORE
