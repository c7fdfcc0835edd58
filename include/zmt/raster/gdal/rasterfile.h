#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/raster/georaster.h>
#include <zmt/raster/rasterband.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// A file of heights in any raster format that GDAL reads. Rows are delivered from the south and columns
/// from the west, whatever their order in the file; rotated rasters are resampled to an upright grid.
/// Undefined are NaN, infinite values, the band's no-data value and what a mask of the file leaves out;
/// scale and offset of the band are applied. One thread at a time uses a file and its bands.
class RasterFile {
public:
    /// At most this many cells are read into memory unless a caller wishes otherwise (1.6 GB).
    static constexpr std::uint64_t defaultMaxCells = 400'000'000;

    /// Opens `path`, a file name in the encoding of the file system. Throws `NBX::FileNotFoundException`
    /// or `NBX::InputException`, which say what is wrong and what to do.
    explicit RasterFile(const std::string & path);
    ~RasterFile();
    RasterFile(const RasterFile &) = delete;
    RasterFile & operator=(const RasterFile &) = delete;

    /// The files that are read for the raster or image `path`, itself included: those beside it, and the
    /// sources of a virtual one. None where it cannot be opened.
    static std::vector<std::string> partsOf(const std::string & path);

    /// From now on at most so many bytes of blocks of all files are kept in memory, unless the user's
    /// environment says otherwise (GDAL_CACHEMAX).
    static void limitCache(std::uint64_t bytes);

    const std::string & path() const;
    /// Short name of the file's format, such as "GTiff".
    std::string format() const;
    unsigned bands() const;
    const RasterGrid & grid() const;
    const GeoReference & reference() const;
    /// Unit of the heights as the file names it; mostly empty, which stands for metres.
    std::string heightUnit(unsigned band = 0) const;

    /// What the file says of a band, as people read it.
    struct BandDescription {
        std::string type;    ///< of its numbers, such as "Float32"
        std::string meaning; ///< such as "Red", "Gray" or "Palette"; empty where the file says nothing
        std::optional<double> noData; ///< the number that stands for no data
        std::string unit;             ///< mostly empty
    };
    /// Throws where there is no such band, counted from 0.
    BandDescription describe(unsigned band) const;

    /// One band, counted from 0, which keeps the file open. Throws where there is none.
    NBX::SO<RasterBand> band(unsigned index = 0) const;

    /// All cells of a band as `float`: whole numbers up to 2^24 are exact, other values are rounded to 24
    /// bits. The undefined value is NaN. The raster is null when `progress` was cancelled. Throws where the
    /// raster has more than `maxCells` cells, before memory is taken, and where the file is damaged.
    GeoRaster read(unsigned band = 0, NBX::Progress * progress = nullptr,
                   std::uint64_t maxCells = defaultMaxCells) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
