#pragma once

#include <cstdint>
#include <vector>

#include <zmt/raster/rasterdata.h>

namespace ZMT::RASTER {
class MorphologicalParameters;
}

namespace ZMT::UTIL {

/// What strokes go by, between the cells of a raster, in floats: heights that are the same as floats are the
/// same here. Positions are pixels of a picture whose corner pixels lie on the corner cells.
class StrokeField {
public:
    struct Sample {
        double gradientX, gradientY, slope, curvature, height;
    };

    StrokeField(const RASTER::RasterData & raster, const RASTER::MorphologicalParameters & parameters,
                unsigned width, unsigned height);

    /// False where one of the cells with a weight above 0 lacks a number.
    bool sample(double x, double y, Sample & result) const;
    /// The height of a cell; NaN where there is none.
    float heightAt(std::uint32_t cell) const { return cells_[cell].height; }
    /// The position of a cell.
    double xOf(std::uint32_t cell) const { return cell % cellsX_ * (width_ - 1.0) / (cellsX_ - 1.0); }
    double yOf(std::uint32_t cell) const {
        const std::uint32_t row = cell / cellsX_;
        return row * (height_ - 1.0) / (cellsY_ - 1.0);
    }
    /// Brings to the processor what lies around a cell that will be asked for.
    void prefetch(std::uint32_t cell) const { __builtin_prefetch(&cells_[cell]); }

    /// The numbers of all cells, of the highest one first.
    std::vector<std::uint32_t> cellsByHeight() const;

private:
    /// Side by side, since each step asks for all of them.
    struct Cell {
        float gradientX, gradientY, slope, curvature, height;
    };

    unsigned cellsX_, cellsY_, width_, height_;
    double perPixelX_, perPixelY_; ///< cells
    std::vector<Cell> cells_;
};

} // namespace ZMT::UTIL
