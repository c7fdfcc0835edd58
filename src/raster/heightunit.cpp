#include <zmt/raster/heightunit.h>

#include <algorithm>
#include <cctype>
#include <iterator>

namespace ZMT::RASTER {

namespace {

constexpr double s_foot = 0.3048;
constexpr double s_surveyFoot = 1200.0 / 3937.0;

struct Unit {
    const char * name;
    double metres;
};

/// In lower case; a space, a hyphen and an underscore are the same.
constexpr Unit s_units[] = {
    {"", 1.0},
    {"m", 1.0},
    {"metre", 1.0},
    {"metres", 1.0},
    {"meter", 1.0},
    {"meters", 1.0},
    {"dm", 0.1},
    {"decimetre", 0.1},
    {"decimeter", 0.1},
    {"cm", 0.01},
    {"centimetre", 0.01},
    {"centimeter", 0.01},
    {"centimetres", 0.01},
    {"centimeters", 0.01},
    {"mm", 0.001},
    {"millimetre", 0.001},
    {"millimeter", 0.001},
    {"millimetres", 0.001},
    {"millimeters", 0.001},
    {"km", 1000.0},
    {"kilometre", 1000.0},
    {"kilometer", 1000.0},
    {"kilometres", 1000.0},
    {"kilometers", 1000.0},
    {"ft", s_foot},
    {"foot", s_foot},
    {"feet", s_foot},
    {"international foot", s_foot},
    {"international feet", s_foot},
    {"us survey foot", s_surveyFoot},
    {"us survey feet", s_surveyFoot},
    {"foot us", s_surveyFoot},
    {"us ft", s_surveyFoot},
    {"us foot", s_surveyFoot},
    {"us feet", s_surveyFoot},
    {"ftus", s_surveyFoot},
    {"ft us", s_surveyFoot},
    {"sft", s_surveyFoot},
    {"yd", 3.0 * s_foot},
    {"yard", 3.0 * s_foot},
    {"yards", 3.0 * s_foot},
    {"fathom", 6.0 * s_foot},
    {"fathoms", 6.0 * s_foot},
};

char plain(unsigned char letter) {
    return letter == '-' || letter == '_' ? ' ' : static_cast<char>(std::tolower(letter));
}

} // namespace

std::optional<double> HeightUnit::metres(const std::string & name) {
    std::string wanted;
    std::transform(name.begin(), name.end(), std::back_inserter(wanted), plain);
    const auto unit = std::find_if(std::begin(s_units), std::end(s_units),
                                   [&](const Unit & known) { return wanted == known.name; });
    return unit == std::end(s_units) ? std::nullopt : std::optional(unit->metres);
}

void HeightUnit::scale(SimpleRasterData<float> & heights, double factor) {
    const std::size_t count = static_cast<std::size_t>(heights.cellsX()) * heights.cellsY();
    std::for_each(heights.cells(), heights.cells() + count, [&](float & height) {
        if (!heights.isUndefValue(height)) height = static_cast<float>(height * factor);
    });
}

} // namespace ZMT::RASTER
