#pragma once

#include <cstdint>
#include <vector>

#include <zmt/core/vector/screenlabels.h>

namespace ZMT::CORE {

/// The rectangles of a picture that are taken.
class LabelPlacement {
public:
    using Rectangle = ScreenLabels::Rectangle;

    /// In pixels. Memory and time of making grow with the picture.
    LabelPlacement(unsigned width, unsigned height);

    /// Whether it lies within the picture.
    bool isInside(const Rectangle & rectangle) const;
    /// Whether a rectangle within the picture overlaps none that is taken; those that only touch do not.
    bool isFree(const Rectangle & rectangle) const;
    /// Whether a place of the picture lies in what is taken; near its border it may say no.
    bool isTaken(double x, double y) const;
    /// What reaches beyond the picture is taken as far as it lies within.
    void take(const Rectangle & rectangle);

private:
    /// Tiles from the lower left one up to, and without, the upper right one.
    struct Tiles {
        int left, bottom, right, top;
    };
    Tiles tilesAt(const Rectangle & rectangle, double size) const;
    std::uint64_t * rowOfMask(int y) { return &mask_[std::size_t(y) * words_]; }
    const std::uint64_t * rowOfMask(int y) const { return &mask_[std::size_t(y) * words_]; }
    bool meetsMask(const Rectangle & rectangle) const;

    static constexpr double s_cellSize = 64.0, s_maskSize = 4.0;
    unsigned width_, height_;
    std::size_t columns_;
    std::vector<std::vector<Rectangle>> cells_; ///< what is taken there
    std::size_t words_;                         ///< of a row of the mask
    std::vector<std::uint64_t> mask_;           ///< a bit for each small tile that is taken as a whole
};

} // namespace ZMT::CORE
