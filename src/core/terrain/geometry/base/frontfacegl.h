#pragma once

#include <GL/gl.h>

namespace ZMT::CORE {

/// Which side of triangles is the front for the life of a block, and behind it, also where what is painted in
/// the block throws. The order is not read back from the card, as display lists record both.
class FrontFaceGL {
public:
    FrontFaceGL(GLenum order, GLenum behind) : behind_(behind) { glFrontFace(order); }
    ~FrontFaceGL() { glFrontFace(behind_); }
    FrontFaceGL(const FrontFaceGL &) = delete;
    FrontFaceGL & operator=(const FrontFaceGL &) = delete;

private:
    GLenum behind_;
};

} // namespace ZMT::CORE
