#pragma once

#include <nbx/engine/monoattributepainter.h>

namespace ZMT::CORE {

/// Tells a `TerrainWatcher` that is not frozen the view in which it is reached.
class TerrainWatcherPainter : public NBX::MonoAttributePainter {
    NBX_CLASS(TerrainWatcherPainter, NBX::MonoAttributePainter)
public:
    TerrainWatcherPainter() = default;

    NBX::ID target() const override;
    bool apply(NBX::Engine * engine, const NBX::MonoAttribute * attribute, bool entering) override;

private:
    /// Beneath the watcher that was left last: the engine calls for it again, but it is not reached anew.
    /// Only compared.
    const NBX::MonoAttribute * returning_ = nullptr;
};

} // namespace ZMT::CORE
