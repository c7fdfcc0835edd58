#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

#include <algorithm>
#include <vector>

namespace ZMT::CORE {

namespace {

using Callbacks = std::vector<NBX::SO<TerrainPainterFrameManager::FrameCallback>>;

// Made on first use, since libraries register while they load.
Callbacks & beginCallbacks() {
    static Callbacks & callbacks = *new Callbacks;
    return callbacks;
}

Callbacks & endCallbacks() {
    static Callbacks & callbacks = *new Callbacks;
    return callbacks;
}

bool add(Callbacks & callbacks, const Callbacks::value_type & callback) {
    if (!callback || std::find(callbacks.begin(), callbacks.end(), callback) != callbacks.end()) return false;
    callbacks.push_back(callback);
    return true;
}

bool remove(Callbacks & callbacks, const Callbacks::value_type & callback) {
    return std::erase(callbacks, callback) > 0;
}

/// Works on a copy, so that a callback may register or unregister others.
void callAll(const Callbacks & callbacks, const TerrainPainterFrameManager::Info & info) {
    Callbacks copy;
    copy.assign(callbacks.begin(), callbacks.end());
    for (const auto & callback : copy)
        callback->call(info);
}

} // namespace

bool TerrainPainterFrameManager::RegisterBeginFrameCallback(const NBX::SO<FrameCallback> & callback) {
    return add(beginCallbacks(), callback);
}

bool TerrainPainterFrameManager::RegisterEndFrameCallback(const NBX::SO<FrameCallback> & callback) {
    return add(endCallbacks(), callback);
}

bool TerrainPainterFrameManager::UnregisterBeginFrameCallback(const NBX::SO<FrameCallback> & callback) {
    return remove(beginCallbacks(), callback);
}

bool TerrainPainterFrameManager::UnregisterEndFrameCallback(const NBX::SO<FrameCallback> & callback) {
    return remove(endCallbacks(), callback);
}

void TerrainPainterFrameManager::CallBeginFrameCallbacks(const Info & info) {
    callAll(beginCallbacks(), info);
}

void TerrainPainterFrameManager::CallEndFrameCallbacks(const Info & info) {
    callAll(endCallbacks(), info);
}

NBX::Bounds & TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() {
    static NBX::Bounds box;
    return box;
}

} // namespace ZMT::CORE
