#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "gdalsource.h"

#include <zmt/raster/imagecolors.h>

namespace ZMT::RASTER {

/// A rectangle of pixels of a file, in its own order of lines and columns.
struct GdalWindow {
    int x, y, width, height;
};

/// Reads colours, or a band of numbers, from the bands of a file that make them up. A level is -1 for the
/// file's own pixels, else the index of an overview of the file. What cannot be read throws
/// `NBX::InputException`.
class GdalImageReader {
public:
    /// Borrows `source`. Throws where it lacks a band that is chosen, and where a palette is to be stretched.
    explicit GdalImageReader(const GdalSource & source, const ImageColors & colors = {});

    bool isGray() const { return isGrayOrPalette() && !isPalette(); }
    /// False where every pixel is opaque.
    bool hasAlpha() const;
    /// True for one band of signed or floating point numbers, which are no colours.
    bool isValues() const;
    /// Number of overviews, of which some may be of no use.
    int overviews() const;
    /// Size of a level.
    unsigned width(int level) const;
    unsigned height(int level) const;
    /// Size of the blocks in which a level is stored.
    unsigned blockWidth(int level) const;
    unsigned blockHeight(int level) const;

    /// Four bytes a pixel. `window` is in pixels of the level, of which the result has `width * height`
    /// averages. Alpha is 0 where the alpha band, the mask, the palette or the no-data value say so, and
    /// where numbers are not finite. The first call looks for the ranges that are stretched, in samples of
    /// the whole image: a coarse level where the file stores one, else small windows all over it.
    std::vector<std::uint8_t> readRgba(int level, const GdalWindow & window, unsigned width,
                                       unsigned height) const;
    /// The numbers of the first band with its scale and offset; NaN where there is none.
    std::vector<float> readValues(int level, const GdalWindow & window) const;

    /// Brings the lines of pixels that were read into the order from south to north, and the columns from
    /// west to east.
    void orient(void * pixels, unsigned width, unsigned height, std::size_t bytesPerPixel) const;

private:
    class Reading;

    /// What is black and what is white in a band.
    struct Range {
        double low = 0.0, high = 255.0;
    };
    using Ranges = std::array<Range, 3>;

    void findBands();
    void chooseBands();
    bool isPalette() const { return isGrayOrPalette() && colour_[0]->GetColorTable(); }
    bool isGrayOrPalette() const { return colour_[0] == colour_[1] && colour_[1] == colour_[2]; }
    std::size_t channels() const { return isGrayOrPalette() ? 1 : 3; }
    bool hasMask() const;
    /// The band that says what is transparent; null where none does.
    GDALRasterBand * alphaBand() const;
    double declaredWhite(GDALRasterBand & band) const;
    Range rangeOf(GDALRasterBand & band) const;
    Range sampledRange(GDALRasterBand & band) const;
    int sampledLevel() const;
    std::vector<float> samples(GDALRasterBand & band) const;
    const Ranges & ranges() const;
    std::uint8_t toByte(double value, const Range & range) const;
    void readColours(const Reading & reading, std::vector<std::uint8_t> & rgba) const;
    void readBytes(const Reading & reading, std::vector<std::uint8_t> & rgba) const;
    void readPalette(const Reading & reading, std::vector<std::uint8_t> & rgba) const;
    void readAlpha(const Reading & reading, std::vector<std::uint8_t> & rgba) const;

    const GdalSource & source_;
    ImageColors colors_;
    std::array<GDALRasterBand *, 3> colour_ = {}; ///< gray has one band in all three places
    GDALRasterBand * alpha_ = nullptr;
    unsigned colours_ = 0;                 ///< number of bands that are not alpha
    mutable std::optional<Ranges> ranges_; ///< once they are known
};

} // namespace ZMT::RASTER
