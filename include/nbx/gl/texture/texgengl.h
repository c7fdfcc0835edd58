#pragma once

#include <nbx/math/matrix4x4base.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Makes texture coordinates from vertices. Pushed on an engine it holds for all texture units whose
/// `TextureUnitSettingGL` has no generator of its own; the vertices' own texture coordinates play no part
/// then.
class TexGenGL : public MonoAttribute {
    NBX_STORED_CLASS(TexGenGL, MonoAttribute)
public:
    enum Mode {
        M_ObjectLinear = 0, ///< from object coordinates
        M_EyeLinear = 1, ///< from view coordinates; the planes stand in the frame in which they are applied
        M_SphereMap = 2, ///< s and t from the reflected view direction; the planes play no part
    };

    /// The rows of `planes` make s, t, r and q: the coordinate is the row times (x, y, z, 1).
    explicit TexGenGL(Mode mode = M_ObjectLinear,
                      const Matrix4x4Base<double> & planes = Matrix4x4Base<double>());

    Mode getMode() const { return mode_; }
    const Matrix4x4Base<double> & getPlanes() const { return planes_; }
    void setPlanes(const Matrix4x4Base<double> & planes);

    /// Emits the generation for the active texture unit, and switches it off.
    void enable() const;
    static void disable();

    /// Attributes "mode" (default 0) and "planes" (identity).
    void serialize(SerializationManager & m) override;

private:
    Mode mode_;
    Matrix4x4Base<double> planes_;
};

} // namespace NBX
