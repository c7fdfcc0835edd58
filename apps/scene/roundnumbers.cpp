#include "roundnumbers.h"

#include <cmath>
#include <cstdio>

namespace {

/// What powers and logarithms may be off by.
constexpr double s_roundness = 1e-12;

double powerOfTenBelow(double number) {
    return std::pow(10.0, std::floor(std::log10(number)));
}

} // namespace

double roundNumberFrom(double least) {
    const double power = powerOfTenBelow(least);
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= least * (1.0 - s_roundness)) return factor * power;
    return 10.0 * power;
}

double roundNumberTo(double most) {
    const double power = powerOfTenBelow(most);
    for (const double factor : {10.0, 5.0, 2.0})
        if (factor * power <= most * (1.0 + s_roundness)) return factor * power;
    return power;
}

std::string roundLengthText(double metres) {
    char text[40];
    if (metres < 1000.0)
        std::snprintf(text, sizeof text, "%.6g m", metres);
    else
        std::snprintf(text, sizeof text, "%.6g km", metres / 1000.0);
    return text;
}
