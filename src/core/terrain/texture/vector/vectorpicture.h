#pragma once

#include <vector>

#include <nbx/image/memoryimage.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// Makes the levels of a texture of what was drawn on a transparent ground.
class VectorPicture {
public:
    using Levels = std::vector<NBX::SO<NBX::MemoryImage>>;

    /// `drawn` has layers RGBA of 8 bits; its colours are multiplied by their alpha. The levels, from the
    /// full size down to 1 by 1, have colours that are not: averages by alpha of what they cover. A
    /// transparent texel has the colour of what lies next to it, so that filters take nothing else in at the
    /// border of a line, and is white where nothing lies near.
    static Levels levels(const NBX::MemoryImage & drawn);
};

} // namespace ZMT::CORE
