#pragma once

#include <span>
#include <vector>

#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace NBX {
class Image;
}

namespace ZMT::CORE {

class GridData;

/// Pictures of a grid for terrains that have no image of their own: one texel a vertex, or one for several
/// where the grid is larger than `maxSide` in a direction. Line 0 is the row of the least z. All are meant
/// to cover the grid's bounding box, enlarged by half a texel on each side.
class ReliefImage {
public:
    static constexpr unsigned s_maxSide = 4096;

    /// Colours by height, from green lowlands to white summits, over the range of the defined heights; grey
    /// where the height is undefined. Where the range goes from below 0 to above, what is below is sea, which
    /// is the darker a blue the deeper it is, and lowlands begin at 0. Where cells have shapes of their own,
    /// the heights are those of the shapes, and there are four texels for each vertex in each direction.
    /// Three layers of 8 bits.
    static NBX::SO<NBX::Image> createHeightColors(const GridData & grid, unsigned maxSide = s_maxSide);

    /// A height and its colour, whose opacity is not read.
    struct Tint {
        double height;
        NBX::Color color;
        bool operator==(const Tint &) const = default;
    };
    /// The colours above for heights from `low` to `high`, lowest first.
    static std::vector<Tint> usualTints(double low, double high);
    /// The same picture with colours between those of `tints`, which are sorted by height, and at least one:
    /// what is lower than the first, or higher than the last, has their colour. Of two for one height the
    /// latter holds from there on.
    static NBX::SO<NBX::Image> createHeightColors(const GridData & grid, std::span<const Tint> tints,
                                                  unsigned maxSide = s_maxSide);

    /// The share of light that the surface gives back: `ambient` plus the rest times the cosine of the angle
    /// between its normal and `direction`, which points to the light (Lambert's law). The surface is that of
    /// the heights times `exaggeration`, which is above 0. One layer of 8 bits.
    static NBX::SO<NBX::Image> createShading(const GridData & grid,
                                             const NBX::Vector3Base<double> & direction, double ambient,
                                             unsigned maxSide = s_maxSide, double exaggeration = 1.0);

    /// The normals of that surface as colours, each component from -1 to 1 as 0 to 1, for light of each
    /// pixel. Three layers of 8 bits.
    static NBX::SO<NBX::Image> createNormals(const GridData & grid, unsigned maxSide = s_maxSide,
                                             double exaggeration = 1.0);

    /// The share of light, as above, of a surface whose normals are such colours. Null, reported, for a
    /// picture that is not of three layers of 8 bits.
    static NBX::SO<NBX::Image> createShading(const NBX::Image & normals,
                                             const NBX::Vector3Base<double> & direction, double ambient);
};

} // namespace ZMT::CORE
