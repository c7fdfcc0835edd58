#pragma once

#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

#include "recordedreports.h"

/// The first frame of a terrain makes what streams textures, which reports once that it uses a thread. Those
/// who let go of that, or come before all others, have such a frame here, so that tests that paint terrains
/// see no reports but their own.
inline void haveFirstFrame() {
    using ZMT::CORE::TerrainPainterFrameManager;
    const RecordedReports reports;
    TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
    TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
}
