#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nbx/math/color.h>

namespace ZMT::CORE {

/// A length of what is drawn.
struct VectorSize {
    enum class Unit {
        Pixels, ///< of the texture, or of the screen for what stands upright
        Metres, ///< on the ground
    };
    double value = 0.0;
    Unit unit = Unit::Pixels;

    /// In pixels of `metresPerPixel`, `scale` of which are one of the style.
    double pixels(double metresPerPixel, double scale = 1.0) const {
        return unit == Unit::Pixels ? value * scale : value / metresPerPixel;
    }
};

/// How a feature is drawn. What is missing is not drawn.
struct VectorStyle {
    struct Stroke {
        NBX::Color color;
        VectorSize width{1.0};
        /// Lengths of dashes and gaps in turn, in pixels of the texture; empty for a whole line.
        std::vector<double> dash;
    };
    struct Symbol {
        enum class Form { Circle, Square, Diamond, Triangle, Cross };
        Form form = Form::Circle;
        NBX::Color color;
        VectorSize size{6.0}; ///< from one side to the other
    };
    struct Label {
        std::string field;
        VectorSize size{12.0}; ///< of an em; in metres it lies on the ground, otherwise it stands upright
        NBX::Color color;
        double haloWidth = 0.0; ///< in the unit of the size
        NBX::Color haloColor;
        /// N of the smallest scale 1 : N at which it shows, with pixels of 0.28 mm; 0 for every scale.
        double smallestScale = 0.0;
        bool isDraped() const { return size.unit == VectorSize::Unit::Metres; }
    };

    std::optional<Stroke> stroke; ///< of lines, and of outlines of areas
    std::optional<NBX::Color> fill;
    std::optional<Symbol> symbol;
    std::optional<Label> label;
};

} // namespace ZMT::CORE
