#pragma once

#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// Several samples for each pixel of what a canvas draws. The buffers are kept for the next one.
class VectorSamplesGL {
public:
    /// Appends a node to the canvas: what is drawn behind it goes into the samples. With a single one, with
    /// another canvas than one of pixel buffers, and where the driver cannot, the canvas is drawn as it is.
    VectorSamplesGL(NBX::GLCanvas & canvas, unsigned samples);

    /// To be called when the canvas was drawn: the averages become its picture. Its context is current.
    void average() const;

    /// Drops the buffers.
    static void release();

private:
    NBX::GLCanvas & canvas_;
    NBX::SO<NBX::FrameBufferObjectGL> samples_; ///< null where there is one for each pixel
};

} // namespace ZMT::CORE
