#pragma once

#include <memory>
#include <string>

#include <nbx/container/map/lrumap.h>
#include <nbx/object/so.h>
#include <zmt/raster/rasterband.h>
#include <zmt/raster/simplerasterdata.h>

#include "gdalsupport.h"

namespace ZMT::RASTER {

/// A band brought into another coordinate system, bilinearly, window by window. Cells do not depend on the
/// windows in which they are read: they are made in blocks of a fixed size and place. Keeps some of them.
class WarpedRasterBand : public RasterBand {
    NBX_CLASS(WarpedRasterBand, RasterBand)
public:
    /// `wkt` is the system of `source`, `system` that of `grid`. Throws `NBX::InputException` where they
    /// cannot be converted; messages name `path`.
    WarpedRasterBand(const NBX::SO<RasterBand> & source, const std::string & wkt, const std::string & system,
                     const RasterGrid & grid, const std::string & path);

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height, float * cells) const override;

private:
    using Raster = SimpleRasterData<float>;
    using Block = NBX::SO<Raster>;

    struct Window {
        unsigned col, row, width, height;
    };

    /// Wide and low, since rows are read in the width of the raster.
    static constexpr unsigned s_blockWidth = 512, s_blockHeight = 128;
    /// Two rows of blocks of a raster of 65 000 columns; 64 MiB.
    static constexpr unsigned s_mostBlocks = 256;

    Block block(unsigned column, unsigned line) const;
    Block makeBlock(unsigned column, unsigned line) const;
    bool findSourceWindow(const RasterGrid & part, Window & window) const;

    NBX::SO<RasterBand> source_;
    std::string wkt_, targetWkt_, path_;
    std::unique_ptr<OGRCoordinateTransformation> toSource_;
    mutable NBX::LRUMap<std::uint64_t, Block> blocks_;
};

} // namespace ZMT::RASTER
