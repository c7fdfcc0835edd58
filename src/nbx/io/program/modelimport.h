#pragma once

#include <string>

#include "../modelanswer.h"

namespace NBX {

inline constexpr const char * s_tooMuchMemory = "it needs more memory than it may have";

/// Reads the model at `path` as a file of the kind that has the suffix `suffix`, such as "obj". Does not
/// throw: what cannot be read is a failure in the answer.
ModelAnswer importModel(const std::string & path, const std::string & suffix);

} // namespace NBX
