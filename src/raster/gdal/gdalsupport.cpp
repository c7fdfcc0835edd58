// Errors first, which GDAL reports through a handler of the thread; then opening, coordinate systems, rasters
// in memory that lend our pixels to GDAL, and the warp of one into another by bilinear interpolation.

#include "gdalsupport.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <mutex>
#include <system_error>

#include <cpl_conv.h>
#include <cpl_string.h>
#include <gdal_utils.h>
#include <gdalwarper.h>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>

namespace ZMT::RASTER {

namespace {

/// Source pixels by which a transformation may be off for the sake of speed.
constexpr double transformTolerance = 0.01;

/// Blocks of files that GDAL keeps in memory, unless the user's environment says otherwise: its own limit
/// grows with the memory of the machine, which is not ours alone.
constexpr GIntBig blockCacheBytes = GIntBig(256) << 20;

void registerFormats() {
    GDALAllRegister();
    if (!CPLGetConfigOption("GDAL_CACHEMAX", nullptr))
        GDALSetCacheMax64(std::min(GDALGetCacheMax64(), blockCacheBytes));
}

void CPL_STDCALL noteMessage(CPLErr level, CPLErrorNum, const char * text) {
    if (level < CE_Warning) return;
    // The JPEG library only warns of a file that was cut off, and fills the rest with gray.
    const bool isError = level >= CE_Failure || std::strstr(text, "remature end");
    static_cast<GdalErrorTrap *>(CPLGetErrorHandlerUserData())->note(isError, text);
}

struct WarpOptionsDestroyer {
    void operator()(GDALWarpOptions * options) const { GDALDestroyWarpOptions(options); }
};
using WarpOptions = std::unique_ptr<GDALWarpOptions, WarpOptionsDestroyer>;

double * newNumbers(int count, double value) {
    auto * numbers = static_cast<double *>(CPLMalloc(sizeof(double) * count));
    std::fill_n(numbers, count, value);
    return numbers;
}

void setBands(GDALWarpOptions & options, bool hasAlpha) {
    const int bands = hasAlpha ? 3 : 1;
    options.nBandCount = bands;
    options.panSrcBands = static_cast<int *>(CPLMalloc(sizeof(int) * bands));
    options.panDstBands = static_cast<int *>(CPLMalloc(sizeof(int) * bands));
    for (int i = 0; i < bands; ++i)
        options.panSrcBands[i] = options.panDstBands[i] = i + 1;
    if (hasAlpha) {
        options.nSrcAlphaBand = options.nDstAlphaBand = 4;
        options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "INIT_DEST", "0");
    } else {
        options.padfSrcNoDataReal = newNumbers(1, std::numeric_limits<double>::quiet_NaN());
        options.padfDstNoDataReal = newNumbers(1, std::numeric_limits<double>::quiet_NaN());
        options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "INIT_DEST", "NO_DATA");
    }
    // Transformations bend: what the border of a chunk needs may lie outside the box of its corners.
    options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "SAMPLE_GRID", "YES");
    options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "SOURCE_EXTRA", "4");
    // Callers have brought the source to the wanted resolution. What GDAL finds by itself differs from chunk
    // to chunk and blurs those whose part of the source is wrapped around the globe.
    options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "XSCALE", "1");
    options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "YSCALE", "1");
}

} // namespace

GdalErrorTrap::GdalErrorTrap() {
    static std::once_flag registered;
    std::call_once(registered, registerFormats);
    CPLPushErrorHandlerEx(noteMessage, this);
}

GdalErrorTrap::~GdalErrorTrap() {
    CPLPopErrorHandler();
    CPLErrorReset();
}

std::wstring GdalErrorTrap::text() const {
    return NBX::StringUtils::Utf8String2WString(text_);
}

void GdalErrorTrap::clear() {
    failed_ = false;
    text_.clear();
}

void GdalErrorTrap::note(bool isError, const char * text) {
    if (!failed_) text_ = text;
    failed_ = failed_ || isError;
}

namespace {

/// Opening a pipe waits for somebody who writes into it.
void refusePipe(const std::string & path) {
    std::error_code error;
    if (std::filesystem::is_fifo(path, error))
        throw NBX::InputException(L"is a pipe; save what it carries, and name that file", path);
}

[[noreturn]] void throwUnopened(const std::string & path, const std::wstring & advice,
                                const GdalErrorTrap & trap) {
    NBX::File::checkReadable(path);
    throw NBX::InputException(advice, path, 0, trap.text());
}

} // namespace

GdalDataset openDataset(const std::string & path, unsigned kind, const std::wstring & advice,
                        const GdalErrorTrap & trap) {
    refusePipe(path);
    GdalDataset dataset(GDALDataset::Open(path.c_str(), kind | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR));
    if (!dataset) throwUnopened(path, advice, trap);
    return dataset;
}

OGRSpatialReference spatialReference(const std::string & wkt) {
    // The text may come from a file that somebody else wrote.
    const char * const options[] = {"ALLOW_NETWORK_ACCESS=NO", "ALLOW_FILE_ACCESS=NO", nullptr};
    OGRSpatialReference system;
    if (system.SetFromUserInput(wkt.c_str(), options) != OGRERR_NONE)
        throw NBX::InputException(L"unknown coordinate system", "", 0,
                                  NBX::StringUtils::Utf8String2WString(wkt.substr(0, 200)));
    system.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return system;
}

std::unique_ptr<OGRCoordinateTransformation>
newTransformation(const OGRSpatialReference * source, const std::string & wkt, const std::string & path) {
    if (wkt.empty() || !source || source->IsEmpty()) return nullptr;
    OGRSpatialReference from(*source);
    from.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    const OGRSpatialReference to = spatialReference(wkt);
    if (from.IsSame(&to)) return nullptr;
    const GdalErrorTrap trap;
    std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&from, &to));
    if (!transformation)
        throw NBX::InputException(L"cannot be brought into another coordinate system; check the coordinate "
                                  L"system of the file",
                                  path, 0, trap.text());
    return transformation;
}

bool isSameSystem(const OGRSpatialReference & a, const OGRSpatialReference & b) {
    const char * const options[] = {"IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES", nullptr};
    return a.IsSame(&b, options);
}

GeoReference describe(const OGRSpatialReference * system) {
    GeoReference result;
    if (!system || system->IsEmpty()) return result;
    char * wkt = nullptr;
    const char * const options[] = {"FORMAT=WKT2", nullptr};
    if (system->exportToWkt(&wkt, options) == OGRERR_NONE && wkt) result.wkt = wkt;
    CPLFree(wkt);
    if (const char * name = system->GetName()) result.name = name;
    result.isGeographic = system->IsGeographic();
    const char * unitName = nullptr;
    if (result.isGeographic) {
        result.unit = system->GetAngularUnits(&unitName) * 180.0 / M_PI;
        // The factor of the degree itself is a rounded number.
        if (std::abs(result.unit - 1.0) < 1e-9) result.unit = 1.0;
    } else {
        result.unit = system->GetLinearUnits(&unitName);
    }
    if (!(result.unit > 0.0)) result.unit = 1.0;
    if (unitName) result.unitName = unitName;
    return result;
}

GdalDataset newMemoryDataset(unsigned width, unsigned height, const double * geoTransform,
                             const std::string & wkt) {
    GDALDriver * driver = GetGDALDriverManager()->GetDriverByName("MEM");
    GdalDataset dataset(
        driver->Create("", static_cast<int>(width), static_cast<int>(height), 0, GDT_Byte, nullptr));
    if (!dataset) throw NBX::InputException(L"image of an unusable size");
    dataset->SetGeoTransform(const_cast<double *>(geoTransform));
    if (!wkt.empty()) {
        const OGRSpatialReference system = spatialReference(wkt);
        dataset->SetSpatialRef(&system);
    }
    return dataset;
}

void addMemoryBand(GDALDataset & dataset, GDALDataType type, void * cells, std::size_t pixelOffset,
                   std::size_t lineOffset) {
    char pointer[64];
    pointer[CPLPrintPointer(pointer, cells, sizeof pointer - 1)] = 0;
    CPLStringList options;
    options.SetNameValue("DATAPOINTER", pointer);
    options.SetNameValue("PIXELOFFSET", std::to_string(pixelOffset).c_str());
    options.SetNameValue("LINEOFFSET", std::to_string(lineOffset).c_str());
    dataset.AddBand(type, options.List());
}

void addRgbaBands(GDALDataset & dataset, std::uint8_t * rgba) {
    for (std::size_t channel = 0; channel < 4; ++channel)
        addMemoryBand(dataset, GDT_Byte, rgba + channel, 4,
                      4 * static_cast<std::size_t>(dataset.GetRasterXSize()));
    dataset.GetRasterBand(4)->SetColorInterpretation(GCI_AlphaBand);
}

GdalDataset wrapRaster(SimpleRasterData<float> & raster, const std::string & wkt) {
    const double transform[6] = {raster.minX() - 0.5 * raster.cellSizeX(),
                                 raster.cellSizeX(),
                                 0.0,
                                 raster.minY() - 0.5 * raster.cellSizeY(),
                                 0.0,
                                 raster.cellSizeY()};
    GdalDataset dataset = newMemoryDataset(raster.cellsX(), raster.cellsY(), transform, wkt);
    addMemoryBand(*dataset, GDT_Float32, raster.cells(), sizeof(float), sizeof(float) * raster.cellsX());
    return dataset;
}

NBX::SO<SimpleRasterData<float>> copyWithNaN(const SimpleRasterData<float> & raster) {
    constexpr float undefined = std::numeric_limits<float>::quiet_NaN();
    NBX::SO<SimpleRasterData<float>> copy(
        new SimpleRasterData<float>(raster.cellsX(), raster.cellsY(), raster.minX(), raster.minY(),
                                    raster.cellSizeX(), raster.cellSizeY(), true, undefined));
    const std::size_t cells = static_cast<std::size_t>(raster.cellsX()) * raster.cellsY();
    std::transform(raster.cells(), raster.cells() + cells, copy->cells(),
                   [&](float value) { return raster.isUndefValue(value) ? undefined : value; });
    return copy;
}

int CPL_STDCALL showProgress(double complete, const char *, void * progress) {
    if (!progress) return TRUE;
    auto * shown = static_cast<NBX::Progress *>(progress);
    return shown->update(complete * shown->totalValue());
}

GdalTransformer newTransformer(GDALDataset & source, GDALDataset * target, const std::string & wkt) {
    CPLStringList options;
    // Without a system on one side there is nothing to convert: map coordinates are taken as they are.
    if (!target && !wkt.empty() && source.GetSpatialRef()) options.SetNameValue("DST_SRS", wkt.c_str());
    return GdalTransformer(GDALCreateGenImgProjTransformer2(&source, target, options.List()));
}

bool warpBilinear(GDALDataset & source, GDALDataset & target, bool hasAlpha, const std::string & path,
                  NBX::Progress * progress, Precision precision) {
    GdalErrorTrap trap;
    const auto fail = [&] {
        return NBX::InputException(L"cannot be brought into another coordinate system; check the "
                                   L"coordinate system of the file",
                                   path, 0, trap.text());
    };
    const GdalTransformer exact = newTransformer(source, &target, "");
    if (!exact) throw fail();
    const GdalTransformer approximate(
        precision == Precision::Exact
            ? nullptr
            : GDALCreateApproxTransformer(GDALGenImgProjTransform, exact.get(), transformTolerance));
    const WarpOptions options(GDALCreateWarpOptions());
    options->hSrcDS = &source;
    options->hDstDS = &target;
    options->eResampleAlg = GRA_Bilinear;
    options->pfnTransformer = approximate ? GDALApproxTransform : GDALGenImgProjTransform;
    options->pTransformerArg = approximate ? approximate.get() : exact.get();
    options->pfnProgress = showProgress;
    options->pProgressArg = progress;
    setBands(*options, hasAlpha);
    GDALWarpOperation operation;
    const bool worked =
        operation.Initialize(options.get()) == CE_None &&
        operation.ChunkAndWarpImage(0, 0, target.GetRasterXSize(), target.GetRasterYSize()) == CE_None;
    if (progress && progress->isCanceled()) return false;
    if (!worked) throw fail();
    return true;
}

void checkCollectionDepth(unsigned depth, const std::string & path) {
    constexpr unsigned deepest = 32;
    if (depth > deepest)
        throw NBX::InputException(L"collections lie too deep in one another; split them", path);
}

} // namespace ZMT::RASTER
