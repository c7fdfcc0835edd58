#include "commands.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include "landscape/errors.h"
#include "landscape/streamedfiles.h"
#include "landscape/terraininput.h"

#include <nbx/object/progress.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/heightunit.h>
#include <zmt/raster/histogram.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

namespace {

using ZMT::RASTER::GeoFile;

void printHeights(const ZMT::RASTER::RasterData & raster) {
    const ZMT::RASTER::Histogram histogram(&raster);
    const double cells =
        static_cast<double>(histogram.numberOfDefinedValues() + histogram.numberOfUndefinedValues());
    if (histogram.numberOfDefinedValues() > 0)
        std::printf("heights:    %.10g to %.10g, average %.10g\n", histogram.minimum(), histogram.maximum(),
                    histogram.average());
    else
        std::printf("heights:    none\n");
    std::printf("undefined:  %.2f %%\n",
                100.0 * static_cast<double>(histogram.numberOfUndefinedValues()) / cells);
}

void printSystem(const ZMT::RASTER::GeoReference & reference) {
    std::printf("system:     %s\n", ZMT::RASTER::CoordinateSystem::describe(reference).c_str());
}

/// Name and stored size of each level.
void printLevels(const ZMT::UTIL::TexturePyramid & pyramid) {
    for (unsigned i = 0; i < pyramid.overviews(); ++i) {
        const auto level = pyramid.level(i);
        const auto & header = level->header();
        std::printf("level %-5u %u by %u pixels, %" PRIu64 " of %" PRIu64 " tiles of %u by %u, %" PRIu64
                    " bytes\n",
                    i, header.pixelsX, header.pixelsY, level->storedTiles(),
                    static_cast<std::uint64_t>(header.tilesX) * header.tilesY, header.tileWidth,
                    header.tileHeight, level->storedBytes());
    }
}

void printExtent(const ZMT::RASTER::GeoExtent & extent) {
    std::printf("x:          %.10g to %.10g\n", extent.minX, extent.maxX);
    std::printf("y:          %.10g to %.10g\n", extent.minY, extent.maxY);
}

void printPyramid(const std::string & path, const ZMT::UTIL::TexturePyramid & pyramid) {
    const auto finest = pyramid.level(0);
    const ZMT::RASTER::GeoReference reference = ZMT::RASTER::ProjectionFile::read(path);
    std::printf("file:       %s\n", path.c_str());
    std::printf("format:     texture pyramid, %s%s\n",
                ZMT::UTIL::CompressedTexture::formatName(finest->pixelFormat()),
                finest->header().compression == ZMT::UTIL::CompressedTexture::C_Deflate ? ", deflated" : "");
    std::printf("pixel:      %.10g by %.10g\n", finest->pixelSizeX(), finest->pixelSizeY());
    printSystem(reference);
    printExtent({pyramid.minX(), pyramid.minY(), pyramid.maxX(), pyramid.maxY()});
    printLevels(pyramid);
}

unsigned countPatches(const ZMT::CORE::GeometryPatch & patch) {
    unsigned count = 1;
    for (unsigned i = 0; i < patch.children(); ++i)
        count += countPatches(*patch.child(i));
    return count;
}

void printPlace(const ZMT::RASTER::RasterData & raster, const ZMT::RASTER::GeoReference & reference) {
    const auto & grid = raster.grid();
    const std::string unit = reference.unitName.empty() ? "" : " " + reference.unitName;
    std::printf("size:       %u by %u cells\n", grid.cellsX, grid.cellsY);
    std::printf("cell:       %.10g by %.10g%s\n", grid.cellSizeX, grid.cellSizeY, unit.c_str());
    printSystem(reference);
    printExtent({raster.minX(), raster.minY(), raster.maxX(), raster.maxY()});
    printHeights(raster);
}

void printBuilt(const std::string & path) {
    const auto built = readBuiltTerrain(path);
    std::printf("file:       %s\n", path.c_str());
    std::printf("format:     built terrain, %u patches of at most %u vertices, seed %u\n",
                countPatches(*built->terrain()->root()), built->maxVertices(), built->seed());
    printPlace(*built->grid()->rasterData(), built->reference());
}

void printStreamedTerrain(const std::string & locator) {
    using ZMT::CORE::GRID::AsyncGridTerrain;
    const StreamedTerrain opened = openStreamedTerrain(locator);
    const AsyncGridTerrain & terrain = *opened.terrain;
    const auto lightMap = opened.lightMapKind;
    const std::uint64_t side = (1U << terrain.gridLevel()) + 1;
    const auto cellSize = terrain.getCellSize();
    const NBX::Bounds box = terrain.geoBoundingBox(), cells = terrain.gridBoundingBox();
    const std::string unit = opened.reference.unitName.empty() ? "" : " " + opened.reference.unitName;
    std::printf("file:       %s\n", shownName(locator).c_str());
    std::printf("format:     streaming terrain, %" PRIu64 " bytes, tiles of %" PRIu64 " by %" PRIu64
                " heights in %d levels\n",
                terrain.file()->size(), side, side, terrain.rootTile()->level() + 1);
    std::printf("light:      %s\n", lightMap == AsyncGridTerrain::LM_None    ? "none"
                                    : lightMap == AsyncGridTerrain::LM_Light ? "baked"
                                                                             : "normals");
    std::printf("size:       %.0f by %.0f cells\n", cells.getURB().x, cells.getURB().y);
    std::printf("cell:       %.10g by %.10g%s\n", cellSize.first, cellSize.second, unit.c_str());
    printSystem(opened.reference);
    printExtent({box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z});
    std::printf("heights:    %.10g to %.10g\n", terrain.lowestPoint().y, terrain.highestPoint().y);
}

void printStreamedTexture(const std::string & locator) {
    const NBX::Bounds box = openStreamedTexture(locator, 0).texture->boundingBox();
    std::printf("file:       %s\n", shownName(locator).c_str());
    std::printf("format:     streaming texture\n");
    printExtent({box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z});
}

/// Nothing for metres, which everything else becomes when a terrain is made.
void printHeightUnit(const std::string & name) {
    const auto metres = ZMT::RASTER::HeightUnit::metres(name);
    if (!metres)
        std::printf("unit:       %s, which is not known; terrains take it for metres\n", name.c_str());
    else if (*metres != 1.0)
        std::printf("unit:       %s, %.10g metres; heights of terrains are metres\n", name.c_str(), *metres);
}

void printRaster(const std::string & path) {
    const auto file = GeoFile::openHeights(path);
    NBX::Progress reading("reading " + path);
    const auto raster = file->read(0, &reading);
    if (!raster.raster) throw DataError("cancelled");
    reading.finish();
    std::printf("file:       %s\n", path.c_str());
    std::printf("format:     %s, bands: %u\n", file->format().c_str(), file->bands());
    printPlace(*raster.raster, raster.reference);
    printHeightUnit(file->heightUnit());
}

void printVectors(const std::string & path) {
    const auto file = GeoFile::openVectors(path);
    std::printf("file:       %s\n", path.c_str());
    std::printf("format:     %s, lines or areas, layers: %u\n", file->format().c_str(), file->layers());
    printSystem(file->reference());
}

void printInfo(const std::string & path) {
    if (isStreamedTerrain(path)) return printStreamedTerrain(path);
    if (isStreamingTextureFile(path)) return printStreamedTexture(path);
    if (isBuiltTerrain(path)) return printBuilt(path);
    if (GeoFile::formatOf(path)) {
        const auto image = GeoFile::openImage(path);
        if (const auto * pyramid = dynamic_cast<const ZMT::UTIL::TexturePyramid *>(image.get()))
            return printPyramid(path, *pyramid);
    }
    if (GeoFile::kindOf(path) == ZMT::RASTER::GeoFileKind::Vectors) return printVectors(path);
    printRaster(path);
}

} // namespace

void addInfoCommand(CLI::App & app) {
    auto * command = app.add_subcommand("info", "Tells what a raster, a built or streaming terrain, a "
                                                "texture pyramid, a streaming texture or a file of "
                                                "lines and areas holds.");
    const auto path = std::make_shared<std::string>();
    command->add_option("FILE", *path, "The file; of a streaming terrain also its URL")->required();
    command->callback([path] { printInfo(*path); });
}
