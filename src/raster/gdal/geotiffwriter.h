#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "gdalsupport.h"

#include <nbx/data/atomicfilewriter.h>
#include <zmt/raster/gdal/rasterwriter.h>

namespace ZMT::RASTER {

/// See `RasterWriter`. GDAL writes into the file that stands aside.
class GeoTiffWriter : public RasterWriter {
public:
    GeoTiffWriter(const std::string & path, const Layout & layout);

    void put(unsigned first, unsigned count, float * values) override;
    void commit() override;

private:
    void create();
    void place();
    [[noreturn]] void fail(const GdalErrorTrap & trap) const;

    std::string path_;
    Layout layout_;
    NBX::AtomicFileWriter file_;
    GdalDataset dataset_;
    std::vector<std::uint8_t> pixels_; ///< of a picture's rows
};

} // namespace ZMT::RASTER
