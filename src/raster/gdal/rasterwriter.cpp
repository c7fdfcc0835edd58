#include <zmt/raster/gdal/rasterwriter.h>

#include <algorithm>
#include <cctype>

#include <nbx/data/file.h>

#include "geotiffwriter.h"
#include "pngrasterwriter.h"

namespace ZMT::RASTER {

bool RasterWriter::isPicture(const std::string & path) {
    std::string suffix = NBX::File::extensionName(path);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return suffix == "png";
}

std::string RasterWriter::worldFileFor(const std::string & path) {
    return NBX::File::replaceExtensionName(NBX::AtomicFileWriter::goal(path), "pgw");
}

std::unique_ptr<RasterWriter> RasterWriter::open(const std::string & path, const Layout & layout) {
    if (isPicture(path)) return std::make_unique<PngRasterWriter>(path, layout);
    return std::make_unique<GeoTiffWriter>(path, layout);
}

} // namespace ZMT::RASTER
