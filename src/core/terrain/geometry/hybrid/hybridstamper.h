#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>

namespace ZMT::RASTER {
template <class T> class SimpleRasterData;
}

namespace ZMT::CORE {

class GridData;
class HybridData;
struct LatticeNode;

/// Collects features for a hybrid grid, and makes it. All decisions are taken on a lattice of whole numbers,
/// 2^30 to a cell, so that cells meet without holes and crossings need no tolerance; positions given are
/// kept as they are. `CreateHybridData` is the way to use it. For one thread.
class HybridStamper {
public:
    using Point = NBX::Vector3Base<double>;

    /// Copies the heights of `grid`.
    explicit HybridStamper(const GridData & grid);
    ~HybridStamper();
    HybridStamper(const HybridStamper &) = delete;
    HybridStamper & operator=(const HybridStamper &) = delete;

    /// One to three points in geo coordinates; anything else is reported and left out.
    void stamp(const std::vector<Point> & points);
    /// The grid with all that was stamped. Throws `NBX::IOError` for more vertices than can be counted.
    NBX::SO<HybridData> build();

private:
    struct Cells;

    bool isInside(const Point & p) const;
    void stampPoint(const Point & p);
    void stampSegment(const Point & a, const Point & b);
    void stampTriangle(const Point & a, const Point & b, const Point & c);
    void flatten(const std::array<Point, 3> & p);
    void stampColumn(LatticeNode a, LatticeNode b);
    void addPiece(const LatticeNode & a, const LatticeNode & b);
    void setHeight(const LatticeNode & gridVertex);

    LatticeNode node(const Point & p) const;
    Point positionAt(double u, double v, double height) const;
    LatticeNode between(const LatticeNode & a, const LatticeNode & b, std::int64_t u, std::int64_t v) const;
    LatticeNode gridVertex(std::int64_t x, std::int64_t y) const;
    bool isCell(std::int64_t x, std::int64_t y) const;

    void findNodes();
    void shareNodes();
    void triangulate(std::size_t i, std::vector<Point> & vertices, std::vector<unsigned> & indices) const;

    Point origin_, scale_;
    unsigned sizeX_, sizeY_;
    NBX::Bounds bbox_; ///< in geo coordinates; its heights mean nothing
    unsigned features_ = 0;
    NBX::SO<RASTER::SimpleRasterData<float>> raster_;
    std::unique_ptr<Cells> cells_;
};

} // namespace ZMT::CORE
