#include "geotiffwriter.h"

#include <algorithm>

#include <cpl_string.h>

#include "graypixels.h"

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
    for (const char * option : {"TILED=YES", "BIGTIFF=IF_SAFER", "INTERLEAVE=PIXEL"})
        options.AddString(option);
    if (!isNumbers) options.AddString("ALPHA=NON-PREMULTIPLIED");
    if (layout_.deflates) {
        // Differences of neighbours deflate faster, and to less.
        options.AddString("COMPRESS=DEFLATE");
        options.AddString(isNumbers ? "PREDICTOR=3" : "PREDICTOR=2");
        options.SetNameValue("NUM_THREADS", std::to_string(std::max(1U, layout_.threads)).c_str());
    }
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

void GeoTiffWriter::put(unsigned first, unsigned count, float * values) {
    GdalErrorTrap trap;
    const auto width = static_cast<int>(layout_.grid.cellsX), y = static_cast<int>(first),
               lines = static_cast<int>(count);
    const std::size_t cells = std::size_t(layout_.grid.cellsX) * count;
    CPLErr result;
    if (layout_.pixels == P_Numbers) {
        std::replace_if(
            values, values + cells, [](float value) { return value != value; }, ReliefProduct::s_noData);
        result = dataset_->GetRasterBand(1)->RasterIO(GF_Write, 0, y, width, lines, values, width, lines,
                                                      GDT_Float32, 0, 0, nullptr);
    } else {
        pixels_.resize(2 * cells);
        makeGrayPixels(values, cells, layout_.pixels, pixels_.data());
        result = dataset_->RasterIO(GF_Write, 0, y, width, lines, pixels_.data(), width, lines, GDT_Byte, 2,
                                    nullptr, 2, 2 * GSpacing(width), 1, nullptr);
    }
    // What is complete need not wait in memory.
    if (result == CE_None) dataset_->FlushCache(false);
    if (result != CE_None || trap.failed()) fail(trap);
}

void GeoTiffWriter::commit() {
    GdalErrorTrap trap;
    dataset_.reset();
    if (trap.failed()) fail(trap);
    file_.commit();
}

} // namespace ZMT::RASTER
