#include <zmt/core/terrain/geometry/base/stripmesh.h>

#include <utility>

namespace ZMT::CORE {

void StripMesh::appendLattice(unsigned columns, unsigned rows, const HasHalf & hasHalf) {
    for (unsigned row = 0; row < rows; ++row) {
        // The vertices to and fro between two rows; half k of the row is entries k to k + 2.
        const auto zigzag = [=, first = row * (columns + 1)](unsigned k) {
            return first + k / 2 + (k % 2) * (columns + 1);
        };
        bool isOpen = false;
        for (unsigned k = 0; k < 2 * columns; ++k) {
            if (hasHalf && !hasHalf(k / 2, row, k % 2)) {
                if (isOpen) strips.endStrip();
                isOpen = false;
                continue;
            }
            if (!isOpen) {
                if (k % 2 == 1) strips.indices.push_back(zigzag(k));
                strips.indices.push_back(zigzag(k));
                strips.indices.push_back(zigzag(k + 1));
                isOpen = true;
            }
            strips.indices.push_back(zigzag(k + 2));
        }
        if (isOpen) strips.endStrip();
    }
}

void StripMesh::forEachTriangle(const Visit & visit) const {
    std::size_t begin = 0;
    for (const std::size_t end : strips.ranges) {
        for (std::size_t i = begin; i + 2 < end; ++i) {
            unsigned a = strips.indices[i], b = strips.indices[i + 1];
            const unsigned c = strips.indices[i + 2];
            if (a == b || b == c || a == c) continue;
            if (((i - begin) % 2 == 0) != isClockwise) std::swap(a, b);
            visit(a, b, c);
        }
        begin = end;
    }
}

std::size_t StripMesh::triangles() const {
    std::size_t count = 0;
    forEachTriangle([&count](unsigned, unsigned, unsigned) { ++count; });
    return count;
}

} // namespace ZMT::CORE
