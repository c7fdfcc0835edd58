#pragma once

#include <nbx/object/callback.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

namespace ZMT::CORE {

/// A round spot of intensity that can be moved over a terrain: one value inside, another one outside, and a
/// seam between them. Beyond the lens the outside goes on.
///
/// Centre and radius are those of the box of the texture, in scene coordinates; only x and z count. The
/// centre has the height of the box's lower corner.
class LensTexture : public SimpleTerrainTexture {
    NBX_STORED_CLASS(LensTexture, SimpleTerrainTexture)
public:
    using Point = NBX::Vector3Base<double>;
    /// From the distance to the centre, 1 at the edge of the lens, to the intensity, which is cut to 0 to 1.
    using Intensity = NBX::CallbackR1<double, double>;

    /// Where the texture carries the intensity. Another value is reported under "false" with "invalid
    /// texture type", and is as the first one.
    enum TextureType { TT_Luminance = 0, TT_Alpha = 1, TT_Intensity = 2 };

    /// `inner` from the centre on, `outer` from the edge on, and in between, over the part `fade` of the
    /// radius, a linear seam; all are cut to 0 to 1. `radius` has a part along x and one along z.
    LensTexture(double inner, double outer, double fade, TextureType type, const Point & center,
                const Point & radius);
    /// The intensity is asked in this constructor only. A null one is reported under "intensity" with "no
    /// intensity", and gives 0.
    LensTexture(Intensity * intensity, TextureType type, const Point & center, const Point & radius);

    virtual Point getCenter() const;
    virtual void setCenter(const Point & c);
    virtual Point getRadius() const;
    /// The signs do not count, nor the height.
    virtual void setRadius(const Point & r);

protected:
    /// For reading.
    LensTexture();
};

} // namespace ZMT::CORE
