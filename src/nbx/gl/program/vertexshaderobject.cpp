#include <nbx/gl/program/vertexshaderobject.h>

#include <GL/glew.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(VertexShaderObject, ShaderObject)

VertexShaderObject::VertexShaderObject(const std::string & source) : ShaderObject(GL_VERTEX_SHADER, source) {}

} // namespace NBX::GL2
