#pragma once

#include <cstdint>

#include "checkedfile.h"

namespace ZMT::UTIL {

/// Checks the headers, tables and tiles of a texture pyramid.
void checkPyramid(CheckedFile & file, ValidationReport & report, std::uint64_t key);

} // namespace ZMT::UTIL
