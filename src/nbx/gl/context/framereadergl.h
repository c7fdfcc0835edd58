#pragma once

#include <nbx/math/area.h>

namespace NBX {

class Image;

/// Reads pixels of the frame buffer that is bound for reading. The state of OpenGL stays as it is found.
class FrameReaderGL {
public:
    /// True for images that can be read into: all layer sequences but luminance with alpha.
    static bool canRead(const Image & target);
    /// Reads `source` into `target` at (`x`, `y`). One-layer images get red, or alpha where they hold alpha.
    /// False, after a report, when the image cannot be read into or the rectangle does not lie inside it.
    static bool read(Image * target, const Area & source, int x = 0, int y = 0);
};

} // namespace NBX
