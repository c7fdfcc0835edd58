#pragma once

#include <nbx/object/so.h>

namespace NBX {
class TexGenGL;
}

namespace ZMT::CORE {

/// Texture coordinates of a terrain and of what lies on it: the object coordinates x and z. One for all
/// terrains, which is never changed.
const NBX::SO<NBX::TexGenGL> & terrainTexGen();

} // namespace ZMT::CORE
