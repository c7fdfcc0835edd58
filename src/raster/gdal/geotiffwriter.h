#pragma once

#include <string>

#include "gdalsupport.h"

#include <nbx/data/atomicfilewriter.h>
#include <zmt/raster/gdal/rasterwriter.h>

namespace ZMT::RASTER {

/// See `RasterWriter`. GDAL writes into the file that stands aside, tile by tile, and keeps none.
class GeoTiffWriter : public RasterWriter {
public:
    GeoTiffWriter(const std::string & path, const Layout & layout);

    void put(unsigned first, unsigned count, float * values) override;
    void commit() override;

private:
    void create();
    void place();
    template <class Pixel, class Make>
    void putTiles(int band, unsigned first, unsigned count, const Make & make);
    [[noreturn]] void fail(const GdalErrorTrap & trap) const;

    std::string path_;
    Layout layout_;
    NBX::AtomicFileWriter file_;
    GdalDataset dataset_;
};

} // namespace ZMT::RASTER
