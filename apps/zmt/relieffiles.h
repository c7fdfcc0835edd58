#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "landscape/outputfiles.h"

#include <zmt/raster/gdal/rasterwriter.h>

/// What the commands that derive something from heights have in common: a raster in, a file out.
struct ReliefFiles {
    std::string raster, out;
    bool storesPlain = false;
    std::optional<unsigned> threads; ///< without it one for each core
};

/// Adds the two files, `--no-deflate` and `--threads`. `outputs` tells what OUT may be.
void addReliefFiles(CLI::App & command, ReliefFiles & files, const char * outputs);

enum class ReliefKind {
    Numbers, ///< in GeoTIFF alone
    Picture, ///< in PNG as well
    Drawing, ///< as lines as well
};
/// Throws `UsageError` for a name that promises another format, and where OUT is one of the inputs.
void checkReliefFiles(const ReliefFiles & files, ReliefKind kind, const std::vector<NamedFile> & inputs);

ZMT::RASTER::RasterWriter::Layout reliefLayout(const ReliefFiles & files,
                                               const ZMT::RASTER::RasterGrid & grid,
                                               const ZMT::RASTER::GeoReference & reference,
                                               ZMT::RASTER::RasterWriter::Pixels pixels);
