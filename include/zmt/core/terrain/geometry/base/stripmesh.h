#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// Triangle strips over numbered vertices: what is drawn of a patch, on the processor's side.
///
/// A triangle that repeats a vertex has no area: strips turn by it. Of three different vertices, the first
/// triangle of a strip turns as `isClockwise` says, seen from above, the next one the other way, and so on.
struct StripMesh {
    using Point = NBX::Vector3Base<double>;

    struct Strips {
        std::vector<unsigned> indices; ///< none: the vertices as they come
        std::vector<unsigned> ranges;  ///< where each strip ends

        /// What was appended to `indices` since the last strip is one.
        void endStrip() { ranges.push_back(static_cast<unsigned>(indices.size())); }
    };
    /// Whether a half of the cell at (column, row) is there: 0 is the one with the cell's first vertex.
    using HasHalf = std::function<bool(unsigned column, unsigned row, unsigned half)>;
    using Visit = std::function<void(unsigned, unsigned, unsigned)>;

    std::vector<Point> vertices; ///< their frame is said where they come from
    Strips strips;               ///< the surface first
    bool isClockwise = true;

    /// Appends the strips of a lattice of `columns` by `rows` cells whose vertices, row by row, are the first
    /// ones: one a row of cells, or several where halves of cells are missing. Null: none is.
    void appendLattice(unsigned columns, unsigned rows, const HasHalf & hasHalf = nullptr);

    /// Appends one strip to `to`, which is of these vertices: a curtain that hangs from the vertices
    /// `border` down to the height `bottom`. Its lower vertices are new.
    template <class Border> void appendCurtain(Strips & to, const Border & border, double bottom) {
        for (const unsigned top : border) {
            to.indices.push_back(top);
            to.indices.push_back(static_cast<unsigned>(vertices.size()));
            vertices.emplace_back(vertices[top].x, bottom, vertices[top].z);
        }
        to.endStrip();
    }

    /// Calls `visit` with the vertices of each triangle of `strips` that has three different ones, clockwise
    /// as seen from above.
    void forEachTriangle(const Visit & visit) const;
    std::size_t triangles() const;
};

} // namespace ZMT::CORE
