#pragma once

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

/// The scene that shows both trees without light: the opaque one; where the transparent one is nearly opaque
/// it as well; and then the rest of that, blended and without writing depth. Its attributes are shared by all
/// such scenes.
NBX::SO<NBX::SceneThing> newOptimizedScene(const NBX::SO<TexturedTriangleTree> & opaque,
                                           const NBX::SO<TexturedTriangleTree> & transparent);

} // namespace ZMT::CORE
