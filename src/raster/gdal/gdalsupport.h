#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <zmt/raster/georeference.h>
#include <zmt/raster/simplerasterdata.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// Keeps what GDAL says on this thread from the standard error stream while it lives, and remembers it.
/// The first one registers GDAL's formats.
class GdalErrorTrap {
public:
    GdalErrorTrap();
    ~GdalErrorTrap();
    GdalErrorTrap(const GdalErrorTrap &) = delete;
    GdalErrorTrap & operator=(const GdalErrorTrap &) = delete;

    /// True once GDAL reported an error, or a warning that data are missing.
    bool failed() const { return failed_; }
    /// The first error, else the last warning.
    std::wstring text() const;
    /// Forgets what was said.
    void clear();
    void note(bool isError, const char * text);

private:
    bool failed_ = false;
    std::string text_;
};

/// Whoever chooses a level by what whole blocks cost must not be kept from the fine ones by blocks as large
/// as a texture, or by strips as wide as the image: blocks are cached here, and read in parts.
constexpr unsigned s_largestGranularity = 128;

/// Throws `NBX::InputException`, which names `path`, for collections of shapes that lie deeper in one another
/// than any file needs.
void checkCollectionDepth(unsigned depth, const std::string & path);

/// For pixels that do not come. GDAL alone knows whose fault it is.
constexpr const wchar_t * s_unreadable =
    L"cannot be read: it is damaged or cut off, or a file that it names is missing; get it anew";

struct GdalDatasetCloser {
    void operator()(GDALDataset * dataset) const { GDALClose(dataset); }
};
using GdalDataset = std::unique_ptr<GDALDataset, GdalDatasetCloser>;

struct GdalTransformerDestroyer {
    void operator()(void * transformer) const { GDALDestroyTransformer(transformer); }
};
/// From pixels of a data set to map coordinates of a system, or to pixels of another data set.
using GdalTransformer = std::unique_ptr<void, GdalTransformerDestroyer>;

/// Opens `path` for reading; `kind` is `GDAL_OF_RASTER` or `GDAL_OF_VECTOR`. Throws
/// `NBX::FileNotFoundException` or `NBX::InputException`, which say why in words of the file system where it
/// knows better than GDAL, and otherwise in those of `advice`.
GdalDataset openDataset(const std::string & path, unsigned kind, const std::wstring & advice,
                        const GdalErrorTrap & trap);

/// The system `wkt` with x as longitude or easting; throws `NBX::InputException` for what is none.
OGRSpatialReference spatialReference(const std::string & wkt);

/// From `source` to the system `wkt`. Null where there is nothing to convert: they are the same, `source` is
/// null or empty, or `wkt` is empty. Throws `NBX::InputException`, which names `path`, where there is no way.
std::unique_ptr<OGRCoordinateTransformation>
newTransformation(const OGRSpatialReference * source, const std::string & wkt, const std::string & path);

/// True for two names of one system, whatever the order of its axes.
bool isSameSystem(const OGRSpatialReference & a, const OGRSpatialReference & b);

/// What `system` says of coordinates; it may be null or empty.
GeoReference describe(const OGRSpatialReference * system);

/// A data set without bands that lives in memory. `geoTransform` has six numbers; `wkt` may be empty.
GdalDataset newMemoryDataset(unsigned width, unsigned height, const double * geoTransform,
                             const std::string & wkt);

/// Adds a band that is stored in the caller's memory; offsets count bytes.
void addMemoryBand(GDALDataset & dataset, GDALDataType type, void * cells, std::size_t pixelOffset,
                   std::size_t lineOffset);

/// Adds the bands of pixels of red, green, blue and alpha bytes, which are the caller's.
void addRgbaBands(GDALDataset & dataset, std::uint8_t * rgba);

/// A data set over the cells of `raster`, which it borrows. Its lines go from south to north. `wkt` may be
/// empty.
GdalDataset wrapRaster(SimpleRasterData<float> & raster, const std::string & wkt);

/// The same heights, in which NaN is the only undefined value.
NBX::SO<SimpleRasterData<float>> copyWithNaN(const SimpleRasterData<float> & raster);

/// For GDAL's functions: updates the `NBX::Progress` given as `progress`, which may be null, and cancels with
/// it.
int CPL_STDCALL showProgress(double complete, const char * message, void * progress);

/// From pixels of `source` to pixels of `target`; without a target to map coordinates of `wkt`, which are
/// those of `source` where `wkt` is empty. Null where there is no such transformation.
GdalTransformer newTransformer(GDALDataset & source, GDALDataset * target, const std::string & wkt);

/// How places are converted between systems: between some that are exact, or each by itself, which takes
/// longer and does not depend on what else is converted.
enum class Precision { Approximate, Exact };

/// Resamples bilinearly. With `hasAlpha`, band 4 of both data sets is alpha and nothing is transparent;
/// otherwise there is one band, in which NaN is nothing. False when `progress` was cancelled; throws
/// `NBX::InputException` naming `path` where GDAL fails.
bool warpBilinear(GDALDataset & source, GDALDataset & target, bool hasAlpha, const std::string & path,
                  NBX::Progress * progress, Precision precision = Precision::Approximate);

} // namespace ZMT::RASTER
