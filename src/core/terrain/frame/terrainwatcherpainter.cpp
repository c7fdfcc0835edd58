#include <zmt/core/terrain/frame/terrainwatcherpainter.h>

#include <utility>

#include <nbx/engine/engine.h>
#include <nbx/gl/context/enginegl.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>

namespace ZMT::CORE {

namespace {

using Matrix = TerrainWatcher::Matrix;

void store(const Matrix & current, Matrix & matrix, Matrix & inverse) {
    matrix = current;
    inverse = current.inverse();
}

/// Null when there is but one watcher.
const NBX::MonoAttribute * beneathTop(const NBX::Engine & engine) {
    const auto * stack = engine.monoTable(TerrainWatcher::ClassNameNBX());
    return stack && stack->size() > 1 ? stack->get(stack->size() - 2).get() : nullptr;
}

} // namespace

NBX_CLASS_IMPL(TerrainWatcherPainter, NBX::MonoAttributePainter)

NBX::ID TerrainWatcherPainter::target() const {
    return TerrainWatcher::ClassNameNBX();
}

bool TerrainWatcherPainter::apply(NBX::Engine * engine, const NBX::MonoAttribute * attribute, bool entering) {
    auto * watcher = dynamic_cast<TerrainWatcher *>(const_cast<NBX::MonoAttribute *>(attribute));
    if (!watcher) return false;
    const bool returns = std::exchange(returning_, entering ? nullptr : beneathTop(*engine)) == watcher;
    if (!entering || returns || watcher->freeze_) return true;
    store(engine->modelViewMatrix(), watcher->modelview_, watcher->inverseModelview_);
    store(engine->projectionMatrix(), watcher->projection_, watcher->inverseProjection_);
    store(engine->viewMatrix(), watcher->orientation_, watcher->inverseOrientation_);
    watcher->viewinfo_ = engine->viewInfo();
    return true;
}

NBX_REGISTER_HANDLER_GL(TerrainWatcherPainter)

} // namespace ZMT::CORE
