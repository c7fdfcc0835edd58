#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How faces are drawn: filled, which is the default, as wire frames, or as points.
class PolygonModeGL : public MonoAttribute {
    NBX_CLASS(PolygonModeGL, MonoAttribute)
public:
    /// OpenGL's own numbers.
    enum Mode { M_Point = 0x1B00, M_Line = 0x1B01, M_Fill = 0x1B02 };

    explicit PolygonModeGL(unsigned mode);

    unsigned getMode() const { return mode_; }

private:
    unsigned mode_;
};

} // namespace NBX
