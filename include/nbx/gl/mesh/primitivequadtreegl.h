#pragma once

#include <array>
#include <memory>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

class EngineGL;

/// The triangles of a polygon set, sorted into a quadtree so that the part in a `PrimitiveQuadTreeAreaGL` is
/// painted fast. They lie in buffers of the graphics card, in single precision and in the frame of the set.
///
/// The triangles are read once, by the constructor, and the other attributes of their vertices when the tree
/// is first painted: later changes of the set are not seen. Building needs no context; the buffers are made
/// when the tree is first painted. It belongs to the thread of the canvases that paint it.
///
/// Laws: (1) every triangle is in exactly one leaf; (2) the triangles below a node stand one behind the
/// other; (3) those in an area are the ones whose rectangles touch it, in their order in the tree.
class PrimitiveQuadTreeGL : public Shape {
    NBX_STORED_CLASS(PrimitiveQuadTreeGL, Shape)
public:
    static constexpr unsigned maxLevels = 15;

    /// `levels` is how often the rectangle is split: 0 leaves everything in one node. More than `maxLevels`
    /// are reported and cut. `box` is what is split; an undefined one is that of the triangles, and triangles
    /// outside count to the nearest leaf. `horizontal` trees split x and z, others x and y.
    ///
    /// Triangles with a corner beyond the vertices, or one that is not finite, are left out.
    PrimitiveQuadTreeGL(unsigned levels, const SO<PolygonSet> & set, const Bounds & box, bool horizontal);
    ~PrimitiveQuadTreeGL() override;

    unsigned levels() const { return levels_; }
    const SO<PolygonSet> & polygonSet() const { return set_; }
    bool isHorizontal() const { return horizontal_; }

    /// That of the triangles; undefined without any.
    Bounds boundingBox() const override;
    unsigned triangles() const;
    unsigned leaves() const;
    /// The vertex numbers of triangle `i`, by their order in the tree.
    std::array<unsigned, 3> triangle(unsigned i) const;

    /// Triangles `first` to `first + count - 1`.
    struct Range {
        unsigned first, count;
        bool operator==(const Range &) const = default;
    };
    /// The triangles in an area, as ranges that do not adjoin.
    std::vector<Range> rangesIn(const Bounds & area) const;

    /// Draws ranges of triangles with the vertex attributes of the set; one that reaches beyond them is
    /// reported, and left out. Draws nothing where the driver had no memory. The engine's context is current.
    void draw(EngineGL * engine, const std::vector<Range> & ranges) const;

    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attributes "levels" (default 0), "polygonSet" (null), "box" (undefined), "horizontal" (true). Throws
    /// `IOError` for more than `maxLevels`.
    void serialize(SerializationManager & m) override;

protected:
    PrimitiveQuadTreeGL();

private:
    struct Impl;

    void build();

    unsigned levels_ = 0;
    SO<PolygonSet> set_;
    Bounds splitBox_; ///< undefined: that of the triangles
    bool horizontal_ = true;

    std::unique_ptr<Impl> impl_;
};

} // namespace NBX
