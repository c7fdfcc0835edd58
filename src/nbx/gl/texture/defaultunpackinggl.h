#pragma once

#include <GL/glew.h>

namespace NBX {

/// Unpacking of texels as it is at the start of a context, rows one behind the other, for the lifetime of the
/// object; the buffer that they would come from is left aside.
class DefaultUnpacking {
public:
    DefaultUnpacking() {
        glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
        glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &buffer_);
        if (buffer_ != 0) glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
        glPixelStorei(GL_UNPACK_SWAP_BYTES, GL_FALSE);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
        glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    }
    ~DefaultUnpacking() {
        if (buffer_ != 0) glBindBuffer(GL_PIXEL_UNPACK_BUFFER, static_cast<GLuint>(buffer_));
        glPopClientAttrib();
    }
    DefaultUnpacking(const DefaultUnpacking &) = delete;
    DefaultUnpacking & operator=(const DefaultUnpacking &) = delete;

private:
    GLint buffer_ = 0;
};

} // namespace NBX
