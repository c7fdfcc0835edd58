#pragma once

#include <array>

namespace NBX {

/// Compresses opaque pictures to S3TC blocks of 8 bytes, eight blocks at a time. The bytes are the same on
/// every processor.
namespace DXT1Encoder {

/// Bytes of one pixel, and which of them are red, green and blue.
struct PixelForm {
    int bytes;
    std::array<int, 3> color;
};

/// `Best` of those that the processor has; `Portable` ones give the same bytes.
enum class Instructions { Best, Portable };

/// One row of blocks: 4 lines of `width` pixels of the form `form` to (width + 3) / 4 blocks. Pixels beyond
/// the right edge repeat the last one. Lines may be given twice, where a picture has fewer.
void encodeRow(const std::array<const unsigned char *, 4> & lines, const PixelForm & form, int width,
               unsigned char * blocks, Instructions instructions = Instructions::Best);

} // namespace DXT1Encoder

} // namespace NBX
