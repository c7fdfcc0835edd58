#pragma once

#include <vector>

#include <nbx/object/id.h>

namespace NBX {

/// The names of all classes that can be stored, those of libraries that were loaded at run time included,
/// sorted by their text. Any thread may ask.
std::vector<ID> registeredClasses();

} // namespace NBX
