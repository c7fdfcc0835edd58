#pragma once

#include <functional>

#include <nbx/object/so.h>

namespace NBX {
class EngineGL;
class Image;
class Texture2DGL;
} // namespace NBX

namespace ZMT::UTIL {

/// Where the passes of one picture of light are drawn: a shadow map, and colours of 16-bit floats that are
/// added up. Both are squares. The context of `engine()` is current.
///
/// The calls come in this order: for each direction `beginDepth`, `endDepth`, `beginLight`, `endLight`, now
/// and then `addPartialSum`; then any number of times `draw`; at the end `read`.
class LightTargetsGL {
public:
    virtual ~LightTargetsGL() = default;

    /// False when the hardware cannot do it.
    virtual bool isUsable() const = 0;
    virtual NBX::EngineGL * engine() const = 0;
    /// Of the colours, and of the shadow map.
    virtual unsigned size() const = 0;
    virtual unsigned shadowSize() const = 0;

    /// Empties the shadow map and directs drawing to it.
    virtual void beginDepth() = 0;
    virtual void endDepth() = 0;
    virtual const NBX::Texture2DGL & shadowMap() const = 0;
    /// Directs drawing to the colours, which keep what they have.
    virtual void beginLight() = 0;
    virtual void endLight() = 0;
    /// Adds the colours to a sum of 32-bit floats, and empties them. Once it was called, that sum is the
    /// light.
    virtual void addPartialSum() = 0;
    /// The light so far, as a texture.
    virtual NBX::SO<NBX::Texture2DGL> light() = 0;
    /// Directs `paint` to an empty picture of 16-bit floats, which then is the light. What was the light
    /// before can be read meanwhile.
    virtual void draw(const std::function<void()> & paint) = 0;
    /// The light as an image of RGBA in floats; null when it cannot be read.
    virtual NBX::SO<NBX::Image> read() = 0;
};

} // namespace ZMT::UTIL
