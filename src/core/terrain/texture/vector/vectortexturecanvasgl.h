#pragma once

#include <memory>
#include <vector>

#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>

namespace ZMT::CORE {

/// The canvas on which all vector textures are drawn.
class VectorTextureCanvasGL {
public:
    /// A canvas of `size` by `size` pixels for textures, which nobody redisplays by itself; without a context
    /// after a report where that is not possible. `shared` may be null.
    static NBX::SO<NBX::GLCanvas> newCanvas(unsigned size, NBX::GLCanvas * shared);
    /// The canvas of the class, made where there is none of that size. Otherwise see `newCanvas`.
    static NBX::SO<NBX::GLCanvas> canvas(unsigned size, NBX::GLCanvas * shared);
    static void release();

    /// At first true. False: as where there are no pixel buffers. Drops the canvas of the class when that
    /// changes.
    static void allowPixelBuffers(bool allow);
};

/// A canvas ready for textures, as long as this lives: its context is current, and the scene finds the
/// scaling of heights and the watcher of the terrain that is being painted, the flag that tells a texture
/// from the real picture, blending, and depths that let the later one of two things of one height show.
class VectorTextureScopeGL {
public:
    /// The canvas of the class. `engine`, that of the terrain, may be null.
    VectorTextureScopeGL(NBX::EngineGL * engine, unsigned size);
    /// Another canvas.
    VectorTextureScopeGL(NBX::EngineGL * engine, const NBX::SO<NBX::GLCanvas> & canvas);
    ~VectorTextureScopeGL();
    VectorTextureScopeGL(const VectorTextureScopeGL &) = delete;
    VectorTextureScopeGL & operator=(const VectorTextureScopeGL &) = delete;

    /// Null where there is no context.
    NBX::GLCanvas * canvas() const { return canvas_.get(); }
    static bool isActive();

private:
    class FrozenWatcher;

    void install(NBX::EngineGL * engine);
    void push(const NBX::SO<NBX::Attribute> & attribute);

    NBX::SO<NBX::GLCanvas> canvas_;
    std::unique_ptr<FrozenWatcher> watcher_;
    std::vector<NBX::SO<NBX::Attribute>> attributes_;
};

} // namespace ZMT::CORE
