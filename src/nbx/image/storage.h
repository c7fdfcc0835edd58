#pragma once

#include <nbx/image/image.h>

namespace NBX {

/// Checks, with reports, what the constructors of images with pixels of their own are given. The bytes of all
/// lines with their padding, or 0 when they cannot be had; at most `limit`.
std::size_t checkedImageBytes(int width, int height, LayerSequence sequence, int dataType, int alignment,
                              MemoryLayout layout, std::size_t limit);

/// How files call it: grey, grey and alpha, colour, colour and alpha.
LayerSequence layersOfChannels(int channels);

} // namespace NBX
