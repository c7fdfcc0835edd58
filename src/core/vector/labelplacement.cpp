#include "labelplacement.h"

#include <algorithm>
#include <cmath>

namespace ZMT::CORE {

namespace {

std::size_t tilesOf(unsigned length, double size) {
    return std::size_t(std::ceil(length / size)) + 1;
}

/// The bits of the word `word` from `begin` up to, and without, `end`.
std::uint64_t bitsOf(int word, int begin, int end) {
    const int first = std::max(0, begin - word * 64), behind = std::min(64, end - word * 64);
    const std::uint64_t upTo = behind == 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << unsigned(behind)) - 1;
    return upTo & ~((std::uint64_t(1) << unsigned(first)) - 1);
}

} // namespace

LabelPlacement::LabelPlacement(unsigned width, unsigned height)
    : width_(width), height_(height), columns_(tilesOf(width, s_cellSize)),
      cells_(columns_ * tilesOf(height, s_cellSize)), words_(tilesOf(width, s_maskSize) / 64 + 1),
      mask_(words_ * tilesOf(height, s_maskSize)) {}

bool LabelPlacement::isInside(const Rectangle & rectangle) const {
    return rectangle.left >= 0.0 && rectangle.bottom >= 0.0 && rectangle.right <= width_ &&
           rectangle.top <= height_;
}

/// Those that it overlaps, within the picture.
LabelPlacement::Tiles LabelPlacement::tilesAt(const Rectangle & rectangle, double size) const {
    const double right = std::min(rectangle.right, double(width_)),
                 top = std::min(rectangle.top, double(height_));
    return {int(std::max(rectangle.left, 0.0) / size), int(std::max(rectangle.bottom, 0.0) / size),
            int(std::ceil(std::max(right, 0.0) / size)), int(std::ceil(std::max(top, 0.0) / size))};
}

bool LabelPlacement::meetsMask(const Rectangle & rectangle) const {
    const Tiles tiles = tilesAt(rectangle, s_maskSize);
    for (int y = tiles.bottom; y < tiles.top; ++y)
        for (int word = tiles.left / 64; word * 64 < tiles.right; ++word)
            if ((rowOfMask(y)[word] & bitsOf(word, tiles.left, tiles.right)) != 0) return true;
    return false;
}

bool LabelPlacement::isFree(const Rectangle & rectangle) const {
    if (meetsMask(rectangle)) return false;
    const Tiles tiles = tilesAt(rectangle, s_cellSize);
    for (int y = tiles.bottom; y < tiles.top; ++y)
        for (int x = tiles.left; x < tiles.right; ++x)
            for (const Rectangle & taken : cells_[std::size_t(y) * columns_ + std::size_t(x)])
                if (taken.overlaps(rectangle)) return false;
    return true;
}

bool LabelPlacement::isTaken(double x, double y) const {
    if (!(x >= 0.0 && y >= 0.0 && x <= width_ && y <= height_)) return false;
    const auto column = unsigned(x / s_maskSize);
    return (rowOfMask(int(y / s_maskSize))[column / 64] >> (column % 64) & 1U) != 0;
}

void LabelPlacement::take(const Rectangle & rectangle) {
    const Tiles tiles = tilesAt(rectangle, s_cellSize);
    for (int y = tiles.bottom; y < tiles.top; ++y)
        for (int x = tiles.left; x < tiles.right; ++x)
            cells_[std::size_t(y) * columns_ + std::size_t(x)].push_back(rectangle);
    const Tiles all = tilesAt(rectangle, s_maskSize);
    const auto isWhole = [](double low, double high, int tile) {
        return low <= tile * s_maskSize && (tile + 1) * s_maskSize <= high;
    };
    Tiles whole = all;
    if (!isWhole(rectangle.left, HUGE_VAL, whole.left)) ++whole.left;
    if (!isWhole(-HUGE_VAL, rectangle.right, whole.right - 1)) --whole.right;
    for (int y = all.bottom; y < all.top; ++y)
        for (int word = whole.left / 64;
             isWhole(rectangle.bottom, rectangle.top, y) && word * 64 < whole.right; ++word)
            rowOfMask(y)[word] |= bitsOf(word, whole.left, whole.right);
}

} // namespace ZMT::CORE
