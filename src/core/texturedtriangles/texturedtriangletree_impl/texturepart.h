#pragma once

#include <nbx/gl/texture/texturegl.h>
#include <nbx/image/image.h>

namespace ZMT::CORE {

/// How a row of pixels lies along one axis of a texture, in texture coordinates: 0 to 1 is the texture once.
struct TextureStretch {
    double begin = 0.0;                                        ///< at the lower edge of the first pixel
    double step = 0.0;                                         ///< from pixel to pixel, 0 or more
    unsigned pixels = 0;                                       ///< in a row
    NBX::TextureGL::WrapMode wrap = NBX::TextureGL::WM_Repeat; ///< all that repeats nothing is its edge
};

/// Draws the part of a texture that `s` and `t` tell, on `target`, of 8-bit RGBA and `s.pixels` by `t.pixels`
/// pixels. A pixel is the mean of the texels under it, each layer by itself, however often the texture is
/// repeated there; where texels are larger than pixels, it lies between the nearest ones. An image without
/// pixels, and places that are no numbers, leave `target` as it is. O(texels + pixels); of `source` two lines
/// at most are copied, whatever its format.
void drawTexturePart(const NBX::Image & source, const TextureStretch & s, const TextureStretch & t,
                     NBX::Image & target);

} // namespace ZMT::CORE
