#pragma once

#include <nbx/image/image.h>
#include <nbx/object/so.h>

namespace ZMT::UTIL {

/// Brushes are images of one layer of 8 bits: how bright what they touch becomes at most.
class Brush {
public:
    /// Black up to the diameter `innerStrokeSize`, white from `strokeSize` on, with even steps between. Sizes
    /// that cannot be used are reported, and the result is null.
    static NBX::SO<NBX::Image> createRound(double strokeSize, double innerStrokeSize);

    /// Darkens `image` around the pixel (x, y), which the middle of the brush lies on; of one with an even
    /// number of pixels the one behind its middle. What lies outside is left out.
    static void stamp(const NBX::Image & brush, int x, int y, NBX::Image & image);

    /// The ink across the middle of the brush, in pixels that are black.
    static double inkWidth(const NBX::Image & brush);
};

} // namespace ZMT::UTIL
