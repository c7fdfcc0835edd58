#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "gdalsource.h"

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
    /// Borrows `source`.
    explicit GdalImageReader(const GdalSource & source);

    bool isGray() const { return colour_[0] == colour_[1] && !isPalette(); }
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

    /// Bands of more than 8 bits are scaled by the greatest value of the whole file, where it does not say
    /// what is full intensity; otherwise each call to `readRgba` looks for it in what it reads.
    void findWhite();
    /// Four bytes a pixel. `window` is in pixels of the level, of which the result has `width * height`
    /// averages. Alpha is 0 where the alpha band, the mask, the palette or the no-data value say so.
    std::vector<std::uint8_t> readRgba(int level, const GdalWindow & window, unsigned width,
                                       unsigned height) const;
    /// The numbers of the first band with its scale and offset; NaN where there is none.
    std::vector<float> readValues(int level, const GdalWindow & window) const;

    /// Brings the lines of pixels that were read into the order from south to north, and the columns from
    /// west to east.
    void orient(void * pixels, unsigned width, unsigned height, std::size_t bytesPerPixel) const;

private:
    class Reading;

    void findBands();
    bool isPalette() const { return colour_[0]->GetColorTable() != nullptr; }
    bool hasMask() const;
    double declaredWhite(GDALRasterBand & band) const;
    double foundWhite(const Reading & reading) const;
    void readColours(const Reading & reading, std::vector<std::uint8_t> & rgba) const;
    void readBytes(const Reading & reading, std::vector<std::uint8_t> & rgba) const;
    void readPalette(const Reading & reading, std::vector<std::uint8_t> & rgba) const;
    void readAlpha(const Reading & reading, std::vector<std::uint8_t> & rgba) const;

    const GdalSource & source_;
    std::array<GDALRasterBand *, 3> colour_ = {}; ///< gray has one band in all three places
    GDALRasterBand * alpha_ = nullptr;
    unsigned colours_ = 0; ///< number of bands that are not alpha
    double white_ = 0.0;   ///< 0 where each call looks for it
};

} // namespace ZMT::RASTER
