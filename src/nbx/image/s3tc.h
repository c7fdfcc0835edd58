#pragma once

#include <cstddef>

namespace NBX {

/// The block formats of texture compression by the OpenGL extension EXT_texture_compression_s3tc. A block is
/// 4 by 4 pixels; pixels are 16 times red, green, blue, alpha of 8 bits, line by line.
namespace S3TC {

enum class Format {
    DXT1,  ///< 8 bytes, opaque
    DXT1A, ///< 8 bytes, alpha of 1 bit
    DXT3,  ///< 16 bytes, alpha of 4 bits
    DXT5,  ///< 16 bytes, interpolated alpha
};

constexpr std::size_t blockBytes(Format format) {
    return format == Format::DXT3 || format == Format::DXT5 ? 16 : 8;
}

void encode(Format format, const unsigned char * pixels, unsigned char * block);
void decode(Format format, const unsigned char * block, unsigned char * pixels);

/// Reverses the first `lines` lines of a block without loss.
void reverseLines(Format format, unsigned char * block, int lines);

} // namespace S3TC

} // namespace NBX
