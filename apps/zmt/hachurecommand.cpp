// "relief hachures": the heights are read whole and brought into metres, as terrains are; what the user has
// not said follows from them.

#include "commands.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/terraininput.h"
#include "relieffiles.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/image/imagereader.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwarp.h>
#include <zmt/raster/gdal/vector/strokewriter.h>
#include <zmt/raster/relief/quadraticfit.h>
#include <zmt/raster/relief/reliefwalk.h>
#include <zmt/raster/relief/shadeproduct.h>
#include <zmt/raster/relief/slopeproduct.h>
#include <zmt/raster/relief/squarecells.h>
#include <zmt/util/hachures/hachuredefaults.h>
#include <zmt/util/hachures/hachures.h>

namespace {

using ZMT::RASTER::GeoRaster;
using ZMT::RASTER::RasterWriter;
using ZMT::RASTER::StrokeWriter;
using ZMT::UTIL::HachureDefaults;
using ZMT::UTIL::HachureDrawing;
using ZMT::UTIL::Hachures;
using Raster = ZMT::RASTER::SimpleRasterData<float>;

struct HachureOptions {
    ReliefFiles files;
    TerrainReading reading;
    bool isInk = false;
    std::optional<unsigned> width, height;
    std::optional<double> stroke, innerStroke;
    std::string brush;
    std::string reference;
    std::optional<unsigned> maxStroke;
    std::optional<double> black, white;
    std::optional<double> scaling, tolerance, minSlope, minCurvature, maxCurvature, baseHeight, interval;
    std::optional<bool> fullLength;
    bool overlapping = false;
    std::optional<unsigned> window, spacing, seedStep, minSteps, maxSteps;
};

template <class Value> void take(Value & value, const std::optional<Value> & asked) {
    value = asked.value_or(value);
}

void checkHachureSize(const std::string & path) {
    constexpr std::uint64_t most = 100'000'000;
    const ZMT::RASTER::RasterGrid grid = openHeights(path)->grid();
    if (std::uint64_t(grid.cellsX) * grid.cellsY > most)
        throw DataError(
            path + ": has more than the " + std::to_string(most) +
            " cells whose hachures fit into memory; cut out a part or reduce it with gdal_translate");
}

void checkHachures(const HachureOptions & options) {
    const auto refuse = [](bool isWrong, const char * words) {
        if (isWrong) throw UsageError(words);
    };
    constexpr unsigned mostPixels = 30000, thickest = 200, mostSteps = 1'000'000;
    constexpr double thickestStroke = 1000.0;
    const auto isBeyond = [](const auto & value, auto low, auto high) {
        return value && !(*value >= low && *value <= high);
    };
    refuse(isBeyond(options.width, 2U, mostPixels), "--width must be from 2 to 30000 pixels");
    refuse(isBeyond(options.height, 2U, mostPixels), "--height must be from 2 to 30000 pixels");
    refuse(isBeyond(options.stroke, 1.5, thickestStroke), "--stroke must be from 1.5 to 1000 pixels");
    refuse(options.innerStroke && !(*options.innerStroke > 0.0), "--inner-stroke must be above 0");
    refuse(isBeyond(options.maxStroke, 5U, thickest), "--max-stroke must be from 5 to 200 pixels");
    refuse(!options.brush.empty() && (options.stroke || options.innerStroke),
           "--brush takes the place of --stroke and --inner-stroke; leave them out");
    refuse(!options.reference.empty() && (options.stroke || options.innerStroke || !options.brush.empty()),
           "--reference has brushes of its own; leave --stroke, --inner-stroke and --brush out");
    refuse(options.reference.empty() && (options.maxStroke || options.black || options.white),
           "--max-stroke, --black and --white are for --reference");
    refuse(options.scaling && !(*options.scaling > 0.0), "--scaling must be above 0");
    refuse(isBeyond(options.window, 2U, ZMT::RASTER::QuadraticFit::s_largestWindow),
           "--window must be from 2 to 255 cells");
    refuse(options.interval && !(*options.interval > 0.0), "--interval must be above 0");
    refuse(isBeyond(options.spacing, 1U, thickest), "--spacing must be from 1 to 200");
    refuse(options.seedStep && *options.seedStep == 0, "--seed-step must be at least 1");
    refuse(isBeyond(options.maxSteps, 1U, mostSteps), "--max-steps must be from 1 to 1000000");
}

/// What was asked for in the place of what follows from the raster.
HachureDefaults settingsFor(const HachureOptions & options, const ZMT::RASTER::RasterData & raster) {
    HachureDefaults result = HachureDefaults::of(raster);
    // A picture of one given side keeps its shape.
    const double shape = (result.height - 1.0) / (result.width - 1.0);
    const auto other = [](double side) {
        return static_cast<unsigned>(std::clamp(std::lround(side), 1L, 29999L)) + 1;
    };
    if (options.width && !options.height) result.height = other((*options.width - 1.0) * shape);
    if (options.height && !options.width) result.width = other((*options.height - 1.0) / shape);
    take(result.width, options.width);
    take(result.height, options.height);
    take(result.strokeSize, options.stroke);
    if (options.stroke) result.innerStrokeSize = std::max(0.5, *options.stroke - 2.0);
    take(result.innerStrokeSize, options.innerStroke);
    take(result.maxStrokeSize, options.maxStroke);
    ZMT::UTIL::HachureSettings & settings = result.settings;
    take(settings.scaling, options.scaling);
    take(settings.windowSize, options.window);
    take(settings.tolerance, options.tolerance);
    take(settings.minSlope, options.minSlope);
    take(settings.minCurvature, options.minCurvature);
    take(settings.maxCurvature, options.maxCurvature);
    take(settings.baseHeight, options.baseHeight);
    take(settings.heightInterval, options.interval);
    take(settings.fullLength, options.fullLength);
    settings.overlapping = options.overlapping;
    if (!options.reference.empty()) settings.spacingFactor = 1; // of the thickest brush
    take(settings.spacingFactor, options.spacing);
    take(settings.seedStep, options.seedStep);
    take(settings.minNSteps, options.minSteps);
    take(settings.maxNSteps, options.maxSteps);
    if (result.innerStrokeSize > result.strokeSize)
        throw UsageError("--inner-stroke must not be above --stroke");
    if (settings.minNSteps >= settings.maxNSteps) throw UsageError("--min-steps must be below --max-steps");
    return result;
}

// --- the brush and what its size follows

/// Dark pixels of a picture draw; what is transparent does not.
NBX::SO<NBX::Image> readBrush(const std::string & path) {
    constexpr std::uint64_t largestFile = 1U << 24;
    constexpr int largest = 1000;
    const std::vector<std::uint8_t> bytes = NBX::File::contents(path, largestFile);
    NBX::MemoryDataResource data(bytes.data(), static_cast<unsigned>(bytes.size()));
    const auto header = NBX::ImageReader::readHeader(&data);
    const bool fits = header && int(header->width) <= largest && int(header->height) <= largest;
    const NBX::SO<NBX::Image> picture = fits ? NBX::ImageReader::read(&data, NBX::ID("")) : nullptr;
    if (!picture)
        throw DataError(path + ": is no brush; give a picture of at most " + std::to_string(largest) +
                        " by " + std::to_string(largest) + " pixels, such as a PNG, dark where it draws");
    NBX::SO<NBX::Image> brush(new NBX::MemoryImage(picture->width(), picture->height(), NBX::LS_Luminance));
    for (int y = 0; y < picture->height(); ++y)
        for (int x = 0; x < picture->width(); ++x) {
            NBX::Color color = picture->getColor(x, y);
            for (int channel = 0; channel < 3; ++channel)
                color[channel] = 1.0F - (1.0F - color[channel]) * color[3];
            brush->setColor(x, y, color);
        }
    return brush;
}

/// Widths that follow the drawn heights themselves, or another raster.
struct Reference {
    NBX::SO<Raster> values;
    double black, white;
};

Reference slopeOf(const Raster & heights, const HachureDefaults & defaults) {
    constexpr double thickest = 3.5; // times as steep as usual
    return {ZMT::RASTER::ReliefWalk::over(heights, ZMT::RASTER::SlopeProduct()),
            std::min(90.0, std::max(1e-6, thickest * defaults.usualSlope)), 0.0};
}

/// The thickest strokes would leave no paper between them, so that the darkest shades are drawn by the next
/// ones.
Reference shadeOf(const Raster & heights) {
    constexpr double black = -40.0, white = 255.0;
    return {ZMT::RASTER::ReliefWalk::over(heights, ZMT::RASTER::ShadeProduct()), black, white};
}

/// Brought onto the cells of the heights, whose corners are then its own.
Reference readReference(const std::string & path, const GeoRaster & heights) {
    NBX::Progress progress("reading " + path);
    GeoRaster read = ZMT::RASTER::RasterFile(path).read(0, &progress);
    if (!read.raster) throw DataError("cancelled");
    progress.finish();
    if (!heights.reference.wkt.empty()) read = ZMT::RASTER::RasterWarp::toSystem(read, heights.reference.wkt);
    const ZMT::RASTER::RasterGrid & grid = heights.raster->grid();
    NBX::SO<Raster> values(new Raster(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                      grid.cellSizeY, true, std::numeric_limits<float>::quiet_NaN()));
    read.raster->resampleRasterData(values.get());
    const double low = values->minValue(), high = values->maxValue();
    if (!(low <= high))
        throw DataError(path + ": has no number on the heights; give a raster of the same place");
    return {values, low, high > low ? high : low + 1.0};
}

Reference referenceFor(const HachureOptions & options, const GeoRaster & heights,
                       const HachureDefaults & defaults) {
    Reference result;
    if (options.reference == "slope")
        result = slopeOf(*heights.raster, defaults);
    else if (options.reference == "shade")
        result = shadeOf(*heights.raster);
    else
        result = readReference(options.reference, heights);
    take(result.black, options.black);
    take(result.white, options.white);
    if (result.black == result.white) throw UsageError("--black and --white must differ");
    return result;
}

HachureDrawing draw(const HachureOptions & options, const GeoRaster & heights) {
    const Raster & raster = *heights.raster;
    const HachureDefaults how = settingsFor(options, raster);
    if (!options.reference.empty()) {
        const Reference reference = referenceFor(options, heights, how);
        return Hachures::drawDependent(&raster, how.width, how.height, reference.values.get(),
                                       how.maxStrokeSize, reference.black, reference.white, how.settings);
    }
    if (!options.brush.empty())
        return Hachures::drawWithBrush(&raster, how.width, how.height, readBrush(options.brush),
                                       how.settings);
    return Hachures::draw(&raster, how.width, how.height, how.strokeSize, how.innerStrokeSize, how.settings);
}

// --- files

/// Pixels on cells without heights are transparent.
void writePixels(const HachureOptions & options, const ZMT::RASTER::GeoImage & image,
                 const GeoRaster & heights) {
    const auto width = static_cast<unsigned>(image.width()), height = static_cast<unsigned>(image.height());
    const auto out = RasterWriter::open(
        options.files.out,
        reliefLayout(options.files,
                     {width, height, image.minX(), image.minY(), image.pixelSizeX(), image.pixelSizeY()},
                     heights.reference, options.isInk ? RasterWriter::P_Ink : RasterWriter::P_Gray));
    constexpr unsigned rows = ZMT::RASTER::ReliefWalk::s_rows;
    NBX::Progress progress("writing " + options.files.out, height);
    std::vector<float> values(std::size_t(rows) * width);
    for (unsigned first = 0; first < height; first += rows) {
        if (!progress.update(first)) throw DataError("cancelled");
        const unsigned count = std::min(rows, height - first);
        for (unsigned line = 0; line < count; ++line) {
            const unsigned row = height - 1 - first - line;
            const unsigned char * pixels = image.lineComponentsU8(static_cast<int>(row));
            const double y = std::min(image.maxY(), image.minY() + row * image.pixelSizeY());
            for (unsigned x = 0; x < width; ++x) {
                const double column = std::min(image.maxX(), image.minX() + x * image.pixelSizeX());
                const bool isEmpty = pixels[x] == 255 && heights.raster->isUndef(column, y);
                values[std::size_t(line) * width + x] =
                    isEmpty ? std::numeric_limits<float>::quiet_NaN() : float(pixels[x]);
            }
        }
        out->put(first, count, values.data());
    }
    out->commit();
    progress.finish();
}

void writeLines(const HachureOptions & options, const HachureDrawing & drawing, const GeoRaster & heights) {
    const ZMT::RASTER::GeoImage & image = *drawing.image;
    NBX::Progress progress("writing " + options.files.out);
    const StrokeWriter::Place place{{image.minX(), image.minY(), image.maxX(), image.maxY()},
                                    static_cast<unsigned>(image.width()),
                                    static_cast<unsigned>(image.height()),
                                    heights.reference};
    if (!StrokeWriter::write(options.files.out, drawing.strokes, place, &progress))
        throw DataError("cancelled");
    progress.finish();
}

bool isFile(const std::string & reference) {
    return !reference.empty() && reference != "slope" && reference != "shade";
}

void drawHachures(const HachureOptions & options) {
    checkHachures(options);
    checkReliefFiles(options.files, ReliefKind::Drawing,
                     {{"RASTER", options.files.raster},
                      {"--brush", options.brush},
                      {"--reference", isFile(options.reference) ? options.reference : ""}});
    // Where nothing can be written, that is noticed before the long work.
    const NBX::AtomicFileWriter room(options.files.out);
    checkHachureSize(options.files.raster);
    GeoRaster heights = readTerrainRaster(options.files.raster, options.reading);
    heights.raster = ZMT::RASTER::SquareCells::of(heights.raster);
    const HachureDrawing drawing = draw(options, heights);
    if (!drawing.image) throw DataError("cancelled");
    if (StrokeWriter::formatOf(options.files.out) != StrokeWriter::F_None)
        writeLines(options, drawing, heights);
    else
        writePixels(options, *drawing.image, heights);
}

void addShapeOptions(CLI::App & command, HachureOptions & options) {
    command.add_option(
        "--width", options.width,
        "Pixels of the picture; without one of the two its sides are as long as on the ground, and "
        "without both about 1600, or a pixel for each cell");
    command.add_option("--height", options.height, "The same in the other direction");
    command.add_option("--stroke", options.stroke,
                       "Outer diameter of the round brush in pixels, without it 3");
    command.add_option("--inner-stroke", options.innerStroke,
                       "Diameter up to which it is black; without it 2 less than the outer one");
    command.add_option("--brush", options.brush, "Picture that is the brush, dark where it draws");
    command
        .add_option(
            "--reference", options.reference,
            "Raster that strokes are thick by; or slope, so that steep ground is dark, or shade, so that "
            "what lies in the shade of a lamp in the north-west is")
        ->type_name("FILE|slope|shade");
    command.add_option("--max-stroke", options.maxStroke, "Diameter of the thickest brush, without it 6");
    command.add_option("--black", options.black,
                       "Number of the reference for the thickest strokes, without it its least one");
    command.add_option("--white", options.white, "The same for the thinnest, without it its greatest one");
    command.add_flag("--ink", options.isInk, "A transparent picture with black strokes, to lie over others");
}

void addRunOptions(CLI::App & command, HachureOptions & options) {
    command.add_option("--scaling", options.scaling, "Factor of the heights, without it 1");
    command.add_option(
        "--window", options.window,
        "Cells in each direction that a slope follows from, without it 5; even ones grow by 1");
    command.add_option("--tolerance", options.tolerance,
                       "Degrees up to which a slope counts as none, without it 0");
    command.add_option(
        "--min-slope", options.minSlope,
        "Degrees above which there are strokes; without it 0.4 of the slope that half of the raster "
        "is steeper than");
    command.add_option(
        "--min-curvature", options.minCurvature,
        "Strokes lie where the curvature across the slope, in 1 / metre, is above: above 0 on ridges "
        "alone");
    command.add_option("--max-curvature", options.maxCurvature, "The same, where it is below");
    command.add_option("--base-height", options.baseHeight,
                       "Scaled height of one of the contours, without it 0");
    command.add_option(
        "--interval", options.interval,
        "Scaled metres from contour to contour, between which the rows of strokes lie; without it "
        "about 30 pixels of the usual slope");
    command.add_flag_function(
        "--full-length,!--no-full-length", [&options](std::int64_t count) { options.fullLength = count > 0; },
        "Whether strokes are drawn to their ends, as they are without it");
    command.add_flag("--overlapping", options.overlapping, "Let strokes cover each other");
    command.add_option("--spacing", options.spacing,
                       "Diameters of the brush that strokes keep free around them, without it 2; with "
                       "--reference those of the thickest one, without it 1");
    command.add_option("--seed-step", options.seedStep,
                       "Every so many cells begins a stroke, of all by their height, without it 1");
    command.add_option("--min-steps", options.minSteps, "Pixels of the shortest stroke, without it 5");
    command.add_option("--max-steps", options.maxSteps, "Pixels of the longest, without it 200");
}

} // namespace

void addHachureCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "hachures", "Strokes down the slopes, in rows between contours, as a picture or as lines.");
    const auto options = std::make_shared<HachureOptions>();
    addReliefFiles(
        *command, options->files,
        "Picture: GeoTIFF (tif) or PNG with a world file (png); or the lines of the strokes with their "
        "widths: gpkg, geojson or svg. It lies in the system of RASTER, or in one in metres where that "
        "is in degrees or feet");
    addShapeOptions(*command, *options);
    addRunOptions(*command, *options);
    addVoidOption(*command, options->reading.fillVoids);
    addCrsOption(*command, options->reading.crs);
    command->callback([options] { drawHachures(*options); });
}
