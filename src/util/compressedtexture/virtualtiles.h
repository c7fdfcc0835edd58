#pragma once

#include <string>
#include <vector>

#include <nbx/image/image.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

#include "texturepyramidwriter.h"

namespace ZMT::UTIL {

/// Writes the tiles of a generating source in the order of the file. The format is known with the first that
/// is not empty, so that those before it are passed twice, and asked for once.
class VirtualTiles {
public:
    /// Borrows `source`.
    explicit VirtualTiles(const VirtualTiledGeoImage & source);

    /// False when no tile is made.
    bool findFirst();
    const NBX::SO<NBX::Image> & first() const { return first_; }

    /// To be called after `findFirst`. False when cancelled; throws `NBX::IOException`.
    bool write(const std::string & path, CompressedTexture::PixelFormat format);

private:
    NBX::SO<NBX::Image> tile(unsigned level, unsigned column, unsigned row) const;

    const VirtualTiledGeoImage & source_;
    std::vector<LevelSize> levels_;
    unsigned level_ = 0, row_ = 0, column_ = 0; ///< of `first_`
    NBX::SO<NBX::Image> first_;
};

} // namespace ZMT::UTIL
