#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

/// The triangles of a polygon set in the order of a quadtree, which knows their ranges; the arithmetic of a
/// `PrimitiveQuadTreeGL`, whose laws are these. It draws nothing.
class TriangleQuadTree {
public:
    using Corners = std::array<unsigned, 3>;
    using Position = Vector3Base<float>; ///< in the precision in which the triangles are drawn
    using Range = PrimitiveQuadTreeGL::Range;

    /// Without triangles.
    TriangleQuadTree() = default;
    /// As the constructor of `PrimitiveQuadTreeGL`; `levels` is at most its `maxLevels`.
    TriangleQuadTree(const PolygonSet & set, unsigned levels, const Bounds & splitBox, bool isHorizontal);

    const std::vector<Position> & positions() const { return positions_; }
    const std::vector<Corners> & triangles() const { return triangles_; }
    const Bounds & box() const { return box_; }
    unsigned leaves() const;
    std::vector<Range> rangesIn(const Bounds & area) const;

private:
    /// Extent in the two directions of the split.
    struct Rectangle {
        float min[2], max[2];

        bool touches(const Rectangle & other) const;
        bool isInside(const Rectangle & other) const;
        Rectangle & operator+=(const Rectangle & other);
    };
    struct Node {
        Range range;
        Rectangle rectangle; ///< of the triangles
        unsigned firstChild; ///< number of the first of the children, which follow each other
        unsigned children;   ///< 0 for a leaf
    };

    Rectangle rectangleOf(const Bounds & box) const;
    Rectangle rectangleOf(const Corners & corners) const;
    static std::uint32_t cellOf(const Rectangle & rectangle, const Rectangle & split, unsigned levels);
    void read(const PolygonSet & set);
    void sort(const Rectangle & split, unsigned levels);
    void addChildren(unsigned parent, const std::vector<std::uint32_t> & cells, unsigned level);
    void collect(unsigned number, const Rectangle & area, std::vector<Range> & ranges) const;

    unsigned second_ = 2; ///< the second direction of the split
    std::vector<Position> positions_;
    std::vector<Corners> triangles_;
    std::vector<Rectangle> rectangles_; ///< of the triangles
    std::vector<Node> nodes_;           ///< the root first
    Bounds box_;
};

} // namespace NBX
