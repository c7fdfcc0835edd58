#pragma once

#include <functional>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/gl/program/attributedshape.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>

#include "floattargetgl.h"

namespace ZMT::CORE {

/// A mesh over the unit square, and the target of floats from which its heights come. Render thread.
class TrapezoidGridGL {
public:
    using Matrix = NBX::Matrix4x4Base<double>;

    /// `size` vertices along each side, at least 2. There is no mesh where the driver has no such target.
    TrapezoidGridGL(NBX::EngineGL * engine, unsigned size);

    unsigned size() const { return size_; }
    bool isUsable() const { return target_.isUsable(); }
    /// Clears the target, lets `draw` draw into it, and makes its pixels the vertices.
    void fill(NBX::EngineGL * engine, const std::function<void()> & draw);
    /// Draws the mesh by the program in use.
    void draw(NBX::EngineGL * engine) const { shape_->draw(engine); }

    const NBX::SO<NBX::GL2::AttributedShape> & shape() const { return shape_; }
    const NBX::SO<NBX::Texture2DGL> & texture() const { return target_.texture(); }
    /// From the cube from -1 to 1 to where the middles of the outer pixels are its borders: vertices, not
    /// pixels, lie on these.
    Matrix toPixelMiddles() const;

private:
    void readBack(NBX::EngineGL * engine);

    unsigned size_;
    FloatTargetGL target_;
    NBX::SO<NBX::GL2::AttributedShape> shape_;
    NBX::SO<NBX::BaseVertexAttributeBufferObjectGL> gridZ_;
};

} // namespace ZMT::CORE
