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
};

} // namespace ZMT::CORE
