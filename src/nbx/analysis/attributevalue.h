#pragma once

#include <string>

#include <nbx/scene/base/renderobj.h>

namespace NBX {

/// The stored attributes of an object as bytes, which are the same for two objects of equal value. Objects
/// that it refers to count by address, and images in files by the file's name; names of objects do not count.
/// Empty for an object whose class is not stored, which is equal to itself alone.
std::string valueOf(const RenderObj & object);

} // namespace NBX
