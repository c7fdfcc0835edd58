#pragma once

#include <map>
#include <vector>

#include <nbx/gl/context/namegl.h>
#include <nbx/gl/offscreen/renderbuffergl.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

class EngineGL;
class Image;

/// Pictures to draw into instead of the canvas: textures or render buffers of one size. It belongs to the
/// context it was made in.
///
/// As an attribute it takes what is drawn while it is the top one; otherwise see `bind`.
class FrameBufferObjectGL : public MonoAttribute {
    NBX_CLASS(FrameBufferObjectGL, MonoAttribute)
public:
    /// `width` and `height` are those of all attachments, in pixels. A null engine is reported. Where the
    /// driver has no such objects, that is reported at level 2, and nothing done with the object has an
    /// effect: it is never complete, and drawing goes to the canvas.
    FrameBufferObjectGL(EngineGL * engine, unsigned width, unsigned height);
    ~FrameBufferObjectGL() override;

    /// Whether the driver of the current context has frame buffer objects.
    static bool isSupported();

    /// Attaches level 0 of the texture `name` of the target `target` as colour `index`. `keeper` owns the
    /// name and is kept alive.
    void attachColorTexture(unsigned index, SO<SharedObj> keeper, unsigned target, unsigned name);
    void attachDepthTexture(SO<SharedObj> keeper, unsigned target, unsigned name);
    void attachColor(unsigned index, SO<RenderBufferGL> buffer);
    /// `buffer` has a depth format; with a depth and stencil format it serves as both.
    void attachDepth(SO<RenderBufferGL> buffer);
    /// Whether the attachments can be drawn into together; false in another context.
    bool isComplete() const;

    /// Directs drawing and reading to the attachments, with the viewport on all of them. `unbind` restores
    /// the frame buffer and the viewport that `bind` found; the calls nest.
    void bind(EngineGL * engine) const;
    void unbind(EngineGL * engine) const;
    /// Bound for the life of a block, also where what is drawn in it throws.
    class Scope {
    public:
        Scope(EngineGL * engine, const FrameBufferObjectGL & object) : engine_(engine), object_(object) {
            object_.bind(engine_);
        }
        ~Scope() { object_.unbind(engine_); }
        Scope(const Scope &) = delete;
        Scope & operator=(const Scope &) = delete;

    private:
        EngineGL * engine_;
        const FrameBufferObjectGL & object_;
    };
    /// Reads colour `index` into `target`, which has this size; see `FrameReaderGL` for its format. False for
    /// other images, which are reported.
    bool renderImage(EngineGL * engine, Image * target, unsigned index = 0) const;

    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    unsigned name() const { return name_.get(); }

private:
    struct Found {
        int frameBuffer;
        int viewport[4];
    };

    /// The attachment point is an OpenGL constant.
    void attachTexture(unsigned point, SO<SharedObj> keeper, unsigned target, unsigned name);
    void attachBuffer(unsigned point, SO<RenderBufferGL> buffer);
    void chooseBuffers();

    NameGL name_;
    unsigned width_;
    unsigned height_;
    std::map<unsigned, SO<SharedObj>> attachments_; ///< by attachment point
    mutable std::vector<Found> found_;
};

} // namespace NBX
