#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Moves the depth of faces by `factor` times their slope plus `units` steps of the depth buffer.
class PolygonOffsetGL : public MonoAttribute {
    NBX_CLASS(PolygonOffsetGL, MonoAttribute)
public:
    /// For faces that are drawn filled, as lines, as points; values may be joined with `|`.
    enum Faces { F_Points = 1, F_Filled = 2, F_Lines = 4 };

    PolygonOffsetGL(unsigned faces, double factor, double units);

    unsigned getFaces() const { return faces_; }
    double getFactor() const { return factor_; }
    double getUnits() const { return units_; }

private:
    unsigned faces_;
    double factor_, units_;
};

} // namespace NBX
