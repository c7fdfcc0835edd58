#pragma once

#include <memory>

#include "gdalsource.h"

#include <zmt/raster/rasterband.h>

namespace ZMT::RASTER {

/// The number that means "no data" in a band, compared as the band stores it.
class GdalNoData {
public:
    explicit GdalNoData(GDALRasterBand & band);
    bool is(double value) const;
    /// Whether pixels that are floats need only be compared with `asFloat`.
    bool isOneFloat() const;
    /// NaN where there is no such number.
    float asFloat() const;

private:
    double value_ = 0.0;
    bool exists_ = false;
    bool isFloat_;
};

/// A band of a file.
class GdalRasterBand : public RasterBand {
    NBX_CLASS(GdalRasterBand, RasterBand)
public:
    GdalRasterBand(std::shared_ptr<const GdalSource> source, unsigned index);

    /// A good number of rows to read at once.
    static unsigned rowsAtOnce(unsigned width);

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height, float * cells) const override;

private:
    void readFloats(unsigned col, unsigned row, unsigned width, unsigned rows, float * cells) const;
    template <class T>
    void readRows(unsigned col, unsigned row, unsigned width, unsigned rows, float * cells) const;
    void readPixels(GDALRasterBand & band, unsigned col, unsigned row, unsigned width, unsigned rows,
                    void * pixels, GDALDataType type) const;
    float height(double value) const;

    std::shared_ptr<const GdalSource> source_;
    GDALRasterBand & band_;
    GdalNoData noData_;
    bool hasMask_;
    bool isPlain_; ///< the pixels are the heights
    double scale_, offset_;
};

} // namespace ZMT::RASTER
