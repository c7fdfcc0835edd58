#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/image/image.h>
#include <nbx/math/color.h>
#include <nbx/object/so.h>

namespace ZMT::RASTER {
class TiledGeoImage;
}

namespace ZMT::UTIL {

class TexturePyramid;
class VirtualTiledGeoImage;

/// Writes and opens files that hold an image in all its resolutions, tile by tile; docs/texture-pyramid.md
/// describes them. A file appears under its name when it is complete: when writing is cancelled, fails or is
/// killed, nothing of it is left. Needs room on the disk for the file, and for the pixels of the two largest
/// levels aside. Main memory is bounded: 160 MiB for levels, a cache of at most 128 MiB of the source, and 16
/// bytes a tile. Several threads may write different files at once.
class CompressedTexture {
public:
    /// How a tile's pixels are stored; the values are those of the files. Lines go from the south to the
    /// north, without padding; numbers of 16 bits are little-endian. In brackets: bytes of 256 by 256 pixels.
    enum PixelFormat : int {
        PF_RGBA8 = 0,             ///< red, green, blue, alpha of 8 bits (262144)
        PF_BGRA4444 = 1,          ///< `NBX::CompressedImage::BGRA4444` (131072)
        PF_BGRA5551 = 2,          ///< `NBX::CompressedImage::BGRA5551` (131072)
        PF_RGB8 = 3,              ///< red, green, blue of 8 bits (196608)
        PF_LuminanceAlpha8 = 4,   ///< luminance, alpha of 8 bits (131072)
        PF_DXT1 = 5,              ///< S3TC blocks without alpha (32768)
        PF_DXT5 = 6,              ///< S3TC blocks with interpolated alpha (65536)
        PF_Luminance8 = 7,        ///< luminance of 8 bits (65536)
        PF_DXT3 = 8,              ///< S3TC blocks with alpha of 4 bits (65536)
        PF_DXT1A = 9,             ///< S3TC blocks with alpha of 1 bit (32768)
        PF_LuminanceAlpha16 = 10, ///< luminance, alpha of 16 bits (262144)
        PF_RGBA16 = 11,           ///< red, green, blue, alpha of 16 bits (524288)
    };
    static constexpr int pixelFormats = 12;

    /// How tiles are stored.
    enum Compression : unsigned { C_None = 0, C_Deflate = 1 };

    /// The pyramid in a file; null when it is none, is damaged, or its headers are scrambled with another
    /// key. A file that does not exist gives null as well.
    static NBX::SO<TexturePyramid> load(const std::wstring & path);

    /// Writes `source` and its coarser levels, each half the size (rounded up) of the one before, until one
    /// tile of 128 by 128 pixels holds all. Pixels of `maskColor`, if there is one, become transparent. False
    /// when cancelled, when `source` cannot be read, and for parameters that are no formats or sizes, which
    /// are reported. Throws `NBX::IOException` where the file cannot be written.
    /// No level is an image in memory, nor does one stand for its size: tiles are made one by one.
    /// `wkt` is the system of its coordinates; it is written beside the file, as `RASTER::ProjectionFile`
    /// describes, and without one there is no such file any more.
    static bool create(NBX::SO<RASTER::TiledGeoImage> source, const std::wstring & path, PixelFormat format,
                       unsigned compression = C_Deflate, const NBX::Color * maskColor = nullptr,
                       const std::string & wkt = "");
    /// The same with image files in any format that GDAL reads. Of several, the later lie above the earlier,
    /// in the coordinate system of the first and in the resolution of the finest. The format is the one that
    /// holds all of them.
    static bool create(const std::vector<std::wstring> & images, const std::wstring & path,
                       unsigned compression = C_Deflate, const NBX::Color * maskColor = nullptr);
    static bool create(const std::vector<std::wstring> & images, const std::wstring & path,
                       PixelFormat format, unsigned compression = C_Deflate,
                       const NBX::Color * maskColor = nullptr);
    /// The same with a source that makes the tiles of all levels, deflated, in the format of its first tile.
    /// False also when it makes no tile at all.
    static bool create(const VirtualTiledGeoImage & source, const std::wstring & path);

    /// The headers of files are written and read scrambled with this key; 0, as at start, leaves them plain.
    /// One value of the process, set before files are used.
    static void setEncryptionKey(std::uint64_t key);
    static std::uint64_t getEncryptionKey();

    static bool isPixelFormat(std::int64_t value) { return value >= 0 && value < pixelFormats; }
    /// The name of a format, such as "RGBA8".
    static const char * formatName(PixelFormat format);
    /// Bytes of a tile as it is stored before deflating. 0 for sizes below 1 or above 65536.
    static std::uint64_t tileBytes(PixelFormat format, std::uint64_t width, std::uint64_t height);
    /// The format that stores the image's pixels without loss. An image without such a format is reported,
    /// and the result is negative.
    static int pixelFormatOf(const NBX::Image & image);
    /// Layers and type of the pixels that a format delivers.
    static NBX::LayerSequence layerSequence(PixelFormat format);
    static int dataType(PixelFormat format);
};

} // namespace ZMT::UTIL
