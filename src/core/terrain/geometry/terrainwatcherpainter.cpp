#include <zmt/core/terrain/geometry/terrainwatcherpainter.h>

#include <nbx/engine/engine.h>
#include <nbx/gl/enginegl.h>
#include <zmt/core/terrain/geometry/terrainwatcher.h>

namespace ZMT::CORE {

namespace {

using Matrix = TerrainWatcher::Matrix;

void store(const Matrix & current, Matrix & matrix, Matrix & inverse) {
    matrix = current;
    inverse = current.inverse();
}

} // namespace

NBX_CLASS_IMPL(TerrainWatcherPainter, NBX::MonoAttributePainter)

NBX::ID TerrainWatcherPainter::target() const {
    return TerrainWatcher::ClassNameNBX();
}

bool TerrainWatcherPainter::apply(NBX::Engine * engine, const NBX::MonoAttribute * attribute, bool entering) {
    auto * watcher = dynamic_cast<TerrainWatcher *>(const_cast<NBX::MonoAttribute *>(attribute));
    if (!watcher) return false;
    if (!entering || watcher->freeze_) return true;
    store(engine->modelViewMatrix(), watcher->modelview_, watcher->inverseModelview_);
    store(engine->projectionMatrix(), watcher->projection_, watcher->inverseProjection_);
    store(engine->viewMatrix(), watcher->orientation_, watcher->inverseOrientation_);
    watcher->viewinfo_ = engine->viewInfo();
    return true;
}

namespace {

const bool registered = (NBX::EngineGL::registerHandler(new TerrainWatcherPainter), true);

} // namespace

} // namespace ZMT::CORE
