#pragma once

namespace ZMT::RASTER {

/// A surface of the second degree around a cell: its height is `xx x² + yy y² + xy x y + x x + y y` above the
/// cell's, for distances x to the east and y to the north. NaN in one number is NaN in all of them.
struct QuadraticSurface {
    double xx = 0.0, yy = 0.0, xy = 0.0;
    double x = 0.0, y = 0.0; ///< the gradient: height units a map unit, positive where it rises

    /// How the ground bends, in 1 / map unit; positive where it is convex, as on ridges and summits. After
    /// J. Wood, The Geomorphological Characterisation of Digital Elevation Models, University of Leicester,
    /// 1996, and I. S. Evans, An Integrated System of Terrain Analysis and Slope Mapping, 1980.
    enum Curvature {
        C_CrossSection, ///< of the section across the line of steepest slope
        C_Longitudinal, ///< of the section along it, as a parabola
        C_Profile,      ///< along it, as a circle that touches the ground
        C_Plan,         ///< of the contour
        C_Mean,         ///< half the sum over two sections at right angles, as parabolas
    };
    static constexpr int curvatures = 5;
    /// Such as "cross-section".
    static const char * curvatureName(Curvature kind);

    /// From 0 to 90 degrees.
    double slope() const;
    /// Where the ground is level there is no direction to go by, and all but the mean are 0.
    double curvature(Curvature kind) const;
};

} // namespace ZMT::RASTER
