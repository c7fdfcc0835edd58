#pragma once

#include <array>

#include <nbx/container/iterator.h>
#include <zmt/core/terrain/geometry/geometrypatch.h>

namespace ZMT::CORE {

/// A triangulated approximation of a rectangle of a `GeometryData`, as triangle strips over at most 65536
/// vertices of the data.
class TinPatch : public GeometryPatch {
    NBX_STORED_CLASS(TinPatch, GeometryPatch)
public:
    /// The sides of the patch's rectangle, each walked from one corner to the next.
    enum Border {
        B_LowX = 0,  ///< from (x, y) to (x, y + height)
        B_HighY = 1, ///< from (x, y + height) to (x + width, y + height)
        B_HighX = 2, ///< from (x + width, y + height) to (x + width, y)
        B_LowY = 3,  ///< from (x + width, y) to (x, y)
    };
    static constexpr unsigned s_borders = 4;

    using VertexNumbers = NBX::SO<const NBX::Iterator<unsigned>>;
    using LocalNumbers = NBX::SO<const NBX::Iterator<unsigned short>>;
    using Heights = NBX::SO<const NBX::Iterator<float>>;

    /// `vertexIndices` are numbers of `data`, ascending; an entry's position is its local number.
    /// `stripRanges` holds the position in `stripIndices` at which each strip ends. `border0` to `border3`
    /// are the local numbers along the sides, corners included, and `outer0` to `outer3` tell whether the
    /// side lies on the edge of the whole grid.
    TinPatch(NBX::SO<GeometryData> data, VertexNumbers vertexIndices, LocalNumbers stripIndices,
             VertexNumbers stripRanges, LocalNumbers border0, bool outer0, LocalNumbers border1, bool outer1,
             LocalNumbers border2, bool outer2, LocalNumbers border3, bool outer3, const NBX::Bounds & bbox,
             double approxError, double wall, NBX::SO<Children> children);
    ~TinPatch() override;

    NBX::SO<GeometryData> data() const override;
    void serialize(NBX::SerializationManager & m) override;

    const VertexNumbers & vertexIndices() const { return vertexIndices_; }
    const LocalNumbers & stripIndices() const { return stripIndices_; }
    const VertexNumbers & stripRanges() const { return stripRanges_; }
    const LocalNumbers & borderIndices(Border border) const { return borderIndices_[border]; }
    bool isOuterBorder(Border border) const { return isOuterBorder_[border]; }

    /// For each vertex the height of the parent patch's surface there; null at the root.
    const Heights & parentHeights() const { return parentHeights_; }
    void setParentHeights(Heights heights) { parentHeights_ = heights; }

    /// The shapes that the painter builds on first use, and keeps here: the surface with skirts, and the
    /// outer wall. They belong to the engine that first painted the patch; render thread only.
    NBX::SO<NBX::Shape> & patchShape() const { return patchShape_; }
    NBX::SO<NBX::Shape> & wallShape() const { return wallShape_; }

protected:
    TinPatch();

private:
    NBX::SO<GeometryData> data_;
    VertexNumbers vertexIndices_;
    LocalNumbers stripIndices_;
    VertexNumbers stripRanges_;
    std::array<LocalNumbers, s_borders> borderIndices_;
    Heights parentHeights_;
    std::array<bool, s_borders> isOuterBorder_{};
    mutable NBX::SO<NBX::Shape> patchShape_;
    mutable NBX::SO<NBX::Shape> wallShape_;
};

} // namespace ZMT::CORE
