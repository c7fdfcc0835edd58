#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Clears parts of the frame buffer where the engine reaches it in a node, for what follows to be drawn over
/// what came before. It changes nothing when it is left.
class FrameBufferGL : public MonoAttribute {
    NBX_CLASS(FrameBufferGL, MonoAttribute)
public:
    /// The buffers it is for; values may be joined with `|`.
    enum Mask { M_Color = 1, M_Depth = 2, M_Stencil = 4 };
    enum Operation {
        O_None = 0,
        O_Clear = 2, ///< to the values in force, whatever is masked for drawing, within the scissor box
    };

    /// Unknown bits of the mask are reported and have no effect.
    explicit FrameBufferGL(unsigned mask, Operation operation = O_Clear);

    unsigned mask() const { return mask_; }
    Operation operation() const { return operation_; }
    void setOperation(Operation operation);

private:
    unsigned mask_;
    Operation operation_;
};

} // namespace NBX
