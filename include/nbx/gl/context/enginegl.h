#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nbx/engine/engine.h>
#include <nbx/math/area.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/callback.h>
#include <nbx/object/id.h>

namespace NBX {

class GLCanvas;
class Handler;

/// The engine that draws with OpenGL. One belongs to each `GLCanvas` and lives as long as its context.
///
/// Everything here runs on the thread of the canvas. Whatever calls OpenGL needs the context to be current.
class EngineGL : public Engine {
    NBX_CLASS(EngineGL, Engine)
public:
    /// `canvas` keeps the engine, and outlives it; its context is current.
    explicit EngineGL(GLCanvas * canvas);
    ~EngineGL() override;

    /// Number of texture units that the fixed functions may use, 1 or more.
    unsigned maxTextureUnits() const;
    /// Number of sets of texture coordinates that a vertex may have; no limit lowers it.
    unsigned textureCoordinateSets() const;
    /// Lets painters use at most `limit` units from now on; 0 lifts the limit.
    static void setMaxTextureUnitsLimit(unsigned limit);
    static unsigned maxTextureUnitsLimit();
    /// Whether the driver knows the extension, such as "GL_EXT_framebuffer_object".
    bool hasExtension(const ID & extension) const;
    /// Whether the driver offers OpenGL `major`.`minor` or later.
    bool isVersion(int major, int minor) const;

    /// The driver's name of the renderer.
    std::string rendererName() const;

    static constexpr unsigned usualListBytes = 1U << 14U;

    /// The display list that `newDisplayList` made for `object`; 0 without one, and when the object was
    /// modified since.
    unsigned getDisplayList(SharedObj * object);
    /// An empty display list for `object`, in the place of one it had; 0 when the driver has none left, and
    /// for a null object, which is reported. The list is freed before the next picture once the object has
    /// died or was modified, when `GraphicsMemoryManager`, for which it takes `bytes`, has no room for it,
    /// and at the latest with the engine. The last one made or found stays.
    unsigned newDisplayList(SharedObj * object, unsigned bytes = usualListBytes);
    /// Number of display lists that live objects hold.
    std::size_t displayListCount() const;

    /// Calls `callback` once, with this engine, while the context is current for the last time. A null one is
    /// reported under "callback" with "no callback".
    void registerCleanUpCallback(SO<Callback1<SO<EngineGL>>> callback);
    /// Calls the clean-up callbacks, latest first, forgets them, and frees the display lists. The canvas
    /// calls it before its context goes away.
    void cleanUp();

    /// Registers a handler that only engines of this class see; it is asked before those of `Engine`. The
    /// engine owns it.
    static void registerHandler(Handler * handler);

    /// Draws what `paintShapes` paints under pass effects, top effect first; see `Engine::paintWithEffects`.
    using EffectPainter = void (*)(EngineGL * engine, const std::vector<Attribute *> & topFirst,
                                   const std::function<void()> & paintShapes);
    static void setEffectPainter(EffectPainter painter);
    /// Brings the poly attributes of a category into effect after one of them was pushed or popped.
    using PolyAttributesPainter = void (*)(EngineGL * engine);
    static void setPolyAttributesPainter(const ID & category, PolyAttributesPainter painter);
    void paintWithEffects(const std::vector<Attribute *> & topFirst,
                          const std::function<void()> & paintShapes) override;

    /// Null when the canvas has given up its context.
    GLCanvas * glCanvas() const;
    /// Called by the canvas when it gives up its context.
    void detachCanvas();
    /// Frees the display lists of objects that died or were modified.
    void freeUnusedDisplayLists();

    /// What is drawn from now on: the part `tile` of the whole `picture`, in pixels. The tile's lower left
    /// corner lies in that of the canvas.
    void beginPicture(const Area & picture, const Area & tile);
    /// Directs the camera's view to `area`, in pixels of the picture, or to the whole picture.
    void setViewport(const Area & area);
    void resetViewport();
    /// Lowers the driver's limit of the size of a viewport, above which the view volume is cut to the tile.
    void setMaxViewport(unsigned width, unsigned height);

protected:
    const HandlerTable * ownHandlers() const override;
    void modelViewChanged() override;
    void projectionChanged() override;
    void polyAttributesChanged(const ID & category) override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace NBX

/// The same for a handler that needs OpenGL.
#define NBX_REGISTER_HANDLER_GL(HandlerClass)                                                                \
    namespace {                                                                                              \
    [[maybe_unused]] const bool isRegistered##HandlerClass =                                                 \
        (NBX::EngineGL::registerHandler(new HandlerClass), true);                                            \
    }
