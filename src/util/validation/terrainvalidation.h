#pragma once

#include "checkedfile.h"

namespace ZMT::UTIL {

/// Checks the header and the tiles of a streaming terrain, and the light map behind them.
void checkTerrain(CheckedFile & file, ValidationReport & report);

} // namespace ZMT::UTIL
