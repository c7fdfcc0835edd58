#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

#include <gtest/gtest.h>

#include <nbx/engine/engine.h>

using Settings = ZMT::CORE::TerrainPainterGLSettings;

namespace {

TEST(TerrainPainterGLSettings, HaveTheirValuesAtStart) {
    EXPECT_TRUE(Settings::renderingEnabled());
    EXPECT_FALSE(Settings::snapshotModeEnabled());
    EXPECT_TRUE(Settings::occlusionQueriesEnabled());
    EXPECT_EQ(Settings::getGeometryError(), 3.0);
    EXPECT_EQ(Settings::getTextureError(), 2.0);
    EXPECT_FALSE(Settings::engineForOcclusionQueryPool().lock());
}

void expectSwitch(void (*enable)(bool), bool (*isEnabled)()) {
    const bool before = isEnabled();
    for (const bool value : {!before, before}) {
        enable(value);
        EXPECT_EQ(isEnabled(), value);
    }
}

void expectNumber(void (*set)(double), double (*get)()) {
    const double before = get();
    for (const double value : {0.0, 17.5, before}) {
        set(value);
        EXPECT_EQ(get(), value);
    }
}

TEST(TerrainPainterGLSettings, KeepWhatIsSet) {
    expectSwitch(Settings::enableRendering, Settings::renderingEnabled);
    expectSwitch(Settings::enableSnapshotMode, Settings::snapshotModeEnabled);
    expectSwitch(Settings::enableOcclusionQueries, Settings::occlusionQueriesEnabled);
    expectNumber(Settings::setGeometryError, Settings::getGeometryError);
    expectNumber(Settings::setTextureError, Settings::getTextureError);
}

TEST(TerrainPainterGLSettings, WatchTheEngineOfTheQueries) {
    NBX::SO<NBX::Engine> engine(new NBX::Engine);
    Settings::engineForOcclusionQueryPool() = NBX::WO<NBX::Engine>(engine);
    EXPECT_EQ(Settings::engineForOcclusionQueryPool().lock(), engine);
    engine = nullptr;
    EXPECT_FALSE(Settings::engineForOcclusionQueryPool().lock());
}

} // namespace
