// "relief": what is derived from the heights alone. Slopes, curvatures and shades go from file to file by
// strips of rows, so that rasters need not fit into memory. Hachures have a source of their own.

#include "commands.h"

#include <cstdint>
#include <memory>
#include <string>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/terraininput.h"
#include "relieffiles.h"

#include <nbx/object/progress.h>
#include <zmt/raster/gdal/cellsizes.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/heightunit.h>
#include <zmt/raster/relief/curvatureproduct.h>
#include <zmt/raster/relief/reliefwalk.h>
#include <zmt/raster/relief/shadeproduct.h>
#include <zmt/raster/relief/slopeproduct.h>

namespace {

using ZMT::RASTER::QuadraticSurface;
using ZMT::RASTER::RasterWriter;

void runProduct(const ReliefFiles & files, const ZMT::RASTER::ReliefProduct & product,
                RasterWriter::Pixels pixels) {
    checkReliefFiles(files, pixels == RasterWriter::P_Numbers ? ReliefKind::Numbers : ReliefKind::Picture,
                     {{"RASTER", files.raster}});
    const auto file = openHeights(files.raster);
    // Files that are read in strips need no more than these.
    constexpr std::uint64_t blocks = 64U << 20;
    ZMT::RASTER::RasterFile::limitCache(blocks);
    const std::string unit = file->heightUnit();
    tellWhatIsTaken(file->bands(), unit, files.raster);
    const auto band = file->band();
    const auto cells = ZMT::RASTER::CellSizes::of(band->grid(), file->reference(),
                                                  ZMT::RASTER::HeightUnit::metres(unit).value_or(1.0));
    const auto out =
        RasterWriter::open(files.out, reliefLayout(files, band->grid(), file->reference(), pixels));
    NBX::Progress progress("writing " + files.out);
    if (!ZMT::RASTER::ReliefWalk::run(*band, product, cells, *out, &progress)) throw DataError("cancelled");
    out->commit();
    progress.finish();
}

void addExaggeration(CLI::App & command, double & exaggeration) {
    command.add_option("--exaggeration", exaggeration, "Factor of the heights")->capture_default_str();
}

/// An odd size that a surface can be fitted in.
void checkWindow(unsigned window) {
    constexpr unsigned most = ZMT::RASTER::QuadraticFit::s_largestWindow;
    if (window < 3 || window > most || window % 2 == 0)
        throw UsageError("--window must be an odd number from 3 to " + std::to_string(most) + ": " +
                         std::to_string(window));
}

void addWindow(CLI::App & command, unsigned & window) {
    command
        .add_option("--window", window,
                    "Cells in each direction that a number follows from: an odd number; more of them smooth")
        ->capture_default_str();
}

constexpr const char * s_numberOutputs =
    "GeoTIFF of 32-bit floats (tif), in tiles, on the cells of RASTER; -9999 where there is nothing: at the "
    "border, and beside cells without heights";
constexpr const char * s_pictureOutputs = "GeoTIFF (tif), in tiles, or PNG with a world file (png), on the "
                                          "cells of RASTER; transparent where there is "
                                          "nothing: at the border, and beside cells without heights";

struct SlopeOptions {
    ReliefFiles files;
    bool isPercent = false;
    double exaggeration = 1.0;
    unsigned window = 3;
};

void addSlope(CLI::App & app) {
    auto * command = app.add_subcommand("slope", "How steep the ground is, in degrees.");
    const auto options = std::make_shared<SlopeOptions>();
    addReliefFiles(*command, options->files, s_numberOutputs);
    command->add_flag("--percent", options->isPercent, "In percent: 100 is 45 degrees");
    addExaggeration(*command, options->exaggeration);
    addWindow(*command, options->window);
    command->callback([options] {
        using ZMT::RASTER::SlopeProduct;
        checkExaggeration(options->exaggeration);
        checkWindow(options->window);
        const auto unit = options->isPercent ? SlopeProduct::U_Percent : SlopeProduct::U_Degrees;
        runProduct(options->files, SlopeProduct(unit, options->exaggeration, options->window),
                   RasterWriter::P_Numbers);
    });
}

std::string curvatureNames() {
    std::string names;
    for (int kind = 0; kind < QuadraticSurface::curvatures; ++kind)
        names.append(kind ? ", " : "")
            .append(QuadraticSurface::curvatureName(static_cast<QuadraticSurface::Curvature>(kind)));
    return names;
}

QuadraticSurface::Curvature parseCurvature(const std::string & text) {
    for (int kind = 0; kind < QuadraticSurface::curvatures; ++kind) {
        const auto curvature = static_cast<QuadraticSurface::Curvature>(kind);
        if (text == QuadraticSurface::curvatureName(curvature)) return curvature;
    }
    throw UsageError("--kind must be one of " + curvatureNames() + ": " + text);
}

struct CurvatureOptions {
    ReliefFiles files;
    QuadraticSurface::Curvature kind = QuadraticSurface::C_CrossSection;
    double exaggeration = 1.0;
    unsigned window = 3;
};

void addCurvature(CLI::App & app) {
    auto * command = app.add_subcommand(
        "curvature", "How the ground bends, in 1 / metre: positive on ridges, negative in valleys.");
    const auto options = std::make_shared<CurvatureOptions>();
    addReliefFiles(*command, options->files, s_numberOutputs);
    addParsedOption(
        *command, "--kind", options->kind, parseCurvature,
        "Along which line: " + curvatureNames() +
            ". The first is across the slope, the next two along it, as a parabola and as a circle; "
            "plan is that of the contour, and mean has no direction")
        ->default_str(QuadraticSurface::curvatureName(options->kind));
    addExaggeration(*command, options->exaggeration);
    addWindow(*command, options->window);
    command->callback([options] {
        checkExaggeration(options->exaggeration);
        checkWindow(options->window);
        runProduct(options->files,
                   ZMT::RASTER::CurvatureProduct(options->kind, options->exaggeration, options->window),
                   RasterWriter::P_Numbers);
    });
}

struct ShadeOptions {
    ReliefFiles files;
    double azimuth = 315.0, elevation = 45.0, exaggeration = 1.0;
};

void addShade(CLI::App & app) {
    auto * command = app.add_subcommand("shade", "How bright the ground is in the light of one lamp.");
    const auto options = std::make_shared<ShadeOptions>();
    addReliefFiles(*command, options->files, s_pictureOutputs);
    command
        ->add_option("--azimuth", options->azimuth,
                     "Where the light comes from, degrees clockwise from north")
        ->capture_default_str();
    command->add_option("--elevation", options->elevation, "Degrees of the lamp above the horizon")
        ->capture_default_str();
    addExaggeration(*command, options->exaggeration);
    command->callback([options] {
        checkExaggeration(options->exaggeration);
        if (!(options->elevation >= 0.0 && options->elevation <= 90.0))
            throw UsageError("--elevation must be from 0 to 90 degrees");
        if (!(options->azimuth >= -360.0 && options->azimuth <= 360.0))
            throw UsageError("--azimuth must be from -360 to 360 degrees");
        runProduct(options->files,
                   ZMT::RASTER::ShadeProduct(options->azimuth, options->elevation, options->exaggeration),
                   RasterWriter::P_Gray);
    });
}

} // namespace

void addReliefCommand(CLI::App & app) {
    auto * command = app.add_subcommand("relief", "Derives maps of the relief from height rasters.");
    command->require_subcommand(1);
    addHachureCommand(*command);
    addSlope(*command);
    addCurvature(*command);
    addShade(*command);
    addReliefLightCommands(*command);
}
