#pragma once

#include <GL/glew.h>

namespace NBX {

/// Restores the vertex arrays, the bound buffers and the current attributes at the end of the scope.
class VertexStateGuard {
public:
    VertexStateGuard() {
        glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
        glPushAttrib(GL_CURRENT_BIT);
    }
    ~VertexStateGuard() {
        glPopAttrib();
        glPopClientAttrib();
    }
    VertexStateGuard(const VertexStateGuard &) = delete;
    VertexStateGuard & operator=(const VertexStateGuard &) = delete;
};

} // namespace NBX
