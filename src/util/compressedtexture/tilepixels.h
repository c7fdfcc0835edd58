#pragma once

#include <cstdint>
#include <vector>

#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace ZMT::UTIL {

/// The bytes of a tile in a pixel format, and the image that they are. May be used from any thread.
class TilePixels {
public:
    /// A blank image as `decode` gives it; null for a size that no image can have.
    static NBX::SO<NBX::Image> emptyImage(CompressedTexture::PixelFormat format, unsigned width,
                                          unsigned height);
    /// An image that may be smaller than a tile or of another format, as a tile of `tileSize` squared pixels;
    /// null where it cannot be converted.
    static NBX::SO<NBX::Image> wholeTile(CompressedTexture::PixelFormat format,
                                         const NBX::SO<NBX::Image> & image, unsigned tileSize);
    /// Bytes of an image of the format; sides are at most 65536.
    static std::uint64_t imageBytes(CompressedTexture::PixelFormat format, std::uint64_t width,
                                    std::uint64_t height);
    /// `data` has `CompressedTexture::tileBytes` bytes.
    static NBX::SO<NBX::Image> decode(CompressedTexture::PixelFormat format, const std::uint8_t * data,
                                      unsigned width, unsigned height);
    /// The bytes of an image; other layers and types than those of the format are converted.
    static std::vector<std::uint8_t> encode(CompressedTexture::PixelFormat format, const NBX::Image & image);
    /// True when blank pixels of the format are transparent.
    static bool hasAlpha(CompressedTexture::PixelFormat format);
};

} // namespace ZMT::UTIL
