// Triangles are sorted by the cell in which their centre lies, cells in Morton's order, so that a node of the
// tree is one range of them; its box is that of its triangles, which may reach beyond the cell.

#include "trianglequadtree.h"

#include <algorithm>

#include <nbx/math/isfinite.h>

namespace NBX {

namespace {

/// Spreads the low 16 bits to the even places.
std::uint32_t spread(std::uint32_t bits) {
    bits = (bits | bits << 8) & 0x00ff00ff;
    bits = (bits | bits << 4) & 0x0f0f0f0f;
    bits = (bits | bits << 2) & 0x33333333;
    return (bits | bits << 1) & 0x55555555;
}

void append(std::vector<TriangleQuadTree::Range> & ranges, unsigned first, unsigned count) {
    if (!ranges.empty() && ranges.back().first + ranges.back().count == first)
        ranges.back().count += count;
    else
        ranges.push_back({first, count});
}

} // namespace

bool TriangleQuadTree::Rectangle::touches(const Rectangle & other) const {
    return min[0] <= other.max[0] && other.min[0] <= max[0] && min[1] <= other.max[1] &&
           other.min[1] <= max[1];
}

bool TriangleQuadTree::Rectangle::isInside(const Rectangle & other) const {
    return other.min[0] <= min[0] && max[0] <= other.max[0] && other.min[1] <= min[1] &&
           max[1] <= other.max[1];
}

TriangleQuadTree::Rectangle & TriangleQuadTree::Rectangle::operator+=(const Rectangle & other) {
    for (unsigned i = 0; i < 2; ++i) {
        min[i] = std::min(min[i], other.min[i]);
        max[i] = std::max(max[i], other.max[i]);
    }
    return *this;
}

TriangleQuadTree::Rectangle TriangleQuadTree::rectangleOf(const Bounds & box) const {
    const auto & a = box.getLLF();
    const auto & b = box.getURB();
    return {{float(a.x), float(a[second_])}, {float(b.x), float(b[second_])}};
}

TriangleQuadTree::Rectangle TriangleQuadTree::rectangleOf(const Corners & corners) const {
    const Position & first = positions_[corners[0]];
    Rectangle result{{first.x, first[second_]}, {first.x, first[second_]}};
    for (const unsigned corner : corners) {
        const Position & p = positions_[corner];
        result += {{p.x, p[second_]}, {p.x, p[second_]}};
    }
    return result;
}

/// Number of the cell in which the centre of the rectangle lies, of 2^levels in each direction, in the order
/// of G. M. Morton, A Computer Oriented Geodetic Data Base, 1966: two bits for each level.
std::uint32_t TriangleQuadTree::cellOf(const Rectangle & rectangle, const Rectangle & split,
                                       unsigned levels) {
    const double cells = double(1U << levels);
    std::uint32_t numbers[2];
    for (unsigned i = 0; i < 2; ++i) {
        const double size = double(split.max[i]) - split.min[i];
        const double center = (double(rectangle.min[i]) + rectangle.max[i]) / 2.0;
        const double cell = (center - split.min[i]) / size * cells;
        // A rectangle without extent, or with one that is not finite, has one cell.
        numbers[i] = cell > 0.0 && size > 0.0 ? static_cast<std::uint32_t>(std::min(cell, cells - 1.0)) : 0;
    }
    return spread(numbers[0]) | spread(numbers[1]) << 1;
}

TriangleQuadTree::TriangleQuadTree(const PolygonSet & set, unsigned levels, const Bounds & splitBox,
                                   bool isHorizontal)
    : second_(isHorizontal ? 2 : 1) {
    read(set);
    sort(rectangleOf(splitBox.isDefined() ? splitBox : box_), levels);
}

void TriangleQuadTree::read(const PolygonSet & set) {
    const SO<PolygonSet::Vertices> vertices = set.newVertexIterator();
    if (!vertices) return;
    positions_.reserve(vertices->size());
    for (const Vector3Base<double> & v : *vertices)
        positions_.emplace_back(v);
    for (unsigned i = 0; i < set.triangles(); ++i) {
        Corners corners;
        if (!set.triangle(i, corners)) continue;
        if (!std::all_of(corners.begin(), corners.end(), [&](unsigned c) { return isFinite(positions_[c]); }))
            continue;
        triangles_.push_back(corners);
        rectangles_.push_back(rectangleOf(corners));
        for (const unsigned corner : corners)
            box_ += Vector3Base<double>(positions_[corner]);
    }
}

/// Brings the triangles into the order of their cells, and makes the nodes over them.
void TriangleQuadTree::sort(const Rectangle & split, unsigned levels) {
    const std::size_t count = triangles_.size();
    if (count == 0) return;
    std::vector<std::pair<std::uint32_t, unsigned>> order(count);
    for (std::size_t i = 0; i < count; ++i)
        order[i] = {cellOf(rectangles_[i], split, levels), static_cast<unsigned>(i)};
    std::sort(order.begin(), order.end());

    std::vector<Corners> sortedTriangles(count);
    std::vector<Rectangle> sortedRectangles(count);
    std::vector<std::uint32_t> cells(count);
    for (std::size_t i = 0; i < count; ++i) {
        cells[i] = order[i].first;
        sortedTriangles[i] = triangles_[order[i].second];
        sortedRectangles[i] = rectangles_[order[i].second];
    }
    triangles_.swap(sortedTriangles);
    rectangles_.swap(sortedRectangles);
    nodes_.push_back({{0, static_cast<unsigned>(count)}, rectangles_[0], 0, 0});
    addChildren(0, cells, levels);
}

/// `level` counts the splits that are left.
void TriangleQuadTree::addChildren(unsigned parent, const std::vector<std::uint32_t> & cells,
                                   unsigned level) {
    const Range range = nodes_[parent].range;
    Rectangle rectangle = rectangles_[range.first];
    if (level == 0) {
        for (unsigned i = range.first; i < range.first + range.count; ++i)
            rectangle += rectangles_[i];
        nodes_[parent].rectangle = rectangle;
        return;
    }
    const unsigned firstChild = static_cast<unsigned>(nodes_.size());
    const unsigned shift = 2 * (level - 1), end = range.first + range.count;
    for (unsigned begin = range.first; begin < end;) {
        const auto next = std::upper_bound(
            cells.begin() + begin, cells.begin() + end, cells[begin] >> shift,
            [shift](std::uint32_t quadrant, std::uint32_t cell) { return quadrant < cell >> shift; });
        const auto childEnd = static_cast<unsigned>(next - cells.begin());
        nodes_.push_back({{begin, childEnd - begin}, rectangle, 0, 0});
        begin = childEnd;
    }
    const unsigned children = static_cast<unsigned>(nodes_.size()) - firstChild;
    nodes_[parent].firstChild = firstChild;
    nodes_[parent].children = children;
    for (unsigned i = 0; i < children; ++i) {
        addChildren(firstChild + i, cells, level - 1);
        rectangle += nodes_[firstChild + i].rectangle;
    }
    nodes_[parent].rectangle = rectangle;
}

void TriangleQuadTree::collect(unsigned number, const Rectangle & area, std::vector<Range> & ranges) const {
    const Node & node = nodes_[number];
    if (!node.rectangle.touches(area)) return;
    if (node.rectangle.isInside(area)) {
        append(ranges, node.range.first, node.range.count);
        return;
    }
    for (unsigned i = 0; i < node.children; ++i)
        collect(node.firstChild + i, area, ranges);
    if (node.children > 0) return;
    for (unsigned i = node.range.first; i < node.range.first + node.range.count; ++i)
        if (rectangles_[i].touches(area)) append(ranges, i, 1);
}

unsigned TriangleQuadTree::leaves() const {
    return static_cast<unsigned>(
        std::count_if(nodes_.begin(), nodes_.end(), [](const Node & node) { return node.children == 0; }));
}

std::vector<TriangleQuadTree::Range> TriangleQuadTree::rangesIn(const Bounds & area) const {
    std::vector<Range> ranges;
    if (!nodes_.empty() && area.isDefined()) collect(0, rectangleOf(area), ranges);
    return ranges;
}

} // namespace NBX
