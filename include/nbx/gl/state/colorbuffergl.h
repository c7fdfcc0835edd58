#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// What fragments do to the colour buffer: blending, the components that are written, the alpha test. Each
/// attribute sets some of these; for the others those further down the stack hold, and at its bottom: no
/// blending, all components, no test.
class ColorBufferGL : public MonoAttribute {
    NBX_STORED_CLASS(ColorBufferGL, MonoAttribute)
public:
    /// What an attribute sets; values may be joined with `|`.
    enum Operation {
        O_Blending = 1,
        O_Lock = 2,
        O_AlphaTest = 4,
        O_All = 8, ///< all values of the attribute; nothing further down holds
    };

    /// Sets nothing but what `operations` has: `O_All` for the state at the bottom of the stack, or 0.
    explicit ColorBufferGL(unsigned operations);

    /// `function` such as GL_GREATER.
    static ColorBufferGL * newAlphaTest(bool enabled, unsigned function, double reference);
    /// Factors such as GL_SRC_ALPHA; `constant` is the colour of GL_CONSTANT_COLOR and GL_CONSTANT_ALPHA.
    /// With GL_SRC_ALPHA and GL_ONE_MINUS_SRC_ALPHA the alpha of the target becomes that of both one over the
    /// other.
    static ColorBufferGL * newBlending(bool enabled, unsigned sourceFactor, unsigned targetFactor,
                                       const Color & constant = Color(0.0F, 0.0F, 0.0F, 0.0F));
    /// Which components are written.
    static ColorBufferGL * newLock(bool red, bool green, bool blue, bool alpha);

    unsigned operations() const { return operations_; }

    struct Blending {
        bool enabled = false;
        unsigned source = 1, target = 0;
        Color constant{0.0F, 0.0F, 0.0F, 0.0F};
    };
    struct AlphaTest {
        bool enabled = false;
        unsigned function = 0x0207; ///< GL_ALWAYS
        double reference = 0.0;
    };
    const Blending & blending() const { return blending_; }
    const AlphaTest & alphaTest() const { return alphaTest_; }
    bool writes(unsigned component) const { return writes_[component]; }

    /// For attributes that set several things at once.
    void setBlending(const Blending & blending);
    void setAlphaTest(const AlphaTest & test);
    void setLock(bool red, bool green, bool blue, bool alpha);

    /// Attributes "operations" (default 0), "blends" (false), "sourceFactor" (1), "targetFactor" (0),
    /// "constant" (transparent black), "testsAlpha" (false), "function" (GL_ALWAYS), "reference" (0) and
    /// "writes_0" to "writes_3" (true). Throws `IOError` for a function or factors that do not exist.
    void serialize(SerializationManager & m) override;

private:
    ColorBufferGL() : ColorBufferGL(0) {}

    unsigned operations_;
    Blending blending_;
    AlphaTest alphaTest_;
    bool writes_[4] = {true, true, true, true};
};

} // namespace NBX
