#pragma once

#include <nbx/image/image.h>

namespace NBX {

/// What the first bytes of an image file say about the picture, before any pixel is decoded. The values are
/// as the file claims them: positive, and otherwise of any size.
struct ImageHeader {
    int width = 0, height = 0;
    LayerSequence layerSequence = LS_Luminance;
    int dataType = Image::UInt8;
};

} // namespace NBX
