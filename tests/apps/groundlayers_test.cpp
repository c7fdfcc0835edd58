#include "groundlayers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <ostream>

#include <gtest/gtest.h>

#include <nbx/image/image.h>
#include <nbx/math/color.h>

#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

using NBX::Color;
using Point = NBX::Vector3Base<double>;
using Arguments = std::vector<std::string>;

/// Ground that rises by so much a metre.
struct Slope {
    const char * name;
    double east, north;
};

constexpr Slope s_slopes[] = {{"flat", 0.0, 0.0}, {"rising to the south-east", 0.4, -0.3}};

SmallGeoTiff slope(const Slope & slope, unsigned width, unsigned height) {
    SmallGeoTiff tiff{width, height};
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            tiff.heights.push_back(float(tiff.cell * (slope.east * x - slope.north * y)));
    return tiff;
}

struct Sun {
    double azimuth, elevation, ambient;

    std::string text() const {
        char buffer[80];
        std::snprintf(buffer, sizeof buffer, "%g,%g,%g", azimuth, elevation, ambient);
        return buffer;
    }
    /// What ground of this slope gives back.
    double on(const Slope & slope, double exaggeration) const {
        const double a = azimuth * std::numbers::pi / 180.0, e = elevation * std::numbers::pi / 180.0;
        const Point toSun(std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e));
        const Point normal(-slope.east * exaggeration, 1.0, -slope.north * exaggeration);
        return ambient + (1.0 - ambient) * std::max(0.0, normal.normalized().dot(toSun));
    }
};

constexpr Sun s_everywhere{0.0, 90.0, 1.0};

/// The middle of the terrain from straight above.
Color middleOf(const RunFolder & folder, Arguments arguments) {
    const std::string out = folder.out("p.png");
    arguments.insert(arguments.begin(), "render");
    arguments.insert(arguments.end(), {"--view", "north", "--size", "30x30", "--out", out});
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(0, run.status) << run.errors;
    const auto picture = readPng(out);
    return picture ? picture->getColor(15, 15) : Color::black;
}

struct LightCase {
    const char * name;
    Arguments arguments;
};

std::ostream & operator<<(std::ostream & stream, const LightCase & c) {
    return stream << c.name;
}

class Light : public ::testing::TestWithParam<LightCase> {
protected:
    Color shown(const std::string & terrain, const Sun & sun, double exaggeration) const {
        Arguments arguments = {"--terrain",      terrain,          "--patches",
                               "--max-vertices", "20000",          "--light",
                               sun.text(),       "--exaggeration", std::to_string(exaggeration)};
        arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
        return middleOf(folder, arguments);
    }

    const RunFolder folder;
};

/// Whatever the shape of the terrain, which a picture from above fills.
TEST_P(Light, IsThatOfTheExaggeratedSurface) {
    const struct {
        unsigned width, height;
        Sun sun;
    } cases[] = {{33, 33, {315.0, 45.0, 0.0}}, {65, 17, {100.0, 30.0, 0.2}}, {17, 65, {20.0, 70.0, 0.35}}};
    const Color full = shown(folder.write("t.tif", slope(s_slopes[0], 9, 9).encode()), s_everywhere, 1.0);
    for (const auto & [width, height, sun] : cases)
        for (const Slope & s : s_slopes) {
            const std::string terrain = folder.write("t.tif", slope(s, width, height).encode());
            for (const double exaggeration : {0.2, 1.0, 5.0}) {
                const Color color = shown(terrain, sun, exaggeration);
                for (unsigned c = 0; c < 3; ++c)
                    EXPECT_NEAR(color[c], full[c] * sun.on(s, exaggeration), 2.0 / 255.0)
                        << s.name << ", " << width << " x " << height << ", times " << exaggeration;
            }
        }
}

TEST_P(Light, FromEverywhereLeavesTheColoursAsTheyAre) {
    const std::string terrain = folder.write("t.tif", slope(s_slopes[1], 17, 17).encode());
    const auto shown = [&](const char * ambient) {
        Arguments arguments = {"--terrain", terrain, "--light", std::string("315,45,") + ambient};
        arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
        return middleOf(folder, arguments);
    };
    const Color almost = shown("0.9999"), all = shown("1");
    for (unsigned c = 0; c < 3; ++c)
        EXPECT_NEAR(almost[c], all[c], 1.5 / 255.0);
    EXPECT_LT(all[2], 0.9F) << "not white";
}

const LightCase s_lights[] = {{"relief", {"--lighting", "relief"}},
                              {"vertex", {"--lighting", "vertex"}},
                              {"static", {"--lighting", "static"}},
                              {"dynamic", {"--lighting", "dynamic"}}};

INSTANTIATE_TEST_SUITE_P(GroundLayers, Light, ::testing::ValuesIn(s_lights),
                         [](const auto & info) { return std::string(info.param.name); });

} // namespace
