#pragma once

#include <nbx/gl/program/shaderobject.h>

namespace NBX::GL2 {

/// The fragment stage of a program.
class FragmentShaderObject : public ShaderObject {
    NBX_CLASS(FragmentShaderObject, ShaderObject)
public:
    explicit FragmentShaderObject(const std::string & source);
};

} // namespace NBX::GL2
