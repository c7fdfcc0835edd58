#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/misc/recordfault.h"
#include <nbx/data/dataresource.h>
#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/tileref.h>

/// The records of streaming textures as they stand in the stream, little-endian, what makes them sound, and
/// the formats of pixels.
namespace ZMT::CORE::StreamingTextureFormat {

using GRID::TileRef;

constexpr char streamMagic[9] = "ZMT-AQTT";
constexpr char tileMagic[9] = "ZMT-AQTP";
constexpr unsigned headerSize = 256;
constexpr unsigned childCount = 4;
/// Of the tree. Boxes are halved from level to level, so that no image has more; trees are walked by
/// recursion.
constexpr unsigned maxLevels = 64;
/// Pixels along the side of a tile.
constexpr std::uint32_t maxTileSize = 16384;

/// A rectangle in map coordinates.
struct PlanBox {
    double minX, minY, maxX, maxY;

    /// Has an area, and no coordinate beyond what can be computed with.
    bool isSound() const;
    bool operator==(const PlanBox &) const = default;
};

/// In front of all.
struct StreamHeader {
    char magic[8];
    std::uint64_t dataSize; ///< from the start of the stream to the end of the file when it was written
    std::uint64_t reserved0;
    TileRef root;
    std::uint8_t zeros[216];

    static StreamHeader blank();
    /// Why it cannot stand at the start of the last `available` bytes of a file.
    RecordFaults faults(std::uint64_t available) const;
    bool isSound(std::uint64_t available) const { return faults(available).empty(); }
};
static_assert(sizeof(StreamHeader) == headerSize && offsetof(StreamHeader, root) == 24);

/// In front of the pixels of a tile.
struct TileHeader {
    char magic[8];
    std::uint64_t reserved0;
    std::uint32_t width, height, pixelFormat;
    std::uint32_t zero;
    PlanBox patch; ///< of the geometry patch
    PlanBox image; ///< from the centre of the first pixel to that of the last
    std::array<TileRef, childCount> children;
    std::uint8_t zeros[96];

    static TileHeader blank();
    /// What is wrong, but for the children.
    RecordFaults faults() const;
    /// Whether it may stand in front of a tile that lies at `ref`, in a stream of `streamSize` bytes:
    /// children lie before their parents, so that no path down the tree comes back.
    bool isSound(const TileRef & ref, std::uint64_t streamSize) const;
    /// Between the centres of two pixels.
    double pixelSizeX() const { return (image.maxX - image.minX) / (width - 1.0); }
    double pixelSizeY() const { return (image.maxY - image.minY) / (height - 1.0); }
};
static_assert(sizeof(TileHeader) == headerSize && offsetof(TileHeader, width) == 16 &&
              offsetof(TileHeader, patch) == 32 && offsetof(TileHeader, image) == 64 &&
              offsetof(TileHeader, children) == 96);

/// XORs every whole 8-byte word with `key`; up to 7 bytes at the end stay as they are. Twice is as never.
void scramble(void * data, std::size_t size, std::uint64_t key);

enum PixelFormat : std::uint32_t {
    PF_RGBA = 0,
    PF_BGRA4444 = 1,
    PF_BGRA5551 = 2,
    PF_LuminanceAlpha = 4,
    PF_Luminance = 7,
    PF_DXT3 = 8,  ///< blocks of 4 by 4 pixels
    PF_DXT1A = 9, ///< blocks of 4 by 4 pixels
    PF_Half = 10, ///< one layer
    PF_Float = 11 ///< one layer
};

/// What an image is stored as: its compression, 8 bits where luminance is all it has, or RGBA. No image, and
/// compressions that have no format, are reported, and give `PF_RGBA`.
PixelFormat formatOf(const NBX::Image * image);
/// Whether there are images of the format.
bool isFormat(std::uint32_t format);
/// Formats of blocks of 4 by 4 pixels.
constexpr bool isBlockFormat(std::uint32_t format) {
    return format == PF_DXT3 || format == PF_DXT1A;
}
/// 0, and reported, for a format that does not exist.
unsigned bitsPerPixel(std::uint32_t format);
/// Of all pixels. Formats of blocks have whole ones.
std::uint64_t pixelBytes(std::uint32_t format, std::uint32_t width, std::uint32_t height);
/// An image of the `pixelBytes` bytes at `pixels`. Null, and reported, for a format that does not exist or
/// that there is no image for.
NBX::SO<NBX::Image> newImage(std::uint32_t format, std::uint32_t width, std::uint32_t height,
                             const void * pixels);
/// The bytes that `newImage` makes the image from. `image` has the format's compression, layers and type.
NBX::SO<NBX::DataResource> pixelsOf(const NBX::Image & image, PixelFormat format);

} // namespace ZMT::CORE::StreamingTextureFormat
