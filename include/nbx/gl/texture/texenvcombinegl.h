#pragma once

#include <nbx/gl/texture/texenvgl.h>

namespace NBX {

/// A texture environment that computes colour and alpha from up to three arguments each. All values are the
/// numbers of OpenGL (1.3, and the crossbar sources GL_TEXTUREn of 1.4). At the start colour and alpha are
/// those of the unit before.
///
/// Stored attributes: "color" and "alpha", each a mode, the number of arguments, and three arguments of two
/// numbers, and "colorScale" (default 1).
class TexEnvCombineGL : public TexEnvGL {
    NBX_STORED_CLASS(TexEnvCombineGL, TexEnvGL)
public:
    /// A source, such as GL_TEXTURE, GL_CONSTANT, GL_PRIMARY_COLOR or GL_PREVIOUS, and what of it is used,
    /// such as GL_SRC_COLOR or GL_SRC_ALPHA.
    struct Argument {
        unsigned source;
        unsigned operand;
    };

    TexEnvCombineGL();

    /// `mode`: GL_REPLACE (1 argument), GL_MODULATE, GL_ADD, GL_ADD_SIGNED, GL_SUBTRACT, GL_DOT3_RGB,
    /// GL_DOT3_RGBA (2), GL_INTERPOLATE (3: argument 0 where argument 2 is 1, argument 1 where it is 0).
    void setColor(unsigned mode, const Argument & argument0);
    void setColor(unsigned mode, const Argument & argument0, const Argument & argument1);
    void setColor(unsigned mode, const Argument & argument0, const Argument & argument1,
                  const Argument & argument2);
    /// The same for alpha, with the operands GL_SRC_ALPHA and GL_ONE_MINUS_SRC_ALPHA.
    void setAlpha(unsigned mode, const Argument & argument0);
    void setAlpha(unsigned mode, const Argument & argument0, const Argument & argument1);
    /// The colour is multiplied by 1, 2 or 4 before it is clamped.
    void setColorScale(int scale);

    unsigned colorMode() const { return color_.mode; }
    const Argument & colorArgument(unsigned i) const { return color_.arguments[i]; }
    void setColorArgument(unsigned i, const Argument & argument) { color_.arguments[i] = argument; }

    void enable() const override;

    void serialize(SerializationManager & m) override;

private:
    struct Function {
        unsigned mode;
        unsigned count;
        Argument arguments[3];
    };

    static void serializeFunction(SerializationManager & m, const char * name, Function & function);

    Function color_, alpha_;
    int colorScale_ = 1;
};

} // namespace NBX
