#include "pooledrasterbands.h"

#include <nbx/object/exception.h>

#include "gdalrasterband.h"

namespace ZMT::RASTER {

namespace {

bool isSameGrid(const RasterGrid & a, const RasterGrid & b) {
    return a.cellsX == b.cellsX && a.cellsY == b.cellsY && a.minX == b.minX && a.minY == b.minY &&
           a.cellSizeX == b.cellSizeX && a.cellSizeY == b.cellSizeY;
}

NBX::SO<RasterBand> firstBandOf(const std::shared_ptr<const GdalSource> & file) {
    const GdalErrorTrap trap;
    return new GdalRasterBand(file, 0);
}

} // namespace

/// One that may be closed.
class PooledRasterBands::Band : public RasterBand {
    NBX_TEMPLATE_CLASS(Band, RasterBand)
public:
    Band(const std::shared_ptr<PooledRasterBands> & pool, unsigned number, const GdalSource & file,
         std::string wkt)
        : RasterBand(file.grid()), pool_(pool), number_(number), path_(file.path()), wkt_(std::move(wkt)) {}

    /// The file as it was when this was made. Throws where it is another one by now.
    NBX::SO<RasterBand> open() const {
        const auto file = std::make_shared<const GdalSource>(path_, GdalSource::Outside::NaN, wkt_);
        if (!isSameGrid(file->grid(), grid()))
            throw NBX::InputException(L"was changed while it was read; start again", path_);
        return firstBandOf(file);
    }

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        pool_->opened(number_, *this)->read(col, row, width, height, cells);
    }

private:
    std::shared_ptr<PooledRasterBands> pool_;
    unsigned number_;
    std::string path_, wkt_;
};

NBX::SO<RasterBand> PooledRasterBands::add(const std::shared_ptr<const GdalSource> & file,
                                           const std::string & wkt) {
    const unsigned number = files_++;
    keepOpen(number, firstBandOf(file));
    return new Band(shared_from_this(), number, *file, wkt);
}

void PooledRasterBands::keepOpen(unsigned number, const NBX::SO<RasterBand> & band) {
    if (open_.size() >= s_mostOpen) open_.removeOldest();
    open_.insert(number, band);
}

NBX::SO<RasterBand> PooledRasterBands::opened(unsigned number, const Band & wanted) {
    if (const NBX::SO<RasterBand> * known = open_.find(number)) return *known;
    const NBX::SO<RasterBand> band = wanted.open();
    keepOpen(number, band);
    return band;
}

} // namespace ZMT::RASTER
