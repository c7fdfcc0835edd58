#pragma once

#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/raster/georaster.h>
#include <zmt/raster/georeference.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::RASTER {

/// The heights of one raster file or of several, of any size, in a coordinate system in metres, which are
/// read in windows. One thread at a time uses it and its band.
///
/// Several files are laid on one grid, in the system of the first and with the cells of the finest; where
/// they overlap, the later ones lie above, as far as they are defined. Files whose cells lie on that grid are
/// read as they are, others are resampled bilinearly. What is in degrees, feet and the like is brought to
/// metres as by `RasterWarp::toMetric`, but in windows. Heights are metres, whatever their unit in a file;
/// one that is not known is taken for metres. Where a system is wanted, it takes the place of that of the
/// first; files without a system are taken to be in it. The system that the result shall have is chosen as
/// `RasterWarp::toMetric` does it, unless one is given; then wedges without heights along the border are cut
/// off, as by `RasterWarp::toSystem`.
class HeightSource {
public:
    /// What a file says of its heights.
    struct File {
        std::string path;
        unsigned bands;         ///< of which the first is read
        std::string heightUnit; ///< as the file names it; mostly empty, which stands for metres
    };

    /// `wanted` is the WKT of a system in metres for all files, and `target` that of the result; empty ones
    /// leave the choice. Throws `NBX::FileNotFoundException` or `NBX::InputException`, which say what is
    /// wrong and what to do.
    explicit HeightSource(const std::vector<std::string> & paths, const std::string & wanted = {},
                          const std::string & target = {});
    /// Heights in memory, in metres and in a system in metres. Has no files.
    explicit HeightSource(const GeoRaster & heights);

    /// Keeps the heights in memory, or the files open, at most 64 of them at a time.
    const NBX::SO<RasterBand> & band() const { return band_; }
    /// In the order of the paths.
    const std::vector<File> & files() const { return files_; }
    /// Of the band; without a system where the files have none.
    const GeoReference & reference() const { return reference_; }

private:
    std::vector<File> files_;
    NBX::SO<RasterBand> band_;
    GeoReference reference_;
};

} // namespace ZMT::RASTER
