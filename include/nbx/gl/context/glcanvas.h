#pragma once

#include <vector>

#include <nbx/engine/canvas.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/image/image.h>
#include <nbx/math/area.h>
#include <nbx/math/color.h>

namespace NBX {

class ContextGL;

/// A canvas that is drawn by OpenGL. Subclasses say where the picture goes.
///
/// Everything runs on one thread, that of the canvas.
class GLCanvas : public Canvas {
    NBX_CLASS(GLCanvas, Canvas)
public:
    /// What a canvas holds for each pixel; values may be joined with `|`.
    enum Property {
        COLOR_BUFFER = 1,
        DEPTH_BUFFER = 2,
        ALPHA_BUFFER = 4,
        DOUBLE_BUFFER = 8,
        STENCIL_BUFFER = 16
    };

    ~GLCanvas() override;

    /// Makes the context and the engine; true when they exist. Needed again only after `destroy`.
    virtual bool create();
    /// Calls the engine's clean-up callbacks and frees the context. Does nothing without one.
    virtual void destroy();
    bool isCreated() const { return bool(engine_); }

    /// The engine of this canvas, null before `create` and after `destroy`.
    SO<EngineGL> engine() const { return engine_; }
    /// What evaluates the root nodes: the engine.
    SO<Engine> processor() const override;
    /// True when the canvas has all of the joined `properties`.
    bool hasProperty(unsigned properties) const { return (properties_ & properties) == properties; }

    /// Makes the context current; false when there is none. `releaseContext` makes the one current that was
    /// so before.
    virtual bool makeContextCurrent();
    virtual void releaseContext();
    bool isContextCurrent() const;
    /// Makes the context and the canvas's frame buffer current for drawing.
    virtual void prepareRedisplay();
    /// Completes the picture and undoes `prepareRedisplay`.
    virtual void finishRedisplay();
    /// Draws the root nodes on the background.
    void redisplay() override;

    /// In pixels.
    unsigned getWidth() const override { return width_; }
    unsigned getHeight() const override { return height_; }
    /// Gives the canvas another size; its content is undefined until `redisplay`. False when the size is not
    /// possible, after a report; the canvas then keeps the one it has.
    virtual bool setSize(unsigned width, unsigned height);
    /// The largest side that `setSize` takes; 0 without a context.
    virtual unsigned maxSize() const = 0;

    /// Name of the frame buffer object that the canvas draws into; 0 for the context's own.
    virtual unsigned frameBuffer() const { return 0; }

    /// The colour on which the root nodes are drawn; at the start transparent black.
    void setBackgroundColor(const Color & color);
    const Color & getBackgroundColor() const { return background_; }
    /// Added to the level of detail of all textures that are drawn, 0 at the start: those of -1 are twice as
    /// fine, as for pictures of several samples a pixel. Beyond the renderer's bounds these hold.
    void setTextureBias(double levels);
    double textureBias() const { return textureBias_; }

    /// The picture of the last `redisplay`, line 0 lowest, with 4 components when the canvas has an alpha
    /// buffer, else 3. Null without a context.
    SO<Image> snapshot();
    /// Copies the lower left part of the picture that fits into `target`; see `FrameReaderGL` for its format.
    /// False without a context or with another kind of image, which is reported.
    bool snapshot(Image * target);
    /// Draws the root nodes as a canvas of `width` by `height` would, in tiles of this canvas's size, and
    /// gives the whole picture. Null when nothing could be drawn.
    SO<Image> largeScaleSnapshot(unsigned width, unsigned height);
    /// The same in the size of `target`; false when it could not be drawn or read. `properties` says what is
    /// copied: `COLOR_BUFFER`, as anything else is reported.
    bool largeScaleSnapshot(Image * target, unsigned properties = COLOR_BUFFER);

protected:
    GLCanvas(unsigned width, unsigned height, unsigned properties);

    /// Makes the context for `width_` by `height_` pixels and tells in `properties_` what it has.
    virtual SO<ContextGL> createContext() = 0;
    /// Makes and frees what depends on the context and the size. The context is current.
    virtual bool createBuffers() { return true; }
    virtual void destroyBuffers() {}
    /// Gives an existing context another size.
    virtual bool resizeBuffers(unsigned width, unsigned height) = 0;

    ContextGL * context() const { return context_.get(); }

    unsigned width_;
    unsigned height_;
    unsigned properties_;

private:
    void bindFrameBuffer() const;
    bool createEngine();
    void initializeState();
    void clear();
    void drawPicture(const Area & picture, const Area & tile);
    bool drawTiles(Image * target);
    LayerSequence snapshotLayers() const;

    SO<ContextGL> context_;
    SO<EngineGL> engine_;
    std::vector<SO<ContextGL>> previous_; ///< contexts to go back to; null for none
    Color background_{0.0, 0.0, 0.0, 0.0};
    double textureBias_ = 0.0;
};

} // namespace NBX
