// "build pyramid" and "build tree", which read a file whole or by windows and write one; and the frame of all
// "build" commands. Those of streaming files have a source of their own.

#include "commands.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "landscape/commandoptions.h"
#include "landscape/outputfiles.h"
#include "landscape/reports.h"
#include "landscape/step.h"
#include "landscape/terraininput.h"
#include "landscape/vectorinput.h"
#include "program/stage.h"
#include "treefilesize.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/image/image.h>
#include <nbx/math/color.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/geometry/view/builtterrain.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace {

using ZMT::RASTER::ProjectionFile;
using ZMT::UTIL::CompressedTexture;

struct PyramidOptions {
    std::string image, out;
    std::optional<CompressedTexture::PixelFormat> format; ///< without it that of the image
    std::optional<NBX::Color> mask;                       ///< becomes transparent
    bool deflates = false;
    ImageOptions look;
};

std::string upperCase(std::string text) {
    for (char & letter : text)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
}

std::string formatNames() {
    std::string names;
    for (int i = 0; i < CompressedTexture::pixelFormats; ++i)
        names += (i ? ", " : "") +
                 std::string(CompressedTexture::formatName(static_cast<CompressedTexture::PixelFormat>(i)));
    return names;
}

CompressedTexture::PixelFormat parseFormat(const std::string & text) {
    for (int i = 0; i < CompressedTexture::pixelFormats; ++i) {
        const auto format = static_cast<CompressedTexture::PixelFormat>(i);
        if (upperCase(text) == upperCase(CompressedTexture::formatName(format))) return format;
    }
    throw UsageError("--format: no such format: " + text + "; choose one of " + formatNames());
}

/// "#RRGGBB", with or without the sign.
NBX::Color parseColor(const std::string & text) {
    const std::string digits = !text.empty() && text[0] == '#' ? text.substr(1) : text;
    if (digits.size() != 6 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw UsageError("--mask: a colour is six hexadecimal digits, such as 000000 for black: " + text);
    const unsigned long value = std::strtoul(digits.c_str(), nullptr, 16);
    const auto channel = [value](unsigned shift) {
        return static_cast<double>(value >> shift & 0xFF) / 255.0;
    };
    return NBX::Color(channel(16), channel(8), channel(0));
}

bool isTransparent(NBX::LayerSequence layers) {
    return layers == NBX::LS_LuminanceAlpha || layers == NBX::LS_RGBA;
}

/// With alpha, in the place of formats that have none.
CompressedTexture::PixelFormat withAlpha(CompressedTexture::PixelFormat format) {
    switch (format) {
    case CompressedTexture::PF_RGB8:
        return CompressedTexture::PF_RGBA8;
    case CompressedTexture::PF_Luminance8:
        return CompressedTexture::PF_LuminanceAlpha8;
    case CompressedTexture::PF_DXT1:
        return CompressedTexture::PF_DXT1A;
    default:
        return format;
    }
}

/// What was asked for, or what stores the image without loss; with alpha where pixels may be transparent.
CompressedTexture::PixelFormat formatOf(const ZMT::RASTER::TiledGeoImage & image,
                                        const PyramidOptions & options) {
    const NBX::SO<NBX::Image> pixel = image.createEmptyImage(1, 1);
    if (!options.format && options.mask) return CompressedTexture::PF_RGBA8;
    if (!options.format)
        return static_cast<CompressedTexture::PixelFormat>(CompressedTexture::pixelFormatOf(*pixel));
    const auto format = isTransparent(pixel->layerSequence()) ? withAlpha(*options.format) : *options.format;
    if (format != *options.format)
        writeError("warning: " + options.image + ": has pixels without data or with alpha, which " +
                   CompressedTexture::formatName(*options.format) + " cannot store; " +
                   CompressedTexture::formatName(format) + " is taken instead");
    return format;
}

void checkMask(const PyramidOptions & options) {
    if (!options.mask || !options.format || isTransparent(CompressedTexture::layerSequence(*options.format)))
        return;
    throw UsageError(std::string("--mask makes pixels transparent, which --format ") +
                     CompressedTexture::formatName(*options.format) + " cannot store; choose " +
                     CompressedTexture::formatName(withAlpha(*options.format)) + ", or leave --format out");
}

/// What is no image for GDAL is told by what it is.
NBX::SO<ZMT::RASTER::ImageFilePyramid> openFile(const PyramidOptions & options) {
    using ZMT::RASTER::GeoFile;
    const ZMT::RASTER::ImageColors colors = options.look.lookOf(0).colors;
    try {
        return new ZMT::RASTER::ImageFilePyramid(options.image, "", colors);
    } catch (const NBX::InputException &) {
        GeoFile::openImage(options.image, "", colors);
        const ZMT::RASTER::GeoFileFormat * format = GeoFile::formatOf(options.image);
        if (!format) throw;
        throw DataError(options.image + ": is " + format->name() +
                        " already; choose the image that it was built from");
    }
}

void buildPyramid(const PyramidOptions & options) {
    checkMask(options);
    checkImageOptions(options.look, 1);
    checkOutputs({{"IMAGE", options.image}},
                 {{"OUT", options.out}, {"the .prj beside OUT", ProjectionFile::pathFor(options.out)}});
    const NBX::SO<ZMT::RASTER::ImageFilePyramid> image = openFile(options);
    const NBX::SO<ZMT::RASTER::TiledGeoImage> finest = image->overview(0);
    const Stage stage(L"write");
    const bool written = CompressedTexture::create(
        finest, NBX::StringUtils::Utf8String2WString(options.out), formatOf(*finest, options),
        options.deflates ? CompressedTexture::C_Deflate : CompressedTexture::C_None,
        options.mask ? &*options.mask : nullptr, image->reference().wkt);
    if (written) return;
    if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
    Reports::throwFirst();
    throw DataError(options.image + ": could not be written as a pyramid");
}

void addPyramidCommand(CLI::App & app) {
    auto * command =
        app.add_subcommand("pyramid", "Writes an image in all its resolutions into one file of tiles.");
    const auto options = std::make_shared<PyramidOptions>();
    command->add_option("IMAGE", options->image, "Image in any format that GDAL reads")->required();
    command
        ->add_option("OUT", options->out,
                     "The file; its usual suffix is ztp. The coordinate system of the image stands in a file "
                     "beside it, with the suffix prj")
        ->required();
    addParsedOption(*command, "--format", options->format, parseFormat,
                    "Pixel format: " + formatNames() + "; without it that of the image");
    command->add_flag("--deflate", options->deflates, "Deflate the tiles");
    addParsedOption(*command, "--mask", options->mask, parseColor, "Colour that becomes transparent")
        ->type_name("RRGGBB");
    addColorOptions(*command, options->look);
    addOutputNote(*command);
    command->callback([options] { buildPyramid(*options); });
}

struct TreeBuildOptions {
    std::string heights, out;
    TreeOptions tree;
    unsigned seed = 1;
    TerrainReading reading;
    std::vector<std::string> breakLines;
};

void buildTreeFile(const TreeBuildOptions & options) {
    checkTreeOptions(options.tree);
    if (isBuiltTerrain(options.heights)) throw UsageError(options.heights + " is built; give the heights");
    std::vector<NamedFile> inputs = {{"HEIGHTS", options.heights}};
    for (const std::string & path : options.breakLines)
        inputs.push_back({"--breaklines", path});
    checkOutputs(inputs, {{"OUT", options.out}});
    NBX::AtomicFileWriter out(options.out);
    const auto raster = readTerrainRaster(options.heights, options.reading);
    auto grid = makeGrid(raster);
    // What cannot be stored is noticed before the long work.
    const unsigned maxVertices = options.tree.maxVertices.value_or(TreeOptions::s_maxVertices);
    checkTreeFileSize(options.heights, *grid, maxVertices);
    for (const std::string & path : options.breakLines) {
        grid = stampLines(grid, path, raster.reference);
        checkTreeFileSize(options.heights, *grid, maxVertices);
    }
    std::srand(options.seed);
    double milliseconds = 0.0;
    const auto root = buildTree(grid, options.tree, milliseconds);
    const NBX::SO<ZMT::CORE::Terrain> terrain(new ZMT::CORE::Terrain(grid.get(), root.get()));
    const NBX::SO<ZMT::CORE::BuiltTerrain> built(
        new ZMT::CORE::BuiltTerrain(terrain, raster.reference, options.seed, maxVertices));

    const Stage stage(L"write");
    Step writing("writing " + options.out);
    NBX::ObjectStreamWriter::write(*built, out.file());
    if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
    out.commit();
    writing.finish();
}

void addTreeCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "tree",
        "Writes a terrain with its tree of levels of detail, which render, view, pick and info take.");
    const auto options = std::make_shared<TreeBuildOptions>();
    command->add_option("HEIGHTS", options->heights, "Height raster")->required();
    command->add_option("OUT", options->out, "The file; its usual suffix is nbx")->required();
    addTreeOptions(*command, options->tree);
    command->add_option("--seed", options->seed, "Seed of the random choices")->capture_default_str();
    addFilesOption(*command, "--breaklines", options->breakLines,
                   "Vector file whose lines and outlines become edges of the terrain; may be repeated");
    addVoidOption(*command, options->reading.fillVoids);
    addCrsOption(*command, options->reading.crs);
    addOutputNote(*command);
    command->callback([options] { buildTreeFile(*options); });
}

} // namespace

void addBuildCommand(CLI::App & app) {
    auto * command = app.add_subcommand("build", "Builds files that are drawn while they are read.");
    command->require_subcommand(1);
    addPyramidCommand(*command);
    addTreeCommand(*command);
    addStreamingBuildCommands(*command);
    addCityBuildCommand(*command);
}
