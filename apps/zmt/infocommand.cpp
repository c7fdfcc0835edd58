#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/histogram.h>

namespace {

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

void printInfo(const std::string & path) {
    const ZMT::RASTER::RasterFile file(path);
    const auto raster = file.read();
    const auto & grid = raster.raster->grid();
    const auto & reference = raster.reference;
    const std::string unit = reference.unitName.empty() ? "" : " " + reference.unitName;
    std::printf("file:       %s\n", path.c_str());
    std::printf("format:     %s, bands: %u\n", file.format().c_str(), file.bands());
    std::printf("size:       %u by %u cells\n", grid.cellsX, grid.cellsY);
    std::printf("cell:       %.10g by %.10g%s\n", grid.cellSizeX, grid.cellSizeY, unit.c_str());
    std::printf("system:     %s\n", reference.name.empty() ? "none" : reference.name.c_str());
    std::printf("x:          %.10g to %.10g\n", raster.raster->minX(), raster.raster->maxX());
    std::printf("y:          %.10g to %.10g\n", raster.raster->minY(), raster.raster->maxY());
    printHeights(*raster.raster);
}

} // namespace

void addInfoCommand(CLI::App & app) {
    auto * command = app.add_subcommand("info", "Tells what a raster file holds.");
    const auto path = std::make_shared<std::string>();
    command->add_option("FILE", *path, "The file")->required();
    command->callback([path] { printInfo(*path); });
}
