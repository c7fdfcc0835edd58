#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Test against and writing of the depth buffer. An attribute may leave some of its values open; for those
/// the ones further down the stack hold, and at its bottom: test on, written, GL_LESS, range 0 to 1.
class DepthBufferGL : public MonoAttribute {
    NBX_STORED_CLASS(DepthBufferGL, MonoAttribute)
public:
    /// What an attribute sets; values may be joined with `|`.
    enum Operation {
        O_Test = 1,  ///< whether depth is tested
        O_Write = 2, ///< whether depth is written
        O_Function = 4,
        O_All = 8, ///< all values of the attribute; nothing further down holds
    };

    DepthBufferGL(unsigned operations, bool write, bool test, unsigned function, double nearRange,
                  double farRange);
    /// Whether depth is written and tested; everything else is at its default.
    DepthBufferGL(bool write, bool test);

    unsigned operations() const { return operations_; }
    bool writes() const { return write_; }
    bool tests() const { return test_; }
    unsigned function() const { return function_; }
    double nearRange() const { return near_; }
    double farRange() const { return far_; }

    /// Attributes "operations", "write" (default true), "test" (true), "function" (GL_LESS), "nearRange" (0),
    /// "farRange" (1). Throws `IOError` for a function that does not exist.
    void serialize(SerializationManager & m) override;

private:
    DepthBufferGL() : DepthBufferGL(true, true) {}

    unsigned operations_;
    bool write_, test_;
    unsigned function_;
    double near_, far_;
};

} // namespace NBX
