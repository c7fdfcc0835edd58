#pragma once

#include <memory>
#include <optional>
#include <string>

#include <zmt/raster/geoimagedata.h>
#include <zmt/raster/georeference.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// An image in any raster format that GDAL reads: gray, palette or colours, with or without alpha, a mask
/// or a no-data value, which all become alpha. Bands of more than 8 bits are scaled to 8: by the range of
/// their type where the format says so, else by the greatest value found. One thread at a time uses it.
class ImageFile {
public:
    static constexpr unsigned defaultMaxSide = 4096;

    /// Opens `path`, a file name in the encoding of the file system. Throws `NBX::FileNotFoundException`
    /// or `NBX::InputException`, which say what is wrong and what to do.
    explicit ImageFile(const std::string & path);
    ~ImageFile();
    ImageFile(const ImageFile &) = delete;
    ImageFile & operator=(const ImageFile &) = delete;

    const std::string & path() const;
    unsigned width() const;
    unsigned height() const;
    /// Place of the outer edges in the image's own system.
    const GeoExtent & extent() const;
    const GeoReference & reference() const;

    /// The image as it lies in its own system, reduced until no side is longer than `maxSide` pixels.
    /// Empty when `progress` was cancelled. Throws where the file is damaged.
    std::optional<GeoImageData> read(unsigned maxSide = defaultMaxSide,
                                     NBX::Progress * progress = nullptr) const;

    /// True where some of the image lies in `extent` of the system `wkt`. Where one of the two systems is
    /// not known, they count as the same. An image without georeference lies nowhere.
    bool overlaps(const std::string & wkt, const GeoExtent & extent) const;

    /// The part of the image in `extent`, resampled to square pixels of the system `wkt` in about the
    /// image's own resolution, or a coarser one such that no side is longer than `maxSide` pixels. Empty
    /// when `progress` was cancelled. Throws where nothing overlaps and where the file is damaged.
    std::optional<GeoImageData> warp(const std::string & wkt, const GeoExtent & extent,
                                     unsigned maxSide = defaultMaxSide,
                                     NBX::Progress * progress = nullptr) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
