#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/so.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::CORE::GRID {

/// An image too large for memory, whose pixels lie row by row in a part of a file of their own: written in
/// runs of pixels, read in rectangles. Images may be laid one behind the other in one file. One thread at a
/// time writes or reads.
class FileTiledGeoImage : public RASTER::TiledGeoImage {
    NBX_CLASS(FileTiledGeoImage, RASTER::TiledGeoImage)
public:
    /// Enlarges `file`, which is open for writing, by blank pixels. `minX` and `minY` are the outer edges of
    /// the first pixel. A pixel of one band has one byte, any other one four. What the file cannot hold is
    /// reported; the image then has no pixels.
    FileTiledGeoImage(NBX::SO<NBX::File> file, double minX, double minY, double pixelSizeX, double pixelSizeY,
                      std::uint64_t pixelsX, std::uint64_t pixelsY, unsigned bands);

    unsigned bands() const override { return bands_; }
    double minX() const override { return minX_; }
    double minY() const override { return minY_; }
    double pixelSizeX() const override { return pixelSizeX_; }
    double pixelSizeY() const override { return pixelSizeY_; }
    std::uint64_t pixelsX() const override { return pixelsX_; }
    std::uint64_t pixelsY() const override { return pixelsY_; }
    /// Null, after a report, where the file cannot be read; blank where the image has no pixels.
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;
    bool failed() const override { return failed_; }

    /// Writes the pixels from column `x` of row `y` on, which may go on in the next rows. A run that does not
    /// lie in the image, or that the file does not take, is reported and left out.
    void setValues(std::uint64_t x, std::uint64_t y, const std::vector<unsigned char> & bytes);

private:
    void reserve();
    std::uint64_t position(std::uint64_t x, std::uint64_t y) const {
        return baseOffset_ + (x + y * pixelsX_) * bytesPerPixel_;
    }
    bool readRows(const RASTER::PixelRect & part, int x, int y, NBX::Image & image) const;
    void fail(const wchar_t * what, const std::string & reason) const;

    NBX::SO<NBX::File> file_;
    std::uint64_t baseOffset_ = 0; ///< of the first pixel
    double minX_, minY_;
    double pixelSizeX_, pixelSizeY_;
    std::uint64_t pixelsX_, pixelsY_;
    std::uint32_t bands_;
    std::uint32_t bytesPerPixel_;
    mutable bool failed_ = false;
};

} // namespace ZMT::CORE::GRID
