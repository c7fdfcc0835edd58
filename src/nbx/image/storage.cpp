#include "storage.h"

#include <nbx/object/errorhandler.h>

namespace NBX {

std::size_t checkedImageBytes(int width, int height, LayerSequence sequence, int dataType, int alignment,
                              MemoryLayout layout, std::size_t limit) {
    constexpr int largestAlignment = 64;
    const bool goodSize = width > 0 && height > 0;
    const bool goodAlignment =
        alignment > 0 && alignment <= largestAlignment && !(alignment & (alignment - 1));
    NBX_CHECK(goodSize, L"invalid image size: " << width << L" x " << height);
    NBX_CHECK(goodAlignment, L"image alignment is no power of two: " << alignment);
    NBX_CHECK(layout == ML_Interleaved, L"unknown memory layout: " << static_cast<int>(layout));
    if (!goodSize || !goodAlignment || layout != ML_Interleaved) return 0;

    const std::size_t pitch = Image::bytesPerLine(width, sequence, dataType, alignment);
    const bool fits = pitch <= limit / static_cast<std::size_t>(height);
    if (!fits) NBX_FAILURE(L"image too large: " << width << L" x " << height);
    return fits ? pitch * static_cast<std::size_t>(height) : 0;
}

LayerSequence layersOfChannels(int channels) {
    switch (channels) {
    case 1:
        return LS_Luminance;
    case 2:
        return LS_LuminanceAlpha;
    case 3:
        return LS_RGB;
    default:
        return LS_RGBA;
    }
}

} // namespace NBX
