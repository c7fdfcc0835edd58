// The grid of a file decides: upright ones are read as they are, turned ones by exchanging rows and columns,
// all others, and those that are wanted in another system, through GDAL's warping data set.

#include "gdalsource.h"

#include <algorithm>
#include <cmath>

#include <cpl_conv.h>
#include <cpl_string.h>
#include <gdal_utils.h>

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::RASTER {

namespace {

[[noreturn]] void throwWithoutBands(const std::string & path, GDALDataset & dataset) {
    CSLConstList parts = dataset.GetMetadata("SUBDATASETS");
    const char * part = CSLFetchNameValue(parts, "SUBDATASET_1_NAME");
    if (part)
        throw NBX::InputException(L"holds several rasters; name one of them", path, 0,
                                  L"for example " + NBX::StringUtils::Utf8String2WString(part));
    throw NBX::InputException(L"the file has no raster bands; choose a file with pixels", path);
}

/// Rotations that move no pixel by a thousandth of its size are roundings.
bool isUpright(const double * t, GDALDataset & dataset) {
    return std::abs(t[2]) * dataset.GetRasterYSize() <= 1e-3 * std::abs(t[1]) &&
           std::abs(t[4]) * dataset.GetRasterXSize() <= 1e-3 * std::abs(t[5]);
}

/// Columns run along y and lines along x.
bool isTurnedByARightAngle(const double * t) {
    return t[1] == 0.0 && t[5] == 0.0;
}

/// Keeps the pixels of such a file as they are; by itself GDAL would make them square.
void addTurnedGrid(CPLStringList & words, const double * t, GDALDataset & dataset) {
    const double endX = t[0] + t[2] * dataset.GetRasterYSize(), endY = t[3] + t[4] * dataset.GetRasterXSize();
    words.AddString("-te");
    for (const double border :
         {std::min(t[0], endX), std::min(t[3], endY), std::max(t[0], endX), std::max(t[3], endY)})
        words.AddString(CPLSPrintf("%.17g", border));
    words.AddString("-ts");
    for (const int pixels : {dataset.GetRasterYSize(), dataset.GetRasterXSize()})
        words.AddString(CPLSPrintf("%d", pixels));
}

/// What formats give for "not known".
bool isUnset(const double * t) {
    return t[0] == 0.0 && t[1] == 1.0 && t[2] == 0.0 && t[3] == 0.0 && t[4] == 0.0 && std::abs(t[5]) == 1.0;
}

bool isUsable(const double * t) {
    return std::all_of(t, t + 6, [](double v) { return std::isfinite(v); }) &&
           t[1] * t[5] - t[2] * t[4] != 0.0;
}

struct AppOptionsDestroyer {
    void operator()(GDALWarpAppOptions * options) const { GDALWarpAppOptionsFree(options); }
};

GdalDataset resample(GDALDataset & dataset, GdalSource::Outside outside, const std::string & wkt) {
    CPLStringList words;
    for (const char * word : {"-of", "VRT"})
        words.AddString(word);
    // What GDAL finds by itself takes the sides of a turned file for each other.
    for (const char * word : {"-wo", "XSCALE=1", "-wo", "YSCALE=1"})
        words.AddString(word);
    GDALRasterBand * band = dataset.GetRasterBand(1);
    // Colour numbers of a palette cannot be mixed.
    words.AddString("-r");
    words.AddString(band->GetColorTable() ? "near" : "bilinear");
    if (outside == GdalSource::Outside::NaN) {
        for (const char * word : {"-ot", "Float64", "-dstnodata", "nan"})
            words.AddString(word);
    } else {
        words.AddString("-dstalpha");
    }
    double transform[6];
    if (!wkt.empty()) {
        words.AddString("-t_srs");
        words.AddString(wkt.c_str());
    } else if (dataset.GetGeoTransform(transform) == CE_None && isTurnedByARightAngle(transform)) {
        addTurnedGrid(words, transform, dataset);
    }
    const std::unique_ptr<GDALWarpAppOptions, AppOptionsDestroyer> options(
        GDALWarpAppOptionsNew(words.List(), nullptr));
    GDALDatasetH sources[] = {&dataset};
    int usageError = FALSE;
    return GdalDataset(
        GDALDataset::FromHandle(GDALWarp("", nullptr, 1, sources, options.get(), &usageError)));
}

} // namespace

GdalSource::GdalSource(const std::string & path, Outside outside, const std::string & wkt) : path_(path) {
    open();
    standUpright(outside, wkt);
    readGeoTransform();
}

void GdalSource::open() {
    GdalErrorTrap trap;
    // Points are to lie in the middle of their pixels, whatever the process's environment says.
    const CPLConfigOptionSetter points("GTIFF_POINT_GEO_IGNORE", "FALSE", false);
    opened_ =
        openDataset(path_, GDAL_OF_RASTER,
                    L"is no raster file that can be read, or is damaged; use a format such as GeoTIFF, or "
                    L"get the file anew",
                    trap);
    if (opened_->GetRasterCount() == 0) throwWithoutBands(path_, *opened_);
    if (opened_->GetRasterXSize() <= 0 || opened_->GetRasterYSize() <= 0)
        throw NBX::InputException(L"the raster has no pixels; choose another file", path_);
    dataset_ = opened_.get();
}

bool GdalSource::isOfSystem(const std::string & wkt) const {
    const OGRSpatialReference * own = opened_->GetSpatialRef();
    if (!own) own = opened_->GetGCPSpatialRef();
    if (wkt.empty() || !own || own->IsEmpty()) return true;
    return isSameSystem(*own, spatialReference(wkt));
}

void GdalSource::standUpright(Outside outside, const std::string & wkt) {
    GdalErrorTrap trap;
    double transform[6];
    const bool isPlaced = opened_->GetGeoTransform(transform) == CE_None;
    if (isPlaced && !isUsable(transform))
        throw NBX::InputException(L"its georeference is unusable; correct the file's geotransform", path_);
    const bool hasPoints = !isPlaced && opened_->GetGCPCount() >= 3;
    const bool isWarped = (isPlaced || hasPoints) && !isOfSystem(wkt);
    if (!isWarped && !hasPoints && (!isPlaced || isUpright(transform, *opened_))) return;
    resampled_ = resample(*opened_, outside, isWarped ? wkt : "");
    if (!resampled_)
        throw NBX::InputException(isWarped
                                      ? L"cannot be brought into the wanted coordinate system; check "
                                        L"the coordinate system of the file"
                                      : L"is rotated and cannot be set upright; resample it with gdalwarp",
                                  path_, 0, trap.text());
    dataset_ = resampled_.get();
}

void GdalSource::readGeoTransform() {
    GdalErrorTrap trap;
    const OGRSpatialReference * system = dataset_->GetSpatialRef();
    reference_ = describe(system);
    const bool isPlaced = dataset_->GetGeoTransform(geoTransform_) == CE_None &&
                          !(reference_.wkt.empty() && isUnset(geoTransform_));
    reference_.isGeoreferenced = isPlaced;
    geoTransform_[2] = geoTransform_[4] = 0.0;
    if (isPlaced) return;
    // Cell positions become whole numbers, from the lowest line up.
    const double pixels[6] = {-0.5, 1.0, 0.0, height() - 0.5, 0.0, -1.0};
    std::copy(pixels, pixels + 6, geoTransform_);
    reference_ = GeoReference();
}

RasterGrid GdalSource::grid() const {
    const double * t = geoTransform_;
    const double firstX = t[0] + t[1] * (isMirrored() ? width() - 0.5 : 0.5);
    const double firstY = t[3] + t[5] * (isSouthUp() ? 0.5 : height() - 0.5);
    return {width(), height(), firstX, firstY, std::abs(t[1]), std::abs(t[5])};
}

} // namespace ZMT::RASTER
