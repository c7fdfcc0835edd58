#include <nbx/gl/mesh/basevertexattributebufferobjectgl.h>

#include <GL/glew.h>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(BaseVertexAttributeBufferObjectGL, BufferObjectGL)

BaseVertexAttributeBufferObjectGL::BaseVertexAttributeBufferObjectGL(EngineGL * engine, unsigned count,
                                                                     const void * data,
                                                                     unsigned componentType,
                                                                     unsigned components, UsagePattern usage)
    : BufferObjectGL(engine, std::size_t(count) * components * componentBytes(componentType), data,
                     DT_VertexAttributes, usage),
      componentType_(componentType), components_(components), count_(count) {
    NBX_CHECK(componentBytes(componentType) > 0, L"unknown component type " << componentType);
    NBX_CHECK_RANGE(1u, components, 5u);
}

unsigned BaseVertexAttributeBufferObjectGL::componentBytes(unsigned componentType) {
    switch (componentType) {
    case GL_UNSIGNED_BYTE:
        return 1;
    case GL_UNSIGNED_SHORT:
        return 2;
    case GL_UNSIGNED_INT:
        return 4;
    case GL_FLOAT:
        return 4;
    case GL_DOUBLE:
        return 8;
    default:
        return 0;
    }
}

} // namespace NBX
