#pragma once

#include <nbx/gl/program/uniformvariable.h>

namespace NBX::GL2 {

/// Says which texture unit a sampler of a program reads.
class SamplerVariable : public UniformVariable<int> {
    NBX_CLASS(SamplerVariable, UniformVariable<int>)
public:
    explicit SamplerVariable(const std::string & name, int unit = 0) : UniformVariable<int>(name, unit) {}
};

} // namespace NBX::GL2
