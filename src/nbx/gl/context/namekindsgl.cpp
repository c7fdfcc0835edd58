#include "namekindsgl.h"

#include <GL/glew.h>

namespace NBX {

unsigned newNameGL(NameGL::Kind kind) {
    GLuint name = 0;
    switch (kind) {
    case NameGL::NK_Buffer:
        glGenBuffers(1, &name);
        break;
    case NameGL::NK_Texture:
        glGenTextures(1, &name);
        break;
    case NameGL::NK_DisplayList:
        name = glGenLists(1);
        break;
    case NameGL::NK_RenderBuffer:
        glGenRenderbuffersEXT(1, &name);
        break;
    case NameGL::NK_FrameBuffer:
        glGenFramebuffersEXT(1, &name);
        break;
    case NameGL::NK_Query:
        glGenQueries(1, &name);
        break;
    case NameGL::NK_ShaderObject:
        break;
    }
    return name;
}

void freeNameGL(NameGL::Kind kind, unsigned name) {
    switch (kind) {
    case NameGL::NK_Buffer:
        glDeleteBuffers(1, &name);
        break;
    case NameGL::NK_Texture:
        glDeleteTextures(1, &name);
        break;
    case NameGL::NK_DisplayList:
        glDeleteLists(name, 1);
        break;
    case NameGL::NK_RenderBuffer:
        glDeleteRenderbuffersEXT(1, &name);
        break;
    case NameGL::NK_ShaderObject:
        glDeleteObjectARB(name);
        break;
    case NameGL::NK_FrameBuffer:
        glDeleteFramebuffersEXT(1, &name);
        break;
    case NameGL::NK_Query:
        glDeleteQueries(1, &name);
        break;
    }
}

} // namespace NBX
