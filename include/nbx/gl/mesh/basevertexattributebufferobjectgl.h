#pragma once

#include <nbx/gl/mesh/bufferobjectgl.h>

namespace NBX {

/// A buffer of one attribute for each vertex, tightly packed.
class BaseVertexAttributeBufferObjectGL : public BufferObjectGL {
    NBX_CLASS(BaseVertexAttributeBufferObjectGL, BufferObjectGL)
public:
    /// `componentType` is GL_FLOAT, GL_DOUBLE, GL_UNSIGNED_BYTE, GL_UNSIGNED_SHORT or GL_UNSIGNED_INT;
    /// `components` counts those of one vertex, 1 to 4.
    BaseVertexAttributeBufferObjectGL(EngineGL * engine, unsigned count, const void * data,
                                      unsigned componentType, unsigned components,
                                      UsagePattern usage = UP_Static);

    unsigned componentType() const { return componentType_; }
    unsigned components() const { return components_; }
    /// Number of vertices.
    unsigned count() const { return count_; }

    /// Bytes of one component of a type; 0 for a type that is not one of those above.
    static unsigned componentBytes(unsigned componentType);

private:
    unsigned componentType_;
    unsigned components_;
    unsigned count_;
};

} // namespace NBX
