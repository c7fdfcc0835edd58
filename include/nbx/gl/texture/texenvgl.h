#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How a texture and the colour of the fragment become one colour. Pushed on an engine it holds for unit 0.
///
/// Stored attributes: "mode" (default 0) and "environmentColor" with its alpha (default transparent black).
class TexEnvGL : public MonoAttribute {
    NBX_STORED_CLASS(TexEnvGL, MonoAttribute)
public:
    enum Mode {
        M_Modulate = 0,
        M_Decal = 1,
        M_Blend = 2,
        M_Replace = 3,
        M_Add = 4,
        M_Combine = 5, ///< see `TexEnvCombineGL`
    };

    explicit TexEnvGL(Mode mode = M_Modulate);

    Mode getMode() const { return mode_; }
    /// The constant colour; at the start transparent black.
    void setEnvironmentColor(const Color & color);
    const Color & getEnvironmentColor() const { return environmentColor_; }

    /// The name of this class for all subclasses.
    ID category() const override;
    /// Emits the environment for the active texture unit, and the default one.
    virtual void enable() const;
    static void disable();

    void serialize(SerializationManager & m) override;

private:
    Mode mode_;
    Color environmentColor_{0.0F, 0.0F, 0.0F, 0.0F};
};

} // namespace NBX
