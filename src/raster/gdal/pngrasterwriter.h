#pragma once

#include <optional>
#include <string>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/raster/gdal/rasterwriter.h>

namespace ZMT::RASTER {

/// See `RasterWriter`.
class PngRasterWriter : public RasterWriter {
public:
    PngRasterWriter(const std::string & path, const Layout & layout);

    void put(unsigned first, unsigned count, float * values) override;
    void commit() override;

private:
    std::string worldFile() const;

    std::string path_;
    Layout layout_;
    NBX::AtomicFileWriter file_;
    std::optional<NBX::AtomicFileWriter> world_; ///< none for what has no place
    NBX::SO<NBX::Image> picture_;
};

} // namespace ZMT::RASTER
