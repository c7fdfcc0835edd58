#include <nbx/gl/program/fragmentshaderobject.h>

#include <GL/glew.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(FragmentShaderObject, ShaderObject)

FragmentShaderObject::FragmentShaderObject(const std::string & source)
    : ShaderObject(GL_FRAGMENT_SHADER, source) {}

} // namespace NBX::GL2
