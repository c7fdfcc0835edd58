#pragma once

#include <cstdint>
#include <vector>

#include "core/terrain/geometry/regular/latticetriangle.h"
#include <nbx/math/area.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tin/tin.h>
#include <zmt/core/terrain/geometry/tree/mytinpointaccessor.h>

namespace ZMT::CORE {

/// The surface of a triangulation, whose nodes are vertices of a grid, at all vertices of the grid that it
/// covers. Each face is scanned row by row, with exact integer borders, so that no vertex needs to be
/// located. The working memory is kept from scan to scan.
class SurfaceScan {
public:
    using Mesh = Tin<MyTinPointAccessor>;

    /// `grid` is borrowed.
    explicit SurfaceScan(const GridData & grid) : grid_(grid), scale_(grid.scale()) {}

    void scan(const Mesh & tin, const NBX::Area & domain);

    /// The largest vertical distance of a vertex from the surface.
    double distance() const { return maximum_; }
    /// The height of the surface at vertex `number` of the grid.
    float height(unsigned number) const {
        return heights_[place(number % grid_.sizeX(), number / grid_.sizeX())];
    }

private:
    using Corner = LatticeTriangle::Corner;
    struct Plane;

    void scanFace(const Mesh & tin, TinFace f);
    void scanRow(const Plane & plane, unsigned row, std::int64_t first, std::int64_t last);
    void set(const Corner & at, double height, double ground);
    std::size_t place(unsigned column, unsigned row) const {
        return std::size_t(row - unsigned(domain_.getY())) * (domain_.getWidth() + 1) + column -
               unsigned(domain_.getX());
    }

    const GridData & grid_;
    GridData::Point scale_;
    NBX::Area domain_;
    std::vector<Corner> corners_; ///< of the nodes
    std::vector<float> heights_;  ///< row by row over the domain
    double maximum_ = 0.0;
};

} // namespace ZMT::CORE
