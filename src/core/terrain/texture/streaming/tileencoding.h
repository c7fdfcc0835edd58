#pragma once

#include <cstdint>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/raster/geoimage.h>

#include "streamingtextureformat.h"

namespace ZMT::CORE {

/// Makes blocks of streaming textures, without their children, from images. Any thread.
class TileEncoding {
public:
    using Block = std::vector<std::uint8_t>;
    using PlanBox = StreamingTextureFormat::PlanBox;

    /// The block of the patch with the box `patch`. An image with a side larger than `tileSize` is replaced
    /// by a blank one. One of a single column or line is stored as two of half the size, since the place of
    /// an image is known by its first and its last centre; one of blocks gets transparent columns and lines
    /// up to whole blocks.
    static Block encode(const RASTER::GeoImage & image, const PlanBox & patch, unsigned tileSize,
                        StreamingTextureOptions::Pixels pixels);
    /// The same for pixels as they are stored, one line behind the other.
    static Block encode(StreamingTextureFormat::PixelFormat format, unsigned width, unsigned height,
                        const PlanBox & image, const PlanBox & patch, const void * pixels);
};

} // namespace ZMT::CORE
