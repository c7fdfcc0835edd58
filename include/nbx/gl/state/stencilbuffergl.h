#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Test against and writing of the stencil buffer. Without such an attribute there is no test.
class StencilBufferGL : public MonoAttribute {
    NBX_CLASS(StencilBufferGL, MonoAttribute)
public:
    enum Operation {
        O_None = 0, ///< no test
        O_Test = 2,
    };

    /// The arguments of glStencilFunc and glStencilOp.
    StencilBufferGL(unsigned operation, unsigned function, int reference, unsigned mask, unsigned onFail,
                    unsigned onDepthFail, unsigned onPass);

    bool tests() const { return (operation_ & O_Test) != 0; }
    unsigned function() const { return function_; }
    int reference() const { return reference_; }
    unsigned mask() const { return mask_; }
    unsigned onFail() const { return onFail_; }
    unsigned onDepthFail() const { return onDepthFail_; }
    unsigned onPass() const { return onPass_; }

private:
    unsigned operation_, function_;
    int reference_;
    unsigned mask_, onFail_, onDepthFail_, onPass_;
};

} // namespace NBX
