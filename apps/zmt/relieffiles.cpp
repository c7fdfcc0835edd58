#include "relieffiles.h"

#include <algorithm>
#include <thread>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"

#include <nbx/data/file.h>
#include <zmt/raster/gdal/vector/strokewriter.h>

using ZMT::RASTER::RasterWriter;
using ZMT::RASTER::StrokeWriter;

namespace {

const char * suffixesOf(ReliefKind kind) {
    switch (kind) {
    case ReliefKind::Numbers:
        return "tif";
    case ReliefKind::Picture:
        return "tif or png";
    default:
        return "tif, png, gpkg, geojson or svg";
    }
}

bool isGeoTiff(const std::string & path) {
    const std::string suffix = NBX::File::extensionName(path);
    return suffix == "tif" || suffix == "tiff" || suffix == "TIF" || suffix == "TIFF";
}

bool canBe(ReliefKind kind, const std::string & path) {
    if (RasterWriter::isPicture(path)) return kind != ReliefKind::Numbers;
    return isGeoTiff(path) ||
           (kind == ReliefKind::Drawing && StrokeWriter::formatOf(path) != StrokeWriter::F_None);
}

} // namespace

void addReliefFiles(CLI::App & command, ReliefFiles & files, const char * outputs) {
    command.add_option("RASTER", files.raster, "Height raster in any format that GDAL reads")->required();
    command.add_option("OUT", files.out, outputs)->required();
    command.add_flag("--no-deflate", files.storesPlain, "Store a GeoTIFF as it is, which is faster");
    command.add_option(
        "--threads", files.threads,
        "Threads that deflate a GeoTIFF, without it one for each core; the numbers are the same "
        "for any");
    addOutputNote(command);
}

void checkReliefFiles(const ReliefFiles & files, ReliefKind kind, const std::vector<NamedFile> & inputs) {
    constexpr unsigned mostThreads = 1024;
    if (files.threads && (*files.threads == 0 || *files.threads > mostThreads))
        throw UsageError("--threads must be from 1 to " + std::to_string(mostThreads) + ": " +
                         std::to_string(*files.threads));
    if (!canBe(kind, files.out))
        throw UsageError(std::string("OUT: its suffix tells the format; choose a name that ends in ") +
                         suffixesOf(kind) + ": " + files.out);
    std::vector<NamedFile> outputs = {{"OUT", files.out}};
    if (RasterWriter::isPicture(files.out))
        outputs.push_back({"the world file beside OUT", RasterWriter::worldFileFor(files.out)});
    checkOutputs(inputs, outputs);
}

RasterWriter::Layout reliefLayout(const ReliefFiles & files, const ZMT::RASTER::RasterGrid & grid,
                                  const ZMT::RASTER::GeoReference & reference, RasterWriter::Pixels pixels) {
    RasterWriter::Layout layout;
    layout.grid = grid;
    layout.reference = reference;
    layout.pixels = pixels;
    layout.deflates = !files.storesPlain;
    layout.threads = files.threads.value_or(std::max(1U, std::thread::hardware_concurrency()));
    return layout;
}
