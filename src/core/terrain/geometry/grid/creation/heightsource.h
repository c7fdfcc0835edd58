#pragma once

#include <cstdint>
#include <limits>

#include <nbx/object/so.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::CORE::GRID {

/// A rectangle of the points of a lattice, the last ones included.
struct LatticeArea {
    std::uint32_t minX = 0, minY = 0, maxX = 0, maxY = 0;

    std::uint32_t width() const { return maxX - minX + 1; }
    std::uint32_t height() const { return maxY - minY + 1; }
    /// The points of the lattice of every second point that have a point of this one at their place or next
    /// to it.
    LatticeArea halved() const { return {minX / 2, minY / 2, maxX - maxX / 2, maxY - maxY / 2}; }
};

/// Of a point without a height.
inline constexpr float noLatticeHeight = std::numeric_limits<float>::quiet_NaN();

/// Heights on the lattice of the finest samples of a terrain, read in windows. One thread at a time.
class HeightSource {
public:
    virtual ~HeightSource() = default;

    /// Where heights may be. The corner of the terrain is (0, 0).
    virtual LatticeArea area() const = 0;
    /// Reads `width` by `height` points from (`x`, `y`) on, all inside the area, row by row. Points without a
    /// height are NaN. Throws `NBX::InputException`.
    virtual void read(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
                      float * heights) const = 0;
};

/// A band whose cells are the points of the lattice.
class BandHeightSource : public HeightSource {
public:
    explicit BandHeightSource(const NBX::SO<RASTER::RasterBand> & band) : band_(band) {}

    LatticeArea area() const override { return {0, 0, band_->cellsX() - 1, band_->cellsY() - 1}; }
    void read(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
              float * heights) const override;

private:
    NBX::SO<RASTER::RasterBand> band_;
};

/// A band on another lattice, whose cells are not smaller than that's: heights lie between the defined ones
/// of the four cells around a point.
class ResampledHeightSource : public HeightSource {
public:
    /// `lattice` is the square of all points that there may be.
    ResampledHeightSource(const NBX::SO<RASTER::RasterBand> & band, const RASTER::RasterGrid & lattice);

    /// False when no point lies on the band.
    bool isOnBand() const { return isOnBand_; }
    LatticeArea area() const override { return area_; }
    void read(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
              float * heights) const override;

private:
    /// Where a point lies between two cells of the band.
    struct Between {
        std::uint32_t cell; ///< the lower one
        float share;        ///< of the upper one; 0 where there is none
    };
    static Between between(double position, std::uint32_t cells);

    NBX::SO<RASTER::RasterBand> band_;
    RASTER::RasterGrid lattice_;
    LatticeArea area_;
    bool isOnBand_;
};

} // namespace ZMT::CORE::GRID
