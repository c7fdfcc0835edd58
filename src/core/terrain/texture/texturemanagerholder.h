#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>

#include <nbx/object/callback.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

namespace ZMT::CORE {

/// Requests that no frame has asked for so many frames long are dropped.
inline constexpr unsigned textureRequestAgeLimit = 5;
/// Of the map of a texture's patches.
inline constexpr unsigned texturePatchBuckets = 1009;
/// What a texel takes of graphics memory, whatever the image holds.
inline constexpr double textureBytesPerTexel = 4.0;
/// At first, in bytes.
inline constexpr unsigned usualTextureMemory = 128U << 20;

/// The one manager of a class of textures: made by the first frame, ended with the process.
template <class Manager> class TextureManagerHolder {
public:
    using Info = TerrainPainterFrameManager::Info;

    /// Null until the first frame. Never destroyed itself, since frames may come while libraries unload.
    static NBX::SO<Manager> & manager() {
        static auto & instance = *new NBX::SO<Manager>;
        return instance;
    }

    static void beginFrame() {
        if (!manager()) {
            manager() = new Manager;
            static const bool isRegistered = std::atexit(kill) == 0;
            static_cast<void>(isRegistered);
        }
        manager()->beginFrame();
    }
    static void endFrame() {
        if (manager()) manager()->endFrame();
    }
    static unsigned usedMemory() {
        if (!manager()) return 0;
        constexpr double limit = std::numeric_limits<unsigned>::max();
        return static_cast<unsigned>(std::min(manager()->usedMemory(), limit));
    }
    static unsigned pendingRequests() {
        return manager() ? static_cast<unsigned>(manager()->pendingRequests()) : 0;
    }
    static void setMaxMemory(unsigned bytes) {
        if (manager()) manager()->setMaxMemory(bytes);
    }
    static void kill() { manager() = nullptr; }

    static bool registerFrames(void (*begin)(const Info &), void (*end)(const Info &)) {
        using Callback = NBX::FunctionCallback1<const Info &>;
        return TerrainPainterFrameManager::RegisterBeginFrameCallback(new Callback(begin)) &&
               TerrainPainterFrameManager::RegisterEndFrameCallback(new Callback(end));
    }
};

} // namespace ZMT::CORE
