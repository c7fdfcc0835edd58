#include "landscape/groundlayers.h"

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

class LitGround : public ::testing::Test {
protected:
    /// Writes the terrain, and an image of one colour on it.
    void write(const Slope & ground, unsigned width, unsigned height) {
        folder.write("t.tif", slope(ground, width, height).encode());
        SmallGeoTiff image{width, height, SmallGeoTiff::Pixels::Colors};
        image.colors.assign(std::size_t(3) * width * height, 255);
        folder.write("i.tif", image.encode());
    }
    Color shown(Arguments arguments, const Arguments & lighting) const {
        arguments.insert(arguments.end(), {"--terrain", folder.in("t.tif"), "--image", folder.in("i.tif")});
        arguments.insert(arguments.end(), lighting.begin(), lighting.end());
        return middleOf(folder, arguments);
    }

    const RunFolder folder;
};

class Light : public LitGround, public ::testing::WithParamInterface<LightCase> {
protected:
    Color shown(const Arguments & arguments) const {
        return LitGround::shown(arguments, GetParam().arguments);
    }
};

/// Whatever the shape of the terrain, which a picture from above fills.
TEST_P(Light, IsThatOfTheExaggeratedSurface) {
    const struct {
        unsigned width, height;
        double exaggeration;
        Sun sun;
    } cases[] = {{33, 33, 0.2, {315.0, 45.0, 0.0}},
                 {65, 17, 1.0, {100.0, 30.0, 0.2}},
                 {17, 65, 5.0, {20.0, 70.0, 0.35}}};
    for (const auto & [width, height, exaggeration, sun] : cases)
        for (const Slope & s : s_slopes) {
            write(s, width, height);
            const Color color = shown(
                {"--light", sun.text(), "--exaggeration", std::to_string(exaggeration), "--shade-images"});
            for (unsigned c = 0; c < 3; ++c)
                EXPECT_NEAR(color[c], sun.on(s, exaggeration), 2.0 / 255.0)
                    << s.name << ", " << width << " x " << height << ", times " << exaggeration;
        }
}

TEST_P(Light, FallsOnImagesAsItIsAsked) {
    const Sun sun{90.0, 30.0, 0.2};
    const std::string lighting = GetParam().arguments[1];
    const bool isUsual = lighting == "dynamic" || lighting == "vertex";
    write(s_slopes[0], 17, 17);
    const double on = sun.on(s_slopes[0], 1.0);
    EXPECT_NEAR(shown({"--light", sun.text()})[0], isUsual ? on : 1.0, 2.0 / 255.0);
    EXPECT_NEAR(shown({"--light", sun.text(), "--shade-images"})[0], on, 2.0 / 255.0);
    if (lighting != "vertex") {
        EXPECT_NEAR(shown({"--light", sun.text(), "--no-shade-images"})[0], 1.0, 2.0 / 255.0);
    }
}

TEST_P(Light, FromEverywhereLeavesTheColoursAsTheyAre) {
    const std::string terrain = folder.write("t.tif", slope(s_slopes[1], 17, 17).encode());
    const auto coloured = [&](const char * ambient) {
        Arguments arguments = {"--terrain", terrain, "--light", std::string("315,45,") + ambient};
        arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
        return middleOf(folder, arguments);
    };
    const Color almost = coloured("0.9999"), all = coloured("1");
    for (unsigned c = 0; c < 3; ++c)
        EXPECT_NEAR(almost[c], all[c], 1.5 / 255.0);
    EXPECT_LT(all[2], 0.9F) << "not white";
}

/// Terrains with such lines are drawn as maps of normals.
TEST_F(LitGround, HasTheSameLightWithBreakLines) {
    const Sun sun{100.0, 30.0, 0.2};
    write(s_slopes[1], 33, 33);
    const std::string lines = folder.write("l.geojson", R"({"type": "LineString", "coordinates": )"
                                                        "[[87.00203, 28.02345], [87.00814, 28.01894]]}");
    for (const char * lighting : {"static", "dynamic"})
        for (const double exaggeration : {0.2, 1.0}) {
            const Color color = shown({"--light", sun.text(), "--exaggeration", std::to_string(exaggeration)},
                                      {"--breaklines", lines, "--lighting", lighting, "--shade-images"});
            EXPECT_NEAR(color[0], sun.on(s_slopes[1], exaggeration), 2.0 / 255.0)
                << lighting << ", times " << exaggeration;
        }
}

const LightCase s_lights[] = {
    {"relief", {"--lighting", "relief"}},
    {"vertex", {"--lighting", "vertex"}},
    {"static", {"--lighting", "static"}},
    {"dynamic", {"--lighting", "dynamic"}},
    {"chunked_static", {"--lighting", "static", "--method", "chunked"}},
    {"chunked_dynamic", {"--lighting", "dynamic", "--method", "chunked"}},
};

INSTANTIATE_TEST_SUITE_P(GroundLayers, Light, ::testing::ValuesIn(s_lights),
                         [](const auto & info) { return std::string(info.param.name); });

} // namespace
