#pragma once

#include <array>
#include <cstdint>

#include <nbx/container/sequence/iterator.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/tree/patchblock.h>

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
    /// side lies on the edge of the whole grid. The lists are copied, but what they refer to is not checked;
    /// writing reports those that were no arrays.
    TinPatch(const NBX::SO<GeometryData> & data, const VertexNumbers & vertexIndices,
             const LocalNumbers & stripIndices, const VertexNumbers & stripRanges,
             const LocalNumbers & border0, bool outer0, const LocalNumbers & border1, bool outer1,
             const LocalNumbers & border2, bool outer2, const LocalNumbers & border3, bool outer3,
             const NBX::Bounds & bbox, double approxError, double wall, const NBX::SO<Children> & children);
    ~TinPatch() override;

    NBX::SO<GeometryData> data() const override;
    /// The cells are those between the first and the last corner, where the data is a grid.
    Description description() const override;
    StripMesh surface(const NBX::Vector3Base<double> & zero) const override;
    /// Throws `NBX::IOError` where the stored lists do not fit together, or not to the data.
    void serialize(NBX::SerializationManager & m) override;

    /// The lists are views that keep the patch and show what it had when they were made; null where empty.
    VertexNumbers vertexIndices() const;
    LocalNumbers stripIndices() const;
    VertexNumbers stripRanges() const;
    LocalNumbers borderIndices(Border border) const;
    bool isOuterBorder(Border border) const { return isOuterBorder_[border]; }

    /// For each vertex the height of the parent patch's surface there; null at the root.
    Heights parentHeights() const;
    /// Copies `heights`, which may be null.
    void setParentHeights(const Heights & heights);

    /// The shapes that the painter builds on first use, and keeps here: the surface with skirts, and the
    /// outer wall. They belong to the engine that first painted the patch; render thread only.
    NBX::SO<NBX::Shape> & patchShape() const { return patchShape_; }
    NBX::SO<NBX::Shape> & wallShape() const { return wallShape_; }

protected:
    TinPatch();

private:
    /// All lists of numbers in one block of memory, as trees hold hundreds of thousands of patches.
    struct Lists {
        unsigned vertices = 0, strips = 0, ranges = 0;
        std::array<unsigned, s_borders> borders{};
        PatchBlock block; ///< shared by views

        void allocate();
        unsigned * vertexNumbers() const { return static_cast<unsigned *>(block.data()); }
        unsigned * rangeEnds() const { return vertexNumbers() + vertices; }
        unsigned short * stripNumbers() const {
            return reinterpret_cast<unsigned short *>(rangeEnds() + ranges);
        }
        unsigned short * borderNumbers(unsigned border) const;
    };

    enum List { L_Vertices, L_Strips, L_Ranges, L_ParentHeights, L_Borders, L_Count = L_Borders + s_borders };

    void readLists(NBX::SerializationManager & m);
    void writeLists(NBX::SerializationManager & m);
    bool listsFit() const;
    NBX::Area cells() const;
    bool isArray(unsigned list) const { return (isArray_ >> list & 1) != 0; }
    /// Notes whether the list was one.
    void noteArray(unsigned list, bool isArray);
    const float * heightsOfParent() const { return static_cast<const float *>(parentHeights_.data()); }

    NBX::SO<GeometryData> data_;
    Lists lists_;
    unsigned parentHeightCount_ = 0;
    /// One bit a `List`: the list was given in contiguous memory.
    std::uint8_t isArray_ = 0xFF;
    std::array<bool, s_borders> isOuterBorder_{};
    PatchBlock parentHeights_; ///< shared by views
    mutable NBX::SO<NBX::Shape> patchShape_;
    mutable NBX::SO<NBX::Shape> wallShape_;
};

} // namespace ZMT::CORE
