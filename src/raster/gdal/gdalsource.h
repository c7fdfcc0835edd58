#pragma once

#include <string>

#include "gdalsupport.h"

#include <zmt/raster/rasterdata.h>

namespace ZMT::RASTER {

/// A raster file open for reading, with an upright grid: files that are rotated, or placed by control
/// points, or wanted in another coordinate system, are seen through a resampling data set.
class GdalSource {
public:
    /// What the resampling of a file that is not upright leaves where there is no data.
    enum class Outside { NaN, Transparent };

    /// `wkt` is the coordinate system in which the file is wanted; empty for its own. Where one of the two
    /// is not known, they count as the same. Throws `NBX::FileNotFoundException` or `NBX::InputException`.
    GdalSource(const std::string & path, Outside outside, const std::string & wkt = "");

    const std::string & path() const { return path_; }
    /// Short name of the file's format.
    std::string format() const { return opened_->GetDriverName(); }
    GDALDataset & dataset() const { return *dataset_; }
    /// Without the alpha band that resampling adds.
    unsigned bandsOfFile() const { return static_cast<unsigned>(opened_->GetRasterCount()); }
    unsigned width() const { return static_cast<unsigned>(dataset_->GetRasterXSize()); }
    unsigned height() const { return static_cast<unsigned>(dataset_->GetRasterYSize()); }
    const GeoReference & reference() const { return reference_; }
    /// Upright: the numbers 2 and 4 are 0. Numbers 1 and 5 may have either sign.
    const double * geoTransform() const { return geoTransform_; }
    RasterGrid grid() const;

    bool isMirrored() const { return geoTransform_[1] < 0.0; }
    bool isSouthUp() const { return geoTransform_[5] > 0.0; }

private:
    void open();
    bool isOfSystem(const std::string & wkt) const;
    void standUpright(Outside outside, const std::string & wkt);
    void readGeoTransform();

    std::string path_;
    GdalDataset opened_;
    GdalDataset resampled_;
    GDALDataset * dataset_ = nullptr;
    GeoReference reference_;
    double geoTransform_[6] = {};
};

} // namespace ZMT::RASTER
