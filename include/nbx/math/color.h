#pragma once

#include <array>

namespace NBX {

/// Red, green, blue, alpha, from 0 to 1.
class Color {
public:
    /// Opaque black.
    constexpr Color() : Color(0.0F) {}
    /// Opaque grey.
    constexpr explicit Color(float grey) : c_{grey, grey, grey, 1.0F} {}
    constexpr explicit Color(double grey) : Color(static_cast<float>(grey)) {}
    constexpr Color(float r, float g, float b, float a = 1.0F) : c_{r, g, b, a} {}
    constexpr Color(double r, double g, double b, double a = 1.0)
        : Color(static_cast<float>(r), static_cast<float>(g), static_cast<float>(b), static_cast<float>(a)) {}

    constexpr float & operator[](unsigned i) { return c_[i]; }
    constexpr float operator[](unsigned i) const { return c_[i]; }
    /// Four consecutive components.
    constexpr const float * data() const { return c_.data(); }
    constexpr bool operator==(const Color &) const = default;

    static const Color black, white, red, green, blue, yellow, gold, lt_blue;

private:
    std::array<float, 4> c_;
};

inline constexpr Color Color::black{0.0F};
inline constexpr Color Color::white{1.0F};
inline constexpr Color Color::red{1.0F, 0.0F, 0.0F};
inline constexpr Color Color::green{0.0F, 1.0F, 0.0F};
inline constexpr Color Color::blue{0.0F, 0.0F, 1.0F};
inline constexpr Color Color::yellow{1.0F, 1.0F, 0.0F};
inline constexpr Color Color::gold{1.0F, 0.843F, 0.0F};
inline constexpr Color Color::lt_blue{0.678F, 0.847F, 0.902F};

} // namespace NBX
