#include "geotiffwriter.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include <cpl_conv.h>
#include <cpl_string.h>

#include "graypixels.h"

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <zmt/raster/relief/reliefproduct.h>

namespace ZMT::RASTER {

GeoTiffWriter::GeoTiffWriter(const std::string & path, const Layout & layout)
    : path_(path), layout_(layout), file_(path) {
    create();
    place();
}

void GeoTiffWriter::fail(const GdalErrorTrap & trap) const {
    throw NBX::IOException(L"cannot be written, check the room on its disk", path_, 0, trap.text());
}

void GeoTiffWriter::create() {
    GdalErrorTrap trap;
    const bool isNumbers = layout_.pixels == P_Numbers;
    CPLStringList options;
    for (const char * option : {"TILED=YES", "BIGTIFF=IF_SAFER", "INTERLEAVE=BAND"})
        options.AddString(option);
    for (const char * side : {"BLOCKXSIZE", "BLOCKYSIZE"})
        options.SetNameValue(side, std::to_string(s_rows).c_str());
    if (!isNumbers) options.AddString("ALPHA=NON-PREMULTIPLIED");
    if (layout_.deflates) {
        // With differences of neighbours the fastest level makes smaller files than others without.
        options.AddString("COMPRESS=DEFLATE");
        options.AddString("ZLEVEL=1");
        options.AddString(isNumbers ? "PREDICTOR=3" : "PREDICTOR=2");
        options.SetNameValue("NUM_THREADS", std::to_string(std::max(1U, layout_.threads)).c_str());
    }
    // The file has a name in the process's own folder alone, where GDAL finds no room.
    const CPLConfigOptionSetter room("CHECK_DISK_FREE_SPACE", "FALSE", false);
    GDALDriver * driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    dataset_.reset(driver->Create(file_.file().nameInProcess().c_str(), static_cast<int>(layout_.grid.cellsX),
                                  static_cast<int>(layout_.grid.cellsY), isNumbers ? 1 : 2,
                                  isNumbers ? GDT_Float32 : GDT_Byte, options.List()));
    if (!dataset_) fail(trap);
    if (isNumbers) dataset_->GetRasterBand(1)->SetNoDataValue(ReliefProduct::s_noData);
}

void GeoTiffWriter::place() {
    if (!layout_.reference.isGeoreferenced) return;
    GdalErrorTrap trap;
    const RasterGrid & grid = layout_.grid;
    double transform[6] = {grid.minX - 0.5 * grid.cellSizeX,
                           grid.cellSizeX,
                           0.0,
                           grid.minY + (grid.cellsY - 0.5) * grid.cellSizeY,
                           0.0,
                           -grid.cellSizeY};
    dataset_->SetGeoTransform(transform);
    if (layout_.reference.wkt.empty()) return;
    const OGRSpatialReference system = spatialReference(layout_.reference.wkt);
    dataset_->SetSpatialRef(&system);
}

/// `make` gives the pixel for a column and a row of those that are put.
template <class Pixel, class Make>
void GeoTiffWriter::putTiles(int band, unsigned first, unsigned count, const Make & make) {
    std::vector<Pixel> tile(std::size_t(s_rows) * s_rows);
    const unsigned width = layout_.grid.cellsX;
    for (unsigned left = 0; left < width; left += s_rows) {
        const unsigned columns = std::min(s_rows, width - left);
        for (unsigned line = 0; line < count; ++line)
            for (unsigned x = 0; x < columns; ++x)
                tile[std::size_t(line) * s_rows + x] = make(std::size_t(line) * width + left + x);
        const CPLErr result = dataset_->GetRasterBand(band)->WriteBlock(
            static_cast<int>(left / s_rows), static_cast<int>(first / s_rows), tile.data());
        if (result != CE_None) return;
    }
}

void GeoTiffWriter::put(unsigned first, unsigned count, float * values) {
    const bool isStrip = first % s_rows == 0 && count <= s_rows;
    NBX_CHECK(isStrip, L"rows are put in strips of a tile");
    if (!isStrip) return;
    GdalErrorTrap trap;
    if (layout_.pixels == P_Numbers) {
        putTiles<float>(1, first, count, [values](std::size_t i) {
            return values[i] == values[i] ? values[i] : ReliefProduct::s_noData;
        });
    } else {
        const Pixels kind = layout_.pixels;
        putTiles<std::uint8_t>(1, first, count,
                               [=](std::size_t i) { return GrayPixel(values[i], kind).gray; });
        putTiles<std::uint8_t>(2, first, count,
                               [=](std::size_t i) { return GrayPixel(values[i], kind).alpha; });
    }
    if (trap.failed()) fail(trap);
}

void GeoTiffWriter::commit() {
    GdalErrorTrap trap;
    dataset_.reset();
    if (trap.failed()) fail(trap);
    file_.commit();
}

} // namespace ZMT::RASTER
