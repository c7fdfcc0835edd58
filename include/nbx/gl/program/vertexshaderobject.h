#pragma once

#include <nbx/gl/program/shaderobject.h>

namespace NBX::GL2 {

/// The vertex stage of a program.
class VertexShaderObject : public ShaderObject {
    NBX_CLASS(VertexShaderObject, ShaderObject)
public:
    explicit VertexShaderObject(const std::string & source);
};

} // namespace NBX::GL2
