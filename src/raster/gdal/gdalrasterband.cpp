#include "gdalrasterband.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <nbx/object/exception.h>

// Pixels are compared in registers that hold several.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("O3")
#endif

namespace ZMT::RASTER {

namespace {

/// Cells that are converted at once.
constexpr std::uint64_t cellsAtOnce = 1 << 21;
/// Numbers beyond stand for the limits of a type.
constexpr double s_limit = 1e30;

/// True where every number of the type is a `float`.
bool fitsFloat(GDALDataType type) {
    return type == GDT_Byte || type == GDT_Int16 || type == GDT_UInt16 || type == GDT_Float32;
}

} // namespace

GdalNoData::GdalNoData(GDALRasterBand & band) : isFloat_(band.GetRasterDataType() == GDT_Float32) {
    int has = FALSE;
    if (band.GetRasterDataType() == GDT_Int64) {
        value_ = static_cast<double>(band.GetNoDataValueAsInt64(&has));
    } else if (band.GetRasterDataType() == GDT_UInt64) {
        value_ = static_cast<double>(band.GetNoDataValueAsUInt64(&has));
    } else {
        value_ = band.GetNoDataValue(&has);
    }
    exists_ = has && std::isfinite(value_);
}

bool GdalNoData::is(double value) const {
    if (!exists_) return false;
    if (!isFloat_) return value == value_;
    // The limits of the type are often written with few digits.
    if (std::abs(value_) > s_limit) return std::abs(value / value_ - 1.0) < 1e-4;
    return static_cast<float>(value) == static_cast<float>(value_);
}

bool GdalNoData::isOneFloat() const {
    return !exists_ || (std::abs(value_) <= s_limit && (isFloat_ || double(asFloat()) == value_));
}

float GdalNoData::asFloat() const {
    return exists_ ? static_cast<float>(value_) : std::numeric_limits<float>::quiet_NaN();
}

GdalRasterBand::GdalRasterBand(std::shared_ptr<const GdalSource> source, unsigned index)
    : RasterBand(source->grid()), source_(std::move(source)),
      band_(*source_->dataset().GetRasterBand(static_cast<int>(index) + 1)), noData_(band_) {
    const int flags = band_.GetMaskFlags();
    hasMask_ = !(flags & (GMF_ALL_VALID | GMF_NODATA));
    scale_ = band_.GetScale();
    offset_ = band_.GetOffset();
    isPlain_ = fitsFloat(band_.GetRasterDataType()) && !hasMask_ && scale_ == 1.0 && offset_ == 0.0 &&
               noData_.isOneFloat();
}

unsigned GdalRasterBand::rowsAtOnce(unsigned width) {
    return static_cast<unsigned>(std::max<std::uint64_t>(1, cellsAtOnce / std::max(1u, width)));
}

void GdalRasterBand::readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                               float * cells) const {
    const unsigned step = rowsAtOnce(width);
    for (unsigned done = 0; done < height; done += step) {
        const unsigned rows = std::min(step, height - done);
        float * target = cells + static_cast<std::size_t>(done) * width;
        if (isPlain_)
            readFloats(col, row + done, width, rows, target);
        else if (fitsFloat(band_.GetRasterDataType()))
            readRows<float>(col, row + done, width, rows, target);
        else
            readRows<double>(col, row + done, width, rows, target);
    }
}

/// The most frequent files, whose numbers are heights as they stand.
void GdalRasterBand::readFloats(unsigned col, unsigned row, unsigned width, unsigned rows,
                                float * cells) const {
    readPixels(band_, col, row, width, rows, cells, GDT_Float32);
    constexpr float undefined = std::numeric_limits<float>::quiet_NaN();
    const float noData = noData_.asFloat();
    const std::size_t count = static_cast<std::size_t>(width) * rows;
    for (std::size_t i = 0; i < count; ++i) {
        const float value = cells[i];
        const bool isHeight = std::abs(value) <= std::numeric_limits<float>::max() && value != noData;
        cells[i] = isHeight ? value : undefined;
    }
}

template <class T>
void GdalRasterBand::readRows(unsigned col, unsigned row, unsigned width, unsigned rows,
                              float * cells) const {
    const std::size_t count = static_cast<std::size_t>(width) * rows;
    std::vector<T> pixels(count);
    readPixels(band_, col, row, width, rows, pixels.data(), sizeof(T) == 4 ? GDT_Float32 : GDT_Float64);
    std::vector<std::uint8_t> mask(hasMask_ ? count : 0);
    if (hasMask_) readPixels(*band_.GetMaskBand(), col, row, width, rows, mask.data(), GDT_Byte);
    for (std::size_t i = 0; i < count; ++i) {
        const bool isMasked = hasMask_ && mask[i] == 0;
        cells[i] = isMasked ? std::numeric_limits<float>::quiet_NaN() : height(pixels[i]);
    }
}

/// Delivers the pixels from the south-western one on, row by row.
void GdalRasterBand::readPixels(GDALRasterBand & band, unsigned col, unsigned row, unsigned width,
                                unsigned rows, void * pixels, GDALDataType type) const {
    const bool mirrored = source_->isMirrored(), southUp = source_->isSouthUp();
    const unsigned x = mirrored ? cellsX() - col - width : col;
    const unsigned y = southUp ? row : cellsY() - row - rows;
    const GSpacing pixel = GDALGetDataTypeSizeBytes(type), line = pixel * width;
    char * const first = static_cast<char *>(pixels) + (mirrored ? pixel * (width - 1) : 0) +
                         (southUp ? 0 : line * (rows - 1));
    GdalErrorTrap trap;
    const CPLErr result =
        band.RasterIO(GF_Read, static_cast<int>(x), static_cast<int>(y), static_cast<int>(width),
                      static_cast<int>(rows), first, static_cast<int>(width), static_cast<int>(rows), type,
                      mirrored ? -pixel : pixel, southUp ? line : -line, nullptr);
    if (result != CE_None || trap.failed())
        throw NBX::InputException(s_unreadable, source_->path(), 0, trap.text());
}

float GdalRasterBand::height(double value) const {
    constexpr float undefined = std::numeric_limits<float>::quiet_NaN();
    if (!std::isfinite(value) || noData_.is(value)) return undefined;
    const double scaled = value * scale_ + offset_;
    return std::abs(scaled) <= std::numeric_limits<float>::max() ? static_cast<float>(scaled) : undefined;
}

NBX_CLASS_IMPL(GdalRasterBand, RasterBand)

} // namespace ZMT::RASTER
