#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

#include <nbx/engine/engine.h>

namespace ZMT::CORE {

namespace {

bool s_rendering = true;
bool s_snapshotMode = false;
bool s_occlusionQueries = true;
double s_geometryError = 3.0;
double s_textureError = 2.0;

} // namespace

void TerrainPainterGLSettings::enableRendering(bool enable) {
    s_rendering = enable;
}

bool TerrainPainterGLSettings::renderingEnabled() {
    return s_rendering;
}

void TerrainPainterGLSettings::enableSnapshotMode(bool enable) {
    s_snapshotMode = enable;
}

bool TerrainPainterGLSettings::snapshotModeEnabled() {
    return s_snapshotMode;
}

void TerrainPainterGLSettings::enableOcclusionQueries(bool enable) {
    s_occlusionQueries = enable;
}

bool TerrainPainterGLSettings::occlusionQueriesEnabled() {
    return s_occlusionQueries;
}

void TerrainPainterGLSettings::setGeometryError(double pixels) {
    s_geometryError = pixels;
}

double TerrainPainterGLSettings::getGeometryError() {
    return s_geometryError;
}

void TerrainPainterGLSettings::setTextureError(double pixels) {
    s_textureError = pixels;
}

double TerrainPainterGLSettings::getTextureError() {
    return s_textureError;
}

NBX::WO<NBX::Engine> & TerrainPainterGLSettings::engineForOcclusionQueryPool() {
    static NBX::WO<NBX::Engine> engine;
    return engine;
}

} // namespace ZMT::CORE
