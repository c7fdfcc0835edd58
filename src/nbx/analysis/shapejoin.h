#pragma once

#include <vector>

#include "flatscene.h"

namespace NBX {

/// See `SceneGraphAnalyzer::createOptimizedScene`.
std::vector<FlatShape> joinedShapes(std::vector<FlatShape> shapes, bool bakeColors, bool joinAll);

} // namespace NBX
