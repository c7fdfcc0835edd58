#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// The colours of a surface under light and without. One colour is the plain one: it is what unlit surfaces
/// show, and it stands in for those components of the lit material that `component` names. The same goes for
/// colours that vertices bring along.
class ShapeMaterialGL : public MonoAttribute {
    NBX_CLASS(ShapeMaterialGL, MonoAttribute)
public:
    enum Component {
        C_None = 0, ///< lit surfaces do not show the plain colour
        C_Ambient = 1,
        C_Diffuse = 2,
        C_AmbientAndDiffuse = 3,
        C_Specular = 4,
        C_Emission = 5,
    };

    /// `shininess` is the exponent of the highlight, from 0 to 128. `ambient`, `diffuse` and `emission` count
    /// where `component` does not name them. With `twoSided` the back of surfaces has this material as well.
    ShapeMaterialGL(const Color & color, const Color & specular, double shininess,
                    int component = C_AmbientAndDiffuse, const Color & ambient = Color(0.2),
                    const Color & diffuse = Color(0.8), const Color & emission = Color::black,
                    bool twoSided = false, bool enabled = true);

    const Color & getColor() const { return color_; }
    const Color & getSpecular() const { return specular_; }
    const Color & getAmbient() const { return ambient_; }
    const Color & getDiffuse() const { return diffuse_; }
    const Color & getEmission() const { return emission_; }
    double getShininess() const { return shininess_; }
    Component getComponent() const { return component_; }
    bool isTwoSided() const { return twoSided_; }

private:
    Color color_, specular_, ambient_, diffuse_, emission_;
    double shininess_;
    Component component_;
    bool twoSided_;
};

} // namespace NBX
