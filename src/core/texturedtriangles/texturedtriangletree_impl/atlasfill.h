#pragma once

#include <vector>

#include <nbx/image/image.h>
#include <nbx/math/area.h>

namespace ZMT::CORE {

/// Which texels of an atlas show something.
class UsedTexels {
public:
    /// None of them does.
    UsedTexels(int width, int height)
        : width_(width), height_(height), used_(std::size_t(width) * std::size_t(height)) {}
    /// Those of `mask`, 8-bit, whose first layer is above one half.
    explicit UsedTexels(const NBX::Image & mask);

    /// `area` lies within.
    void add(const NBX::Area & area);
    int width() const { return width_; }
    int height() const { return height_; }
    /// A byte for each, 1 for a used one, row by row.
    const std::vector<unsigned char> & bytes() const { return used_; }

private:
    int width_, height_;
    std::vector<unsigned char> used_;
};

/// Gives the other texels of an atlas, of 8-bit RGB or RGBA, what is around them, alpha included, so that
/// coarse levels and lossy formats have nothing foreign there. Used ones stay as they are; an atlas without
/// any does.
void fillUnusedTexels(const UsedTexels & used, NBX::Image & atlas);

} // namespace ZMT::CORE
