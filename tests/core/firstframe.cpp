// The first frame of a terrain makes what streams textures, which reports once that it uses a thread. It
// comes before all tests, so that those that paint terrains see no reports but their own.

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

namespace {

using ZMT::CORE::TerrainPainterFrameManager;

class FirstFrame : public testing::Environment {
public:
    void SetUp() override {
        const RecordedReports reports;
        TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
        TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
    }
};

const auto * const s_firstFrame = testing::AddGlobalTestEnvironment(new FirstFrame);

} // namespace
