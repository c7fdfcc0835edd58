#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How faces are drawn: GL_FILL, which is the default, GL_LINE for wire frames, or GL_POINT.
class PolygonModeGL : public MonoAttribute {
    NBX_CLASS(PolygonModeGL, MonoAttribute)
public:
    explicit PolygonModeGL(unsigned mode);

    unsigned getMode() const { return mode_; }

private:
    unsigned mode_;
};

} // namespace NBX
