#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

class Engine;

/// Whether and how surfaces are lit. Without such an attribute they are lit when there are lights.
class LightModelGL : public MonoAttribute {
    NBX_STORED_CLASS(LightModelGL, MonoAttribute)
public:
    /// Values may be joined with `|`; 0 is no lighting.
    enum Mode {
        M_Lighting = 1, ///< surfaces are lit
        M_Ambient = 2,  ///< the light from everywhere has the colour `ambient`, not the default grey of 0.2
        M_TwoSided = 4, ///< backs are lit as such
    };

    explicit LightModelGL(int mode, const Color & ambient = Color(0.2));

    int getMode() const { return mode_; }
    const Color & getAmbient() const { return ambient_; }

    /// Switches lighting as the current attribute of `engine` says; without one by its enabled lights. Under
    /// a `DisableShading` it is off. To be called when the lights have changed. `leaving` is an attribute
    /// that is just ceasing to be the current one; null for none.
    static void updateLighting(Engine * engine, const MonoAttribute * leaving = nullptr);

    /// Attributes "mode" (default 0), "ambient" (grey of 0.2).
    void serialize(SerializationManager & m) override;

private:
    LightModelGL() : LightModelGL(0) {}

    int mode_;
    Color ambient_;
};

} // namespace NBX
