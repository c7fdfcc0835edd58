#pragma once

#include <nbx/gl/texture/texturegl.h>
#include <nbx/image/image.h>
#include <nbx/math/area.h>
#include <nbx/math/bounds.h>

namespace ZMT::CORE {

/// Where the used part of a source texture lies in an atlas. What is drawn and what triangles look up agree:
/// both go by the same mapping, with its factor.
class AtlasPlace {
public:
    using Point = NBX::Vector3Base<double>;

    /// `part` in coordinates of the texture, s in x and t in y, with the border that `area` has; `area` in
    /// texels of an atlas of `atlasSize` by `atlasSize`.
    AtlasPlace(const NBX::Bounds & part, const NBX::Area & area, int atlasSize);

    /// The coordinates in the atlas, 0 to 1, for those in the texture. Along an axis in which the part has
    /// less than 1e-10, that of the lower edge.
    Point atlasCoordinates(const Point & textureCoordinates) const;
    /// Those that `draw` writes, within the atlas.
    NBX::Area texels() const;
    /// Draws the part on the atlas, of 8-bit RGBA, box-filtered.
    void draw(const NBX::Image & source, NBX::TextureGL::WrapMode wrapS, NBX::TextureGL::WrapMode wrapT,
              NBX::Image & atlas) const;

private:
    struct Axis {
        double minimum, extent; ///< of the part
        double begin, length;   ///< of the area, in texels
    };
    double atlasCoordinate(const Axis & axis, double coordinate) const;
    struct Pixels;
    Pixels pixelsOf(const Axis & axis, NBX::TextureGL::WrapMode wrap) const;

    Axis s_, t_;
    double atlasSize_, factor_;
};

} // namespace ZMT::CORE
