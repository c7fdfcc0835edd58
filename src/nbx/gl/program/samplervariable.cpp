#include <nbx/gl/program/samplervariable.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(SamplerVariable, UniformVariable<int>)

} // namespace NBX::GL2
