#pragma once

#include <algorithm>
#include <cstddef>

#include <nbx/data/dataresource.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// The heights and errors of a `ChunkedLodTerrain`, in steps of its height scale.
///
/// Vertices have two numbers: on the lattice, `paddedSize()` wide, on which meshes are cut, and in the store
/// of the heights, `sizeX()` wide. Beyond the raster the lattice repeats its last column and row.
class ChunkedLodTerrain::Impl : public NBX::SharedObj {
    NBX_CLASS(ChunkedLodTerrain::Impl, NBX::SharedObj)
public:
    /// Arrays of at least this many bytes lie in temporary files.
    static constexpr unsigned s_minFileSize = 0x3200000;

    /// All heights and errors are 0. Sizes are cut to `s_maxSize`; without a cell there is one, of height 0.
    /// Throws `IOException` when a temporary file cannot be made at its full size.
    Impl(unsigned cellsX, unsigned cellsY);

    unsigned sizeX() const { return sizeX_; }
    unsigned sizeY() const { return sizeY_; }
    /// `2^level() + 1`, the smallest of its kind that holds the raster and has a centre.
    unsigned paddedSize() const { return paddedSize_; }
    unsigned level() const { return level_; }
    /// The lattice is the raster; both numbers of a vertex are the same.
    bool isSquare() const { return sizeX_ == paddedSize_ && sizeY_ == paddedSize_; }

    std::size_t latticeIndex(unsigned x, unsigned y) const { return x + y + (std::size_t(y) << level_); }
    /// The number in the store of the vertex at a lattice position.
    std::size_t heightIndex(unsigned x, unsigned y) const {
        if (isSquare()) return latticeIndex(x, y);
        return std::min(x, sizeX_ - 1) + std::size_t(std::min(y, sizeY_ - 1)) * sizeX_;
    }

    /// `sizeX() * sizeY()` values by number in the store.
    unsigned short * heights() { return heights_; }
    const unsigned short * heights() const { return heights_; }
    /// `paddedSize() * paddedSize()` values by number on the lattice.
    const unsigned short * errors() const { return errors_; }

    /// Computes all errors from the heights.
    void computeErrors();

private:
    NBX::SO<NBX::DataResource> heightResource_, errorResource_;
    unsigned short *heights_ = nullptr, *errors_ = nullptr;
    unsigned sizeX_, sizeY_;
    unsigned paddedSize_ = 3, level_ = 1;
};

} // namespace ZMT::CORE
