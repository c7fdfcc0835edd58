#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How lines are drawn: their width, and which of their pixels are left out. Without such an attribute they
/// are one pixel wide and whole.
class LineStyle : public MonoAttribute {
    NBX_STORED_CLASS(LineStyle, MonoAttribute)
public:
    static constexpr unsigned wholeLine = 0xFFFF;

    /// `width` is in pixels, above 0; the driver draws the widest lines that it can in the place of wider
    /// ones. Along a line, the bits of `stipple`, 16 of them, the lowest first, say what is drawn, each for
    /// `stippleFactor` pixels, 1 to 256. Every line of its own, but not every segment of a strip, begins with
    /// the lowest bit. Other values are reported; a width of 1, the lower bits of the pattern, and the
    /// nearest factor then take their place.
    explicit LineStyle(double width = 1.0, unsigned stipple = wholeLine, unsigned stippleFactor = 1);

    double getWidth() const { return width_; }
    unsigned getStipple() const { return stipple_; }
    unsigned getStippleFactor() const { return stippleFactor_; }
    /// What the constructor takes.
    void setWidth(double width);
    void setStipple(unsigned stipple, unsigned stippleFactor = 1);

    /// Attributes "width" (default 1), "stipple" (0xFFFF), "stippleFactor" (1).
    void serialize(SerializationManager & m) override;

private:
    double width_;
    unsigned stipple_, stippleFactor_;
};

} // namespace NBX
